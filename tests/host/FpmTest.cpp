#include "HostFpmAnswers.h"
#include "HostFpmRoutes.h"
#include "HostTestRouter.h"
#include "Steps.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>

namespace {

using namespace Test;
using namespace std::string_literals;

// Messages as zebra puts them into frames.
class Frame {
 public:
   Frame & route( U16 type, const char * prefix, U32 nextHop, U8 kind = RTN_UNICAST, U8 protocol = 186 ) {
      const auto parsed = *Kynet::Prefix::fromString( prefix );
      auto * const header = put( type );
      auto & body = *static_cast< rtmsg * >( mnl_nlmsg_put_extra_header( header, sizeof( rtmsg ) ) );
      body.rtm_family = AF_INET;
      body.rtm_dst_len = parsed.len();
      body.rtm_type = kind;
      body.rtm_protocol = protocol;
      body.rtm_table = RT_TABLE_MAIN;
      mnl_attr_put_u32( header, RTA_DST, htonl( parsed.address().value() ) );
      mnl_attr_put_u32( header, RTA_PRIORITY, 20 );
      if ( nextHop != 0 ) mnl_attr_put_u32( header, RTA_NH_ID, nextHop );
      return end( header );
   }
   Frame & nextHop( U32 id, const char * gateway, U32 index ) {
      auto * const header = put( RTM_NEWNEXTHOP );
      static_cast< nhmsg * >( mnl_nlmsg_put_extra_header( header, sizeof( nhmsg ) ) )->nh_family = AF_INET;
      mnl_attr_put_u32( header, NHA_ID, id );
      mnl_attr_put_u32( header, NHA_GATEWAY, htonl( Kynet::IpAddr::fromString( gateway )->value() ) );
      mnl_attr_put_u32( header, NHA_OIF, index );
      return end( header );
   }
   Frame & group( U32 id, std::initializer_list< U32 > members ) {
      auto * const header = put( RTM_NEWNEXTHOP );
      mnl_nlmsg_put_extra_header( header, sizeof( nhmsg ) );
      std::vector< nexthop_grp > entries;
      for ( const auto member : members ) entries.push_back( { member, 0, 0, 0 } );
      mnl_attr_put_u32( header, NHA_ID, id );
      mnl_attr_put( header, NHA_GROUP, entries.size() * sizeof( nexthop_grp ), entries.data() );
      return end( header );
   }
   struct Hop {
      const char * gateway;
      U32 index;
      U8 flags;
   };
   Frame & multipath( const char * prefix, std::initializer_list< Hop > hops ) {
      route( RTM_NEWROUTE, prefix, 0 );
      body_.resize( body_.size() - reinterpret_cast< nlmsghdr * >( room_ )->nlmsg_len );
      auto * const header = reinterpret_cast< nlmsghdr * >( room_ );
      auto * const all = mnl_attr_nest_start( header, RTA_MULTIPATH );
      for ( const auto & hop : hops ) {
         const rtnexthop head{ sizeof( rtnexthop ) + MNL_ATTR_HDRLEN + sizeof( U32 ), hop.flags, 0, int( hop.index ) };
         std::memcpy( mnl_nlmsg_get_payload_tail( header ), &head, sizeof( head ) );
         header->nlmsg_len += sizeof( head );
         mnl_attr_put_u32( header, RTA_GATEWAY, htonl( Kynet::IpAddr::fromString( hop.gateway )->value() ) );
      }
      mnl_attr_nest_end( header, all );
      return end( header );
   }
   std::string bytes() const {
      const auto length = body_.size() + 4;
      return std::string{ 1, 1, char( length >> 8 ), char( length & 0xff ) } + body_;
   }

 private:
   nlmsghdr * put( U16 type ) {
      auto * const header = mnl_nlmsg_put_header( room_ );
      header->nlmsg_type = type;
      return header;
   }
   Frame & end( const nlmsghdr * header ) {
      body_.append( room_, header->nlmsg_len );
      return *this;
   }
   alignas( 8 ) char room_[ 1024 ];
   std::string body_;
};

// Ethernet1 and Ethernet2 have the devices 1 and 2.
struct Fpm : HostedState {
   Fpm() { describe( twoPorts ); }
   // Gives why the connection ends. Pieces of so many bytes.
   std::string take( const std::string & bytes, size_t piece = 7 ) {
      for ( size_t at = 0; at < bytes.size(); at += piece ) {
         const auto size = bytes.copy( stream.room( piece ), piece, at );
         if ( auto wrong = stream.take( size ); !wrong.empty() ) return wrong;
         fpm.settle();
      }
      return {};
   }
   std::string take( const Frame & frame ) { return take( frame.bytes() ); }

