#include "DpTapDevice.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <thread>

namespace Vexdp {

namespace {

Outcome failed( const std::string & what ) {
   const int error = errno;
   return refuse( error, "{}: {}", what, std::strerror( error ) );
}

ifreq requestFor( const std::string & ifname ) {
   ifreq request{};
   ifname.copy( request.ifr_name, IFNAMSIZ - 1 );
   return request;
}

// Names of `ip netns` have no slash.
std::string pathOf( const std::string & netns ) {
   return netns.find( '/' ) == std::string::npos ? "/var/run/netns/" + netns : netns;
}

std::string namespaceOf( const bess::pb::VPortArg & arg ) {
   if ( arg.cpid_case() == bess::pb::VPortArg::kContainerPid )
      return fmt::format( "/proc/{}/ns/net", arg.container_pid() );
   return arg.netns();
}

} // namespace

Outcome TapDevice::make( const bess::pb::VPortArg & arg, unsigned workers, std::unique_ptr< Device > & device ) {
   if ( arg.ifname().empty() || arg.ifname().size() >= IFNAMSIZ || arg.ifname().find( '/' ) != std::string::npos )
      return refuse( EINVAL, "ifname \"{}\" is not of 1 to {} characters without a slash", arg.ifname(), IFNAMSIZ - 1 );
   if ( arg.cpid_case() == bess::pb::VPortArg::kDocker )
      return refuse( EOPNOTSUPP, "docker \"{}\": name its namespace by container_pid or netns", arg.docker() );
   std::unique_ptr< TapDevice > made( new TapDevice( arg.ifname(), arg.tun(), workers ) );
   Outcome out;
   std::thread( [ & ] { out = made->open( namespaceOf( arg ), arg.ip_addrs() ); } ).join();
   if ( !out.ok() ) return out;
   device = std::move( made );
   return {};
}

Outcome TapDevice::open( const std::string & netns,
                         const google::protobuf::RepeatedPtrField< std::string > & addresses ) {
   if ( !netns.empty() ) {
      const Descriptor space( ::open( pathOf( netns ).c_str(), O_RDONLY | O_CLOEXEC ) );
      if ( space.fd() < 0 || setns( space.fd(), CLONE_NEWNET ) != 0 ) return failed( "namespace " + netns );
   }
   tap_ = Descriptor( ::open( "/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC ) );
   if ( tap_.fd() < 0 ) return failed( "/dev/net/tun" );
   auto request = requestFor( ifname_ );
   request.ifr_flags = short( ( tun_ ? IFF_TUN : IFF_TAP ) | IFF_NO_PI );
   if ( ioctl( tap_.fd(), TUNSETIFF, &request ) != 0 ) return failed( "device " + ifname_ );
   inside_ = Descriptor( ::socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 ) );
   if ( inside_.fd() < 0 ) return failed( "device " + ifname_ );
   for ( const auto & address : addresses )
      if ( auto out = addressIs( address ); !out.ok() ) return out;
   return {};
}

// The first one only: the kernel takes one by this way.
Outcome TapDevice::addressIs( const std::string & address ) {
   const auto slash = address.find( '/' );
   const auto length = slash == std::string::npos ? 32ul : std::strtoul( address.c_str() + slash + 1, nullptr, 10 );
   auto request = requestFor( ifname_ );
   auto & in = reinterpret_cast< sockaddr_in & >( request.ifr_addr );
   in.sin_family = AF_INET;
   if ( length > 32 || inet_pton( AF_INET, address.substr( 0, slash ).c_str(), &in.sin_addr ) != 1 )
      return refuse( EINVAL, "ip_addrs \"{}\" is no address", address );
   if ( ioctl( inside_.fd(), SIOCSIFADDR, &request ) != 0 ) return failed( fmt::format( "{}: {}", ifname_, address ) );
   in.sin_addr.s_addr = htonl( maskOf( unsigned( length ) ) );
   if ( ioctl( inside_.fd(), SIOCSIFNETMASK, &request ) != 0 )
      return failed( fmt::format( "{}: {}", ifname_, address ) );
   return {};
}

void TapDevice::receive( unsigned, std::vector< Packet > & burst ) {
   std::array< std::uint8_t, kMostBytes + 1 > bytes; // the kernel doesn't tell that it cut
   for ( std::size_t i = 0; i < kBurst; ++i ) {
      const auto length = read( tap_.fd(), bytes.data(), bytes.size() );
      if ( length <= 0 ) return;
      if ( std::size_t( length ) > kMostBytes ) {
         ++in_.dropped;
         continue;
      }
      ++in_.packets;
      in_.bytes += std::size_t( length );
      auto & packet = burst.emplace_back( std::size_t( length ) );
      packet.meta.ethernet = !tun_;
      std::copy_n( bytes.data(), length, packet.data() );
   }
}

// The kernel takes packets from several at once.
void TapDevice::send( Packet && packet, unsigned worker ) {
   auto & out = out_[ worker ];
   const Packet gone = std::move( packet );
   const bool fits = gone.meta.ethernet != tun_;
   if ( !up_.load( std::memory_order_relaxed ) || !fits ||
        write( tap_.fd(), gone.data(), gone.size() ) != ssize_t( gone.size() ) ) {
      ++out.dropped;
      return;
   }
   ++out.packets;
   out.bytes += gone.size();
}

Device::Conf TapDevice::conf() const {
   Conf conf;
   auto request = requestFor( ifname_ );
   if ( ioctl( inside_.fd(), SIOCGIFMTU, &request ) == 0 ) conf.mtu = std::uint32_t( request.ifr_mtu );
   if ( !tun_ && ioctl( inside_.fd(), SIOCGIFHWADDR, &request ) == 0 ) {
      MacAddr mac;
      std::copy_n( request.ifr_hwaddr.sa_data, mac.bytes.size(), mac.bytes.begin() );
      conf.mac = fmt::format( "{}", mac );
   }
   if ( ioctl( inside_.fd(), SIOCGIFFLAGS, &request ) == 0 ) conf.up = request.ifr_flags & IFF_UP;
   return conf;
}

Outcome TapDevice::confIs( const bess::pb::PortConf & conf ) {
   auto request = requestFor( ifname_ );
   if ( !conf.mac_addr().empty() && conf.mac_addr() != this->conf().mac ) {
      MacAddr mac;
      if ( auto out = stationFrom( conf.mac_addr(), mac ); !out.ok() ) return out;
      request.ifr_hwaddr.sa_family = ARPHRD_ETHER;
      std::ranges::copy( mac.bytes, request.ifr_hwaddr.sa_data );
      if ( ioctl( inside_.fd(), SIOCSIFHWADDR, &request ) != 0 )
         return failed( fmt::format( "{}: mac_addr {}", ifname_, conf.mac_addr() ) );
   }
   if ( conf.mtu() != 0 ) {
      request.ifr_mtu = int( conf.mtu() );
      if ( ioctl( inside_.fd(), SIOCSIFMTU, &request ) != 0 )
         return failed( fmt::format( "{}: mtu {}", ifname_, conf.mtu() ) );
   }
   if ( ioctl( inside_.fd(), SIOCGIFFLAGS, &request ) != 0 ) return failed( ifname_ );
   const auto flags = request.ifr_flags;
   request.ifr_flags = short( conf.admin_up() ? flags | IFF_UP : flags & ~IFF_UP );
   if ( request.ifr_flags != flags && ioctl( inside_.fd(), SIOCSIFFLAGS, &request ) != 0 ) return failed( ifname_ );
   return {};
}

void TapDevice::carrierIs( bool up ) {
   if ( up_.exchange( up ) == up ) return;
   const int carrier = up;
   ioctl( tap_.fd(), TUNSETCARRIER, &carrier );
}

} // namespace Vexdp
