#include "DpPmdDevice.h"

#include "DpDescriptor.h"
#include "DpPacketSocket.h"

#include <rte_bus.h>
#include <rte_dev.h>
#include <rte_errno.h>
#include <rte_ethdev.h>
#include <rte_mbuf.h>
#include <spdlog/spdlog.h>

#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <limits>

namespace Vexdp {

namespace {

constexpr std::uint16_t kDescriptors = 512;

// The value of a key in "net_af_packet0,iface=veth1,framesz=2048"; empty when it has none.
std::string valueIn( const std::string & vdev, std::string_view key ) {
   for ( std::size_t at = vdev.find( ',' ); at != std::string::npos; ) {
      const auto end = vdev.find( ',', ++at );
      const auto word = std::string_view( vdev ).substr( at, end == std::string::npos ? end : end - at );
      if ( word.size() > key.size() && word.starts_with( key ) && word[ key.size() ] == '=' )
         return std::string( word.substr( key.size() + 1 ) );
      at = end;
   }
   return {};
}

std::string deviceOf( const bess::pb::PMDPortArg & arg ) {
   if ( arg.port_case() == bess::pb::PMDPortArg::kPci ) return arg.pci();
   return arg.vdev().substr( 0, arg.vdev().find( ',' ) );
}

// One of the process's packet sockets on the kernel's device, or -1.
int packetSocketOn( unsigned index ) {
   std::error_code error;
   for ( const auto & entry : std::filesystem::directory_iterator( "/proc/self/fd", error ) ) {
      const int fd = std::atoi( entry.path().filename().c_str() );
      sockaddr_ll address{};
      socklen_t length = sizeof address;
      if ( getsockname( fd, reinterpret_cast< sockaddr * >( &address ), &length ) == 0 &&
           address.sll_family == AF_PACKET && address.sll_ifindex == int( index ) )
         return fd;
   }
   return -1;
}

// False, with errno, when the kernel doesn't do it.
bool asked( const std::string & kernelDevice, unsigned long what, ifreq & request ) {
   kernelDevice.copy( request.ifr_name, IFNAMSIZ - 1 );
   const Descriptor socket( ::socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 ) );
   return socket.fd() >= 0 && ioctl( socket.fd(), what, &request ) == 0;
}

short flagsOf( const std::string & kernelDevice ) {
   ifreq request{};
   return asked( kernelDevice, SIOCGIFFLAGS, request ) ? request.ifr_flags : short( 0 );
}

// The kernel of the namespace is to leave the device to the port: it answers no ARP there, believes no source address,
// forwards nothing and speaks no IPv6. Taps see packets before all of that.
void keepKernelOff( const std::string & kernelDevice ) {
   const std::pair< const char *, const char * > settings[] = {
        { "/proc/sys/net/ipv4/conf/{}/arp_ignore", "8" },
        { "/proc/sys/net/ipv4/conf/{}/rp_filter", "1" },
        { "/proc/sys/net/ipv4/conf/{}/forwarding", "0" },
        { "/proc/sys/net/ipv6/conf/{}/disable_ipv6", "1" },
   };
   for ( const auto & [ path, value ] : settings ) {
      std::ofstream file( fmt::format( fmt::runtime( path ), kernelDevice ) );
      if ( !( file << value << std::flush ) )
         spdlog::info( "device {}: {} is not to be set to {}: the kernel may answer beside the port", kernelDevice,
                       fmt::format( fmt::runtime( path ), kernelDevice ), value );
   }
}

// Drivers on the kernel's devices have as many queues as they are told in words of their own. Fewer are never served:
// what came by the rest would be lost.
void tellQueues( bess::pb::PMDPortArg & arg, PmdDevice::Queues & queues ) {
   constexpr std::pair< std::string_view, std::string_view > kWords[] = { { "net_af_packet", "qpairs" },
                                                                          { "net_af_xdp", "queue_count" } };
   for ( const auto & [ driver, word ] : kWords ) {
      if ( !arg.vdev().starts_with( driver ) ) continue;
      const auto told = std::strtoul( valueIn( arg.vdev(), word ).c_str(), nullptr, 10 );
      if ( told == 0 && queues.in > 1 ) arg.set_vdev( fmt::format( "{},{}={}", arg.vdev(), word, queues.in ) );
      queues.in = std::max( queues.in, std::uint16_t( std::min( told, 256ul ) ) );
   }
}

Outcome failed( int code, const std::string & what ) {
   const int error = std::abs( code );
   return refuse( error, "{}: {}", what, rte_strerror( error ) );
}

} // namespace

