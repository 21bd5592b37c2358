#include "BenchKernel.h"

#include "BenchProcess.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace Bench {

namespace {

constexpr std::size_t messagesPerCall = 256;
// Every namespace has it, and a next hop on it need not answer.
constexpr unsigned loopback = 1;

// Messages gather, and go out together. The kernel answers the last one; before it, only those that it refuses.
class Netlink {
 public:
   Netlink() : socket_( mnl_socket_open( NETLINK_ROUTE ) ) {
      if ( socket_ == nullptr || mnl_socket_bind( socket_, 0, MNL_SOCKET_AUTOPID ) < 0 ) fail( "netlink" );
   }
   Netlink( const Netlink & ) = delete;
   Netlink & operator=( const Netlink & ) = delete;
   ~Netlink() { mnl_socket_close( socket_ ); }

   // Room for the next message, which `fill` completes.
   template < typename Body, typename Fill >
   void add( std::uint16_t type, std::uint16_t flags, const Body & body, Fill fill ) {
      last_ = mnl_nlmsg_put_header( buffer_.data() + used_ );
      last_->nlmsg_type = type;
      last_->nlmsg_flags = std::uint16_t( NLM_F_REQUEST | flags );
      last_->nlmsg_seq = ++sequence_;
      std::memcpy( mnl_nlmsg_put_extra_header( last_, sizeof( body ) ), &body, sizeof( body ) );
      fill( last_ );
      used_ += MNL_ALIGN( last_->nlmsg_len );
      if ( ++messages_ == messagesPerCall ) flush();
   }

   void flush() {
      if ( messages_ == 0 ) return;
      last_->nlmsg_flags |= NLM_F_ACK;
      if ( mnl_socket_sendto( socket_, buffer_.data(), used_ ) < 0 ) fail( "send" );
      while ( !acknowledged() ) continue;
      used_ = 0;
      messages_ = 0;
   }

 private:
   bool acknowledged() {
      alignas( NLMSG_ALIGNTO ) std::array< char, 32768 > answer;
      auto length = mnl_socket_recvfrom( socket_, answer.data(), answer.size() );
      if ( length < 0 ) fail( "receive" );
      bool last = false;
      auto left = int( length );
      for ( auto * header = reinterpret_cast< nlmsghdr * >( answer.data() ); mnl_nlmsg_ok( header, left );
            header = mnl_nlmsg_next( header, &left ) ) {
         if ( header->nlmsg_type != NLMSG_ERROR ) continue;
         errno = -static_cast< nlmsgerr * >( mnl_nlmsg_get_payload( header ) )->error;
         if ( errno != 0 ) fail( "the kernel refuses a message" );
         last = last || header->nlmsg_seq == sequence_;
      }
      return last;
   }
   [[noreturn]] static void fail( const char * what ) {
      throw std::runtime_error( std::string( what ) + ": " + std::strerror( errno ) );
   }

   mnl_socket * socket_;
   alignas( NLMSG_ALIGNTO ) std::array< char, messagesPerCall * 256 > buffer_;
   std::size_t used_ = 0, messages_ = 0;
   std::uint32_t sequence_ = 0;
   nlmsghdr * last_ = nullptr;
};

std::uint32_t hopId( U32 adjacency, U32 n ) { return 1 + adjacency * hopsPerAdjacency + n; }
std::uint32_t groupId( U32 adjacency ) { return 10000 + adjacency; }

class KernelTable {
 public:
   KernelTable( const Order & order, const Sizes & sizes ) : order_( order ), sizes_( sizes ) {
      ifinfomsg up{};
      up.ifi_index = loopback;
      up.ifi_flags = up.ifi_change = IFF_UP;
      netlink_.add( RTM_NEWLINK, 0, up, []( nlmsghdr * ) {} );
      for ( U32 adjacency = 0; adjacency <= commonAdjacency; ++adjacency ) {
         nextHops( adjacency );
         group( adjacency );
      }
      netlink_.flush();
   }

   Sample measured( Phase phase ) {
      const auto start = Clock::now();
      const auto cpu = cpuOfThisProcess();
      for ( std::size_t index = 0; index < sizes_.operations( phase ); ++index ) step( phase, index );
      netlink_.flush();
      return { secondsSince( start ), cpuOfThisProcess() - cpu, 0 };
   }