   U32 devices = 2;
   Host::RouteOutcome outcome = Host::RouteOutcome::pending; // of every route
   Host::FpmAnswers answers{ state,
                             { [ this ]( U32, const auto & ) { return outcome; }, []( Kynet::IntfId ) { return 1; } } };
   Host::FpmRoutes fpm{ state,
                        [ this ]( U32 index ) -> std::optional< Kynet::IntfId > {
                           if ( index == 0 || index > devices ) return std::nullopt;
                           return Kynet::IntfId::fromString( "Ethernet" + std::to_string( index ) );
                        },
                        &answers };
   Host::FpmStream stream{ [ this ]( const auto & messages ) { return fpm.frame( messages ); } };
};

TEST( HostFpm, aRouteIsAnsweredOnceForAllThatWasToldOfItBefore ) {
   Fpm router;
   std::string sent;
   router.answers.senderIs( [ & ]( const std::string & frames ) {
      sent += frames;
      return true;
   } );
   // given a route that is told a hundred times, one that goes and comes again, and one that goes
   EXPECT_EQ( router.take( Frame().nextHop( 1, "10.0.1.2", 1 ).nextHop( 2, "10.0.1.3", 1 ) ), "" );
   for ( U32 n = 0; n < 100; ++n )
      EXPECT_EQ( router.take( Frame().route( RTM_NEWROUTE, "20.0.0.0/24", 1 + n % 2 ) ), "" );
   for ( const auto type : { RTM_NEWROUTE, RTM_DELROUTE, RTM_NEWROUTE } )
      EXPECT_EQ( router.take( Frame().route( type, "20.0.1.0/24", 1 ) ), "" );
   EXPECT_EQ( router.answers.waiting(), 2u );
   for ( const auto type : { RTM_NEWROUTE, RTM_DELROUTE } )
      EXPECT_EQ( router.take( Frame().route( type, "20.0.2.0/24", 1 ) ), "" );
   // when the data plane has taken them
   router.outcome = Host::RouteOutcome::programmed;
   runUntil( [ & ] { return router.answers.waiting() == 0; } );
   // then two are answered, the first with the next hop of its last telling, and a later telling is answered again
   EXPECT_EQ( router.answers.answered(), 2u );
   EXPECT_NE( sent.find( "\x0a\x00\x01\x03"s ), sent.npos );
   EXPECT_EQ( sent.find( "\x14\x00\x02\x00"s ), sent.npos );
   EXPECT_EQ( router.take( Frame().route( RTM_NEWROUTE, "20.0.0.0/24", 1 ) ), "" );
   runUntil( [ & ] { return router.answers.waiting() == 0; } );
   EXPECT_EQ( router.answers.answered(), 3u );
}

TEST( HostFpm, groupsComeBeforeTheirMembersAndRoutesAreReplacedWithoutAGap ) {
   Fpm router;
   EXPECT_EQ( router.take( Frame().group( 9, { 1, 2 } ) ), "" );
   EXPECT_EQ( router.take( Frame().route( RTM_NEWROUTE, "192.0.2.0/24", 9 ) ), "" );
   EXPECT_EQ( router.fpm.refusals().at( 0 ).reason, "a next hop that was not told" );
   EXPECT_EQ( router.take( Frame().nextHop( 1, "10.0.1.2", 1 ) ), "" );
   EXPECT_EQ( router.routes( "fpm" ), Lines{ "192.0.2.0/24 forward 10.0.1.2%Ethernet1 (fpm)" } );
   EXPECT_EQ( router.take( Frame().nextHop( 2, "10.0.2.2", 2 ) ), "" );
   EXPECT_EQ( router.routes( "fpm" ), Lines{ "192.0.2.0/24 forward 10.0.1.2%Ethernet1 10.0.2.2%Ethernet2 (fpm)" } );
   const auto sequence = router.state.tree().fib->sequence( 0 );
   EXPECT_EQ( router.take( Frame()
                                .route( RTM_DELROUTE, "192.0.2.0/24", 0, 0 )
                                .route( RTM_NEWROUTE, "192.0.2.0/24", 2, RTN_UNICAST, 188 ) ),
              "" );
   EXPECT_EQ( router.routes( "fpm" ), Lines{ "192.0.2.0/24 forward 10.0.2.2%Ethernet2 (fpm)" } );
   EXPECT_EQ( router.state.tree().fib->sequence( 0 ), sequence + 1 );
   EXPECT_EQ( router.take( Frame().route( RTM_NEWROUTE, "198.51.100.0/24", 0, RTN_BLACKHOLE ) ), "" );
   EXPECT_EQ( router.take( Frame().route( RTM_DELROUTE, "192.0.2.0/24", 0, 0 ) ), "" );
   EXPECT_EQ( router.routes( "fpm" ), Lines{ "198.51.100.0/24 drop (fpm)" } );
}

TEST( HostFpm, aNewConnectionThatTellsTheSameByOtherNumbersChangesNothing ) {
   Fpm router;
   const auto fecs = router.fecs();
   EXPECT_EQ( router.take( Frame().nextHop( 1, "10.0.1.2", 1 ).route( RTM_NEWROUTE, "192.0.2.0/24", 1 ) ), "" );
   EXPECT_EQ( router.take( Frame().nextHop( 2, "10.0.2.2", 2 ).route( RTM_NEWROUTE, "192.0.3.0/24", 2 ) ), "" );
   const auto sequence = router.state.tree().fib->sequence( 0 );
   router.fpm.lost();
   router.state.sources().lost( Host::Teller::fpm() );
   EXPECT_EQ( router.state.sources().stale( Host::Teller::fpm() ), 2u );
   EXPECT_EQ( router.take( Frame().nextHop( 2, "10.0.1.2", 1 ).route( RTM_NEWROUTE, "192.0.2.0/24", 2 ) ), "" );
   EXPECT_EQ( router.state.tree().fib->sequence( 0 ), sequence );
   EXPECT_EQ( router.state.sources().stale( Host::Teller::fpm() ), 1u );
   EXPECT_EQ( router.state.sources().sweep( Host::Teller::fpm() ), "" );
   router.fpm.swept();
   EXPECT_EQ( router.routes( "fpm" ), Lines{ "192.0.2.0/24 forward 10.0.1.2%Ethernet1 (fpm)" } );
   EXPECT_EQ( router.take( Frame().route( RTM_DELROUTE, "192.0.2.0/24", 0, 0 ) ), "" );
   router.fpm.lost();
   router.fpm.swept();
   EXPECT_EQ( router.fecs(), fecs );
}

TEST( HostFpm, whatTheRouterCannotHaveIsListedAndComesWithItsDevice ) {
   Fpm router;
   router.devices = 1;
   EXPECT_EQ( router.take( Frame().nextHop( 3, "10.0.2.2", 2 ).route( RTM_NEWROUTE, "192.0.2.0/24", 3 ) ), "" );
   ASSERT_EQ( router.fpm.refusals().size(), 1u );
   EXPECT_EQ( router.fpm.refusals()[ 0 ].reason, "another device" );
   EXPECT_EQ( router.fpm.refusals()[ 0 ].example, "192.0.2.0/24" );
   router.devices = 2;
   router.fpm.review();
   EXPECT_EQ( router.routes( "fpm" ), Lines{ "192.0.2.0/24 forward 10.0.2.2%Ethernet2 (fpm)" } );
   EXPECT_TRUE( router.fpm.refusals().empty() );
}

TEST( HostFpm, aNextHopThatTheKernelCallsDeadCarriesNothing ) {
   Fpm router;
   const auto route = [ & ]( U8 first, U8 second ) {
      return router.take(
           Frame().multipath( "192.0.2.0/24", { { "10.0.1.2", 1, first }, { "10.0.2.2", 2, second } } ) );
   };
   EXPECT_EQ( route( RTNH_F_LINKDOWN, RTNH_F_DEAD | RTNH_F_LINKDOWN ), "" );
   EXPECT_EQ( router.routes( "fpm" ), Lines{ "192.0.2.0/24 forward 10.0.1.2%Ethernet1 (fpm)" } );
   EXPECT_EQ( route( RTNH_F_DEAD, RTNH_F_DEAD ), "" );
   EXPECT_EQ( router.routes( "fpm" ), Lines{} );
   ASSERT_EQ( router.fpm.refusals().size(), 1u );
   EXPECT_EQ( router.fpm.refusals()[ 0 ].reason, "next hops over devices that are down" );
}

TEST( HostFpm, whatIsAboutNoRouteOfTheRoutersChangesNone ) {
   Fpm router;
   const auto take = [ & ]( U16 type, size_t at, char byte ) {
      auto bytes = Frame().route( type, "192.0.2.0/24", 0, RTN_BLACKHOLE ).bytes();
      bytes[ at ] = byte;
      return router.take( bytes );
   };
   EXPECT_EQ( take( RTM_NEWROUTE, 0, 1 ), "" );
   // given a label-switched path, and a route of a source prefix
   for ( const auto & [ at, byte ] : { std::pair( 4 + 16, AF_MPLS ), std::pair( 4 + 16 + 2, 8 ) } )
      for ( const auto type : { RTM_NEWROUTE, RTM_DELROUTE } ) {
         EXPECT_EQ( take( type, at, char( byte ) ), "" );
         EXPECT_EQ( router.routes( "fpm" ), Lines{ "192.0.2.0/24 drop (fpm)" } ) << at << ' ' << type;
      }
   EXPECT_EQ( take( RTM_NEWROUTE, 4 + 16 + 2, 8 ), "" );
   EXPECT_EQ( router.take( Frame().route( RTM_DELROUTE, "192.0.2.0/24", 0, 0 ) ), "" );
   router.fpm.review();
   EXPECT_EQ( router.routes( "fpm" ), Lines{} );
   EXPECT_EQ( take( RTM_NEWROUTE, 0, 1 ), "" );
   // given the kernel's own in its place
   EXPECT_EQ( router.take( Frame()
                                .route( RTM_DELROUTE, "192.0.2.0/24", 0, 0 )
                                .route( RTM_NEWROUTE, "192.0.2.0/24", 0, RTN_BLACKHOLE, RTPROT_KERNEL ) ),
              "" );
   EXPECT_EQ( router.routes( "fpm" ), Lines{} );
}

TEST( HostFpm, whatIsToldFollowsAnInterfaceToAnotherVrf ) {
   Fpm router;
   EXPECT_EQ( router.take( Frame().nextHop( 2, "10.0.2.2", 2 ).route( RTM_NEWROUTE, "192.0.2.0/24", 2 ) ), "" );
   auto ofTable = Frame().route( RTM_NEWROUTE, "192.0.3.0/24", 2 ).bytes();
   ofTable[ 4 + 16 + 4 ] = 100;
   // when the table's VRF is another one the second time
   for ( const char * const id : { "7", "8" } ) {
      router.change( "add vrf {name: red, id: "s + id + "}" );
      router.change( "replace interface {name: Ethernet2, addresses: 10.0.2.1/24, vrf: red}" );
      router.fpm.review();
      EXPECT_EQ( router.take( ofTable ), "" );
      const Lines moved = { "192.0.2.0/24 forward 10.0.2.2%Ethernet2 (fpm)",
                            "red 192.0.3.0/24 forward 10.0.2.2%Ethernet2 (fpm)" };
      EXPECT_EQ( router.routes( "fpm" ), moved ) << id;
      router.change( "replace interface {name: Ethernet2, addresses: 10.0.2.1/24}" );
      router.change( "del vrf {name: red}" );
   }
   router.fpm.review();
   EXPECT_EQ( router.routes( "fpm" ), Lines{ "192.0.2.0/24 forward 10.0.2.2%Ethernet2 (fpm)" } );
}

TEST( HostFpm, malformedBytesEndTheConnectionWithTheReasonAndLoseNothing ) {
   const std::string whole = Frame().route( RTM_NEWROUTE, "192.0.2.0/24", 0, RTN_BLACKHOLE ).bytes();
   const auto changed = [ & ]( size_t at, char byte ) {
      auto bytes = whole;
      bytes[ at ] = byte;
      return bytes;
   };
   const struct {
      std::string bytes;
      const char * reason;
   } cases[] = {
        { changed( 0, 2 ), "a frame of version 2, not 1" },
        { changed( 1, 2 ), "a frame of type 2, not netlink: FRR needs -M dplane_fpm_nl" },
        { changed( 3, 3 ), "a frame of 3 bytes" },
        { changed( 4, 100 ), "a netlink message of 100 bytes in the 44 that are left of its frame" },
        { changed( 4 + 16 + 12, 99 ), "a route message whose attributes do not fit" },
        { changed( 4 + 16 + 1, 33 ), "a prefix longer than an address" },
   };
   for ( const auto & [ bytes, reason ] : cases ) {
      Fpm router;
      EXPECT_EQ( router.take( Frame().route( RTM_NEWROUTE, "198.51.100.0/24", 0, RTN_BLACKHOLE ) ), "" );
      EXPECT_EQ( router.take( bytes ), reason );
      EXPECT_EQ( router.routes( "fpm" ), Lines{ "198.51.100.0/24 drop (fpm)" } );
   }
}

} // namespace