Outcome PmdDevice::make( Eal & eal, bess::pb::PMDPortArg arg, Queues queues, std::unique_ptr< Device > & device ) {
   using Arg = bess::pb::PMDPortArg;
   if ( arg.port_case() == Arg::PORT_NOT_SET ) return refuse( EINVAL, "none of vdev, pci and port_id is set" );
   const auto kernelDevice = valueIn( arg.vdev(), "iface" );
   const auto index = kernelDevice.empty() ? 0 : if_nametoindex( kernelDevice.c_str() );
   if ( !kernelDevice.empty() && index == 0 ) return refuse( ENODEV, "there is no device {}", kernelDevice );
   if ( auto out = eal.start(); !out.ok() ) return out;
   tellQueues( arg, queues );

   const auto size = valueIn( arg.vdev(), "framesz" );
   const auto frameLen = size.empty() ? 0u : unsigned( std::strtoul( size.c_str(), nullptr, 10 ) );
   auto * const pool = eal.poolFor( frameLen > 2048 ? frameLen : 0 );
   if ( pool == nullptr ) return refuse( ENOMEM, "no memory for buffers of {} bytes", frameLen );

   std::uint16_t id = 0;
   const bool ours = arg.port_case() != Arg::kPortId;
   const auto dev = deviceOf( arg );
   takeFanoutSockets();
   if ( ours ) {
      if ( rte_eth_dev_get_port_by_name( dev.c_str(), &id ) == 0 ) return refuse( EEXIST, "{} is in use", dev );
      const auto & whole = arg.port_case() == Arg::kPci ? arg.pci() : arg.vdev();
      if ( const int error = rte_dev_probe( whole.c_str() ); error != 0 ) return failed( error, whole );
      if ( const int error = rte_eth_dev_get_port_by_name( dev.c_str(), &id ); error != 0 ) return failed( error, dev );
   } else {
      if ( arg.port_id() > std::numeric_limits< std::uint16_t >::max() ||
           !rte_eth_dev_is_valid_port( std::uint16_t( arg.port_id() ) ) )
         return refuse( ENODEV, "there is no port_id {}", arg.port_id() );
      id = std::uint16_t( arg.port_id() );
   }
   std::unique_ptr< PmdDevice > made( new PmdDevice( id, dev, ours, pool, queues ) );
   made->kernelDevice_ = kernelDevice;
   if ( auto out = made->begin( queues, frameLen ); !out.ok() ) return out;
   if ( auto out = made->standOn( takeFanoutSockets() ); !out.ok() ) return out;
   device = std::move( made );
   return {};
}

PmdDevice::~PmdDevice() {
   for ( unsigned worker = 0; worker < workers(); ++worker )
      for ( std::size_t i = 0; i < outs_[ worker ].count; ++i ) rte_pktmbuf_free( outs_[ worker ].mbufs[ i ] );
   rte_eth_dev_info info{};
   const bool known = rte_eth_dev_info_get( id_, &info ) == 0;
   rte_eth_dev_stop( id_ );
   if ( !ours_ || !known ) return;
   rte_eth_dev_close( id_ );
   rte_dev_remove( info.device );
}

Outcome PmdDevice::begin( const Queues & queues, unsigned frameLen ) {
   rte_eth_dev_info info{};
   if ( const int error = rte_eth_dev_info_get( id_, &info ); error != 0 ) return failed( error, dev_ );
   if ( queues.in > info.max_rx_queues )
      return refuse( ERANGE, "num_inc_q {}: {} has {}", queues.in, dev_, info.max_rx_queues );
   if ( queues.out > info.max_tx_queues )
      return refuse( ERANGE, "num_out_q {}: {} has {}", queues.out, dev_, info.max_tx_queues );
   outQueues_ = std::min( std::max( queues.out, std::uint16_t( queues.workers ) ), info.max_tx_queues );
   rte_eth_conf conf{};
   // The drivers on the kernel's devices say 1,500, whatever those take.
   if ( kernelDevice_.empty() && frameLen > RTE_ETHER_MAX_LEN && info.max_mtu > RTE_ETHER_MTU )
      conf.rxmode.mtu = std::min< std::uint32_t >( kMaxMtu, info.max_mtu );
   conf.rx_adv_conf.rss_conf.rss_hf =
        ( RTE_ETH_RSS_IP | RTE_ETH_RSS_TCP | RTE_ETH_RSS_UDP ) & info.flow_type_rss_offloads;
   if ( queues.in > 1 && conf.rx_adv_conf.rss_conf.rss_hf != 0 ) conf.rxmode.mq_mode = RTE_ETH_MQ_RX_RSS;
   if ( const int error = rte_eth_dev_configure( id_, queues.in, outQueues_, &conf ); error != 0 )
      return failed( error, dev_ );
   if ( auto out = beginQueues( queues ); !out.ok() ) return out;
   if ( const int error = rte_eth_dev_start( id_ ); error != 0 ) return failed( error, dev_ );
   // The interface's address is the router's to choose, and it has others beside.
   rte_eth_promiscuous_enable( id_ );
   return {};
}