 private:
   void step( Phase phase, std::size_t index ) {
      switch ( phase ) {
      case Phase::adjacencies: change( U32( index % adjacencies ) ); break;
      case Phase::move: change( commonAdjacency ); break;
      default: {
         const auto position = order_.at( phase, index );
         route( phase, position, phase == Phase::add ? U32( position % adjacencies ) : commonAdjacency );
      }
      }
   }
   // Their groups stay as they are: to replace a next hop in place is the quickest that the kernel offers.
   void change( U32 adjacency ) {
      other_[ adjacency ] = !other_[ adjacency ];
      nextHops( adjacency );
   }
   void nextHops( U32 adjacency ) {
      nhmsg body{};
      body.nh_family = AF_INET;
      body.nh_flags = RTNH_F_ONLINK;
      for ( U32 n = 0; n < hopsPerAdjacency; ++n )
         netlink_.add( RTM_NEWNEXTHOP, NLM_F_CREATE | NLM_F_REPLACE, body, [ & ]( nlmsghdr * header ) {
            const auto id = hopId( adjacency, n );
            mnl_attr_put_u32( header, NHA_ID, id );
            mnl_attr_put_u32( header, NHA_GATEWAY, htonl( ( other_[ adjacency ] ? 0x0a010000 : 0x0a000000 ) + id ) );
            mnl_attr_put_u32( header, NHA_OIF, loopback );
         } );
   }
   void group( U32 adjacency ) {
      nexthop_grp members[ hopsPerAdjacency ]{};
      for ( U32 n = 0; n < hopsPerAdjacency; ++n ) members[ n ].id = hopId( adjacency, n );
      netlink_.add( RTM_NEWNEXTHOP, NLM_F_CREATE, nhmsg{}, [ & ]( nlmsghdr * header ) {
         mnl_attr_put_u32( header, NHA_ID, groupId( adjacency ) );
         mnl_attr_put( header, NHA_GROUP, sizeof( members ), members );
      } );
   }
   void route( Phase phase, std::size_t position, U32 adjacency ) {
      const auto & prefix = order_.prefixes()[ position ];
      rtmsg body{};
      body.rtm_family = AF_INET;
      body.rtm_dst_len = prefix.len();
      body.rtm_table = RT_TABLE_MAIN;
      body.rtm_protocol = RTPROT_STATIC;
      body.rtm_scope = RT_SCOPE_UNIVERSE;
      body.rtm_type = RTN_UNICAST;
      const bool away = phase == Phase::del;
      const int flags = phase == Phase::add ? NLM_F_CREATE | NLM_F_EXCL : away ? 0 : NLM_F_CREATE | NLM_F_REPLACE;
      netlink_.add( away ? RTM_DELROUTE : RTM_NEWROUTE, std::uint16_t( flags ), body, [ & ]( nlmsghdr * header ) {
         mnl_attr_put_u32( header, RTA_DST, htonl( prefix.address().value() ) );
         if ( !away ) mnl_attr_put_u32( header, RTA_NH_ID, groupId( adjacency ) );
      } );
   }

   const Order & order_;
   const Sizes & sizes_;
   std::array< bool, commonAdjacency + 1 > other_{};
   Netlink netlink_;
};

constexpr Phase measuredPhases[] = { Phase::add, Phase::adjacencies, Phase::change, Phase::move, Phase::del };

struct Answer {
   Sample samples[ std::size( measuredPhases ) ];
   bool good;
   char reason[ 200 ];
};

void inChild( const Order & order, const Sizes & sizes, Answer & answer ) {
   try {
      // Who may not unshare the network alone may do so as the root of a user namespace.
      if ( unshare( CLONE_NEWNET ) != 0 && unshare( CLONE_NEWUSER | CLONE_NEWNET ) != 0 )
         throw std::runtime_error( std::string( "no network namespace: " ) + std::strerror( errno ) );
      // Without this, each change of a next hop announces every route over it, and takes milliseconds.
      std::ofstream( "/proc/sys/net/ipv4/nexthop_compat_mode" ) << 0;
      KernelTable table( order, sizes );
      for ( std::size_t i = 0; i < std::size( measuredPhases ); ++i )
         answer.samples[ i ] = table.measured( measuredPhases[ i ] );
      answer.good = true;
   } catch ( const std::exception & error ) {
      std::strncpy( answer.reason, error.what(), sizeof( answer.reason ) - 1 );
   }
}

} // namespace

std::optional< std::map< Phase, Sample > > measureKernel( const Order & order, const Sizes & sizes,
                                                          std::string & reason ) {
   int ends[ 2 ];
   if ( pipe( ends ) != 0 ) throw std::runtime_error( "no pipe" );
   const pid_t child = fork();
   Answer answer{};
   if ( child == 0 ) {
      inChild( order, sizes, answer );
      const auto written = write( ends[ 1 ], &answer, sizeof( answer ) );
      _exit( written == sizeof( answer ) ? 0 : 1 );
   }
   close( ends[ 1 ] );
   const bool whole = read( ends[ 0 ], &answer, sizeof( answer ) ) == sizeof( answer );
   close( ends[ 0 ] );
   waitpid( child, nullptr, 0 );
   if ( !whole || !answer.good ) {
      reason = whole ? answer.reason : "the child died";
      return std::nullopt;
   }
   std::map< Phase, Sample > samples;
   for ( std::size_t i = 0; i < std::size( measuredPhases ); ++i ) samples[ measuredPhases[ i ] ] = answer.samples[ i ];
   return samples;
}

} // namespace Bench
