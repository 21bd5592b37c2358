// An address is asked about, and the answer tells where its packets go or are lost, over a real data plane.
#include "HostMeters.h"
#include "SessionRouter.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;
using Host::ChangeOp;

TEST( HostWhy, saysWhereTheFateOfAnAddressIsDecided ) {
   SessionRouter router;
   for ( const auto & [ kind, entry ] : std::initializer_list< std::pair< const char *, const char * > >{
              { "vrf", "{name: red, id: 7}" },
              { "interface", "{name: Ethernet1, addresses: 10.0.1.1/24}" },
              { "interface", "{name: Ethernet2, addresses: 10.0.2.1/24, enabled: false}" },
              { "interface", "{name: Ethernet3, addresses: 10.0.3.1/24, vrf: red}" },
              { "tunnel", "{name: Tunnel1, addresses: 10.255.0.1/30, source: 10.0.1.1, destination: 10.0.1.9}" },
              { "neighbor", "{interface: Ethernet1, address: 10.0.1.2, mac: '02:00:00:00:01:02'}" },
              { "route", "{prefix: 20.1.0.0/16, via: 10.0.1.2}" },
              { "route", "{prefix: 20.2.0.0/16, via: [10.0.1.2, 10.0.1.3]}" },
              { "route", "{prefix: 20.3.0.0/16, via: 10.0.2.2}" },
              { "route", "{prefix: 20.4.0.0/16, blackhole: true}" },
              { "route", "{prefix: 20.5.0.0/16, via: Tunnel1}" },
              { "route", "{prefix: 20.6.0.0/16, via: 99.9.9.9}" } } )
      EXPECT_EQ( router.change( ChangeOp::replace, kind, entry ).code, Host::ChangeResult::Code::done ) << entry;
   router.settle();
   const auto why = [ & ]( const char * address, const char * vrf ) {
      return router.ask( { { "command", "why" }, { "address", address }, { "vrf", vrf } } ).rows.at( 0 );
   };
   const struct {
      const char * address;
      const char * fate;
      std::string lost;
      const char * vrf = "default";
   } cases[] = {
        { "20.1.2.3", "forwarded", "" },
        { "20.2.2.3", "partlyLost", "next hop 10.0.1.3: neighbour 10.0.1.3 on Ethernet1 is not resolved" },
        { "20.3.2.3", "lost", "next hop 10.0.2.2: interface Ethernet2 is disabled" },
        { "20.4.2.3", "lost", "route: a blackhole" },
        { "20.5.2.3", "lost",
          "interface Tunnel1: on the way to the tunnel's end 10.0.1.9: neighbour 10.0.1.9 on Ethernet1 is not "
          "resolved" },
        { "20.6.2.3", "lost", "next hop 99.9.9.9: no interface reaches next hop 99.9.9.9" },
        { "10.0.1.1", "local", "" },
        { "10.0.1.7", "lost", "interface Ethernet1: neighbour 10.0.1.7 on Ethernet1 is not resolved" },
        { "224.0.0.5", "local", "" },
        { "20.1.2.3", "lost", "VRF red: no route to 20.1.2.3", "red" },
        { "2001:db8::1", "kernel", "" },
   };
   for ( const auto & given : cases ) {
      const auto row = why( given.address, given.vrf );
      std::string lost;
      for ( const auto & at : row[ "lost" ] )
         lost += at[ "where" ].get< std::string >() + ": " + at[ "why" ].get< std::string >();
      EXPECT_EQ( row[ "fate" ], given.fate ) << row.dump( 1 );
      EXPECT_EQ( lost, given.lost );
      EXPECT_EQ( row.value( "state", "programmed" ) != "programmed" ||
                      row.value( "dataPlane", Json::object() ).value( "agrees", true ),
                 true )
           << row.dump( 1 );
   }
   EXPECT_EQ( why( "20.1.2.3", "default" )[ "offers" ].dump(),
              R"([{"source":"a command","inUse":true,"type":"forward","via":[{"address":"10.0.1.2"}]}])" );
}

TEST( HostMeters, eachRequestIsMeasuredFromItsTurnToItsAcknowledgement ) {
   Host::Convergence convergence;
   convergence.turn( 1, 1.5, 10, 0 );
   convergence.turn( 2, 2.5, 14, 0 );
   EXPECT_FALSE( convergence.acknowledgedBy( 1 ) );
   convergence.turn( 3, 4, 14, 12 );
   EXPECT_EQ( convergence.times().count(), 12u );
   EXPECT_EQ( convergence.times().sum(), 10 * 3 + 2 * 2 );
   EXPECT_EQ( convergence.acknowledgedBy( 12 ), 4 );
   EXPECT_FALSE( convergence.acknowledgedBy( 13 ) );
   // a flood, of which the beginning is not forgotten
   for ( U32 turn = 0; turn < 10000; ++turn ) convergence.turn( 10 + turn, 11 + turn, 20 + turn, 20 + turn );
   EXPECT_NEAR( convergence.acknowledgedBy( 1 ).value(), 11, 4096 );
   EXPECT_EQ( convergence.acknowledgedBy( 20 + 9999 ), 11 + 9999 );
   convergence.sessionEnded();
   EXPECT_FALSE( convergence.acknowledgedBy( 1 ) );
}

TEST( HostMeters, theLongestTurnIsKeptAndOfLateForgotten ) {
   Host::LoopMeter loop;
   loop.turn( 100, 100.25 );
   loop.turn( 101, 101.002 );
   EXPECT_EQ( loop.longest(), 0.25 );
   EXPECT_EQ( loop.longestAt(), 100.25 );
   EXPECT_EQ( loop.longestOfLate( 110 ), 0.25 );
   loop.turn( 300, 300.001 );
   EXPECT_NEAR( loop.longestOfLate( 301 ), 0.001, 1e-9 );
   EXPECT_EQ( loop.turns().counts()[ 10 ], 1u );
}

} // namespace