Outcome PmdDevice::beginQueues( const Queues & queues ) {
   auto in = queues.inSize == 0 ? kDescriptors : queues.inSize;
   auto out = queues.outSize == 0 ? kDescriptors : queues.outSize;
   if ( const int error = rte_eth_dev_adjust_nb_rx_tx_desc( id_, &in, &out ); error != 0 ) return failed( error, dev_ );
   for ( std::uint16_t queue = 0; queue < queues.in; ++queue )
      if ( const int error = rte_eth_rx_queue_setup( id_, queue, in, SOCKET_ID_ANY, nullptr, pool_ ); error != 0 )
         return failed( error, dev_ );
   for ( std::uint16_t queue = 0; queue < outQueues_; ++queue )
      if ( const int error = rte_eth_tx_queue_setup( id_, queue, out, SOCKET_ID_ANY, nullptr ); error != 0 )
         return failed( error, dev_ );
   return {};
}

// What the kernel itself sends on the device is not for the router.
Outcome PmdDevice::standOn( std::vector< int > sockets ) {
   if ( kernelDevice_.empty() ) return {};
   kernelIndex_ = if_nametoindex( kernelDevice_.c_str() );
   if ( kernelIndex_ == 0 ) return refuse( ENODEV, "device {} is gone", kernelDevice_ );
   keepKernelOff( kernelDevice_ );
   if ( sockets.empty() )
      if ( const int socket = packetSocketOn( kernelIndex_ ); socket >= 0 ) sockets.push_back( socket );
   sockets_ = std::move( sockets );
   const int on = 1;
   for ( const int socket : sockets_ ) setsockopt( socket, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on );
   return {};
}

void PmdDevice::receive( unsigned queue, std::vector< Packet > & burst ) {
   std::array< rte_mbuf *, kBurst > mbufs;
   const auto count = rte_eth_rx_burst( id_, std::uint16_t( queue ), mbufs.data(), kBurst );
   if ( !up_ ) return rte_pktmbuf_free_bulk( mbufs.data(), count );
   for ( unsigned i = 0; i < count; ++i ) {
      if ( mbufs[ i ]->pkt_len <= kMostBytes ) {
         burst.push_back( Eal::packetOf( mbufs[ i ] ) );
      } else {
         ++tooLong_[ queue ];
         rte_pktmbuf_free( mbufs[ i ] );
      }
   }
}

void PmdDevice::send( Packet && packet, unsigned worker ) {
   auto & out = outs_[ worker ];
   if ( out.count == out.mbufs.size() ) flush( worker );
   auto * const mbuf = up_ ? Eal::mbufOf( std::move( packet ), pool_ ) : nullptr;
   if ( mbuf == nullptr )
      ++out.dropped;
   else
      out.mbufs[ out.count++ ] = mbuf;
}

void PmdDevice::flush( unsigned worker ) {
   auto & out = outs_[ worker ];
   if ( out.count == 0 ) return;
   const auto queue = std::uint16_t( worker % outQueues_ );
   std::size_t sent = 0;
   {
      const OneAtATime one( outLocks_[ queue ], outQueues_ < workers() );
      sent = rte_eth_tx_burst( id_, queue, out.mbufs.data(), std::uint16_t( out.count ) );
   }
   out.dropped += out.count - sent;
   for ( auto i = sent; i < out.count; ++i ) rte_pktmbuf_free( out.mbufs[ i ] );
   out.count = 0;
}

Device::Stats PmdDevice::stats() const {
   rte_eth_stats stats{};
   rte_eth_stats_get( id_, &stats );
   // The driver leaves out what its rings had no room for. Asking sets the kernel's count back.
   for ( const int socket : sockets_ ) {
      tpacket_stats ring{};
      socklen_t length = sizeof ring;
      if ( getsockopt( socket, SOL_PACKET, PACKET_STATISTICS, &ring, &length ) == 0 ) ringDropped_ += ring.tp_drops;
   }
   std::uint64_t tooLong = 0, outDropped = 0;
   for ( unsigned queue = 0; queue < queues(); ++queue ) tooLong += tooLong_[ queue ];
   for ( unsigned worker = 0; worker < workers(); ++worker ) outDropped += outs_[ worker ].dropped;
   return { { stats.ipackets - tooLong, stats.imissed + stats.rx_nombuf + stats.ierrors + ringDropped_ + tooLong,
              stats.ibytes },
            { stats.opackets, stats.oerrors + outDropped, stats.obytes } };
}

Device::Link PmdDevice::link() const {
   rte_eth_link link{};
   rte_eth_link_get_nowait( id_, &link );
   Link told{ up_ && link.link_status == RTE_ETH_LINK_UP,
              link.link_speed == RTE_ETH_SPEED_NUM_UNKNOWN ? 0 : link.link_speed,
              {} };
   if ( kernelDevice_.empty() ) return told;
   if ( if_nametoindex( kernelDevice_.c_str() ) != kernelIndex_ )
      return { false, 0, fmt::format( "device {} is gone", kernelDevice_ ) };
   constexpr short kCarries = IFF_UP | IFF_RUNNING;
   told.up = told.up && ( flagsOf( kernelDevice_ ) & kCarries ) == kCarries;
   return told;
}

Device::Conf PmdDevice::conf() const {
   Conf conf;
   rte_ether_addr mac{};
   if ( rte_eth_macaddr_get( id_, &mac ) == 0 ) {
      MacAddr addr;
      std::ranges::copy( mac.addr_bytes, addr.bytes.begin() );
      conf.mac = fmt::format( "{}", addr );
   }
   conf.mtu = mtu();
   conf.up = up_;
   return conf;
}

std::uint32_t PmdDevice::mtu() const {
   ifreq request{};
   if ( !kernelDevice_.empty() && asked( kernelDevice_, SIOCGIFMTU, request ) ) return std::uint32_t( request.ifr_mtu );
   std::uint16_t mtu = 0;
   return rte_eth_dev_get_mtu( id_, &mtu ) == 0 ? mtu : 0;
}

Outcome PmdDevice::mtuIs( std::uint32_t mtu ) {
   if ( mtu == 0 || mtu == this->mtu() ) return {};
   if ( kernelDevice_.empty() ) {
      const int error = rte_eth_dev_set_mtu( id_, std::uint16_t( mtu ) );
      return error == 0 ? Outcome() : failed( error, fmt::format( "{}: mtu {}", dev_, mtu ) );
   }
   ifreq request{};
   request.ifr_mtu = int( mtu );
   return asked( kernelDevice_, SIOCSIFMTU, request )
               ? Outcome()
               : failed( errno, fmt::format( "{}: mtu {}", kernelDevice_, mtu ) );
}

Outcome PmdDevice::confIs( const bess::pb::PortConf & conf ) {
   MacAddr mac;
   if ( !conf.mac_addr().empty() )
      if ( auto out = stationFrom( conf.mac_addr(), mac ); !out.ok() ) return out;
   if ( conf.mtu() != 0 && ( conf.mtu() < kMinMtu || conf.mtu() > kMaxMtu ) )
      return refuse( ERANGE, "mtu {} is not from {} to {}", conf.mtu(), kMinMtu, kMaxMtu );
   if ( auto out = mtuIs( conf.mtu() ); !out.ok() ) return out;
   if ( !conf.mac_addr().empty() && conf.mac_addr() != this->conf().mac ) {
      rte_ether_addr addr{};
      std::ranges::copy( mac.bytes, addr.addr_bytes );
      if ( const int error = rte_eth_dev_default_mac_addr_set( id_, &addr ); error != 0 )
         return failed( error, fmt::format( "{}: mac_addr {}", dev_, conf.mac_addr() ) );
   }
   up_ = conf.admin_up();
   return {};
}

} // namespace Vexdp
