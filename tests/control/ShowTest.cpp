// The answers of the shows, over a router with a real data plane.

#include "ControlSocket.h"
#include "HostControlServer.h"
#include "TestRouter.h"

#include <fstream>
#include <gtest/gtest.h>
#include <signal.h>

namespace {

using Host::Json;
using Test::via;

class Shows : public testing::Test {
 protected:
   Shows() {
      router_.vrf( "red", 1 );
      router_.intf( "Ethernet1", "10.0.1.1/24" );
      router_.intf( "Ethernet2", "10.0.2.1/24" );
      router_.intf( "Ethernet3", "10.0.3.1/24", "red" );
      router_.neighbor( "Ethernet1", "10.0.1.2", "02:00:00:00:01:02" );
      router_.neighbor( "Ethernet2", "10.0.2.2", "02:00:00:00:02:02" );
      router_.fec( 1, { via( "10.0.1.2", "Ethernet1" ), via( "10.0.2.2", "Ethernet2" ) } );
      router_.fec( 2, { via( "10.0.3.9", "Ethernet3" ) } );
      router_.route( "10.1.0.0/16", 1 );
      router_.route( "10.1.2.0/24", 1 );
      router_.route( "10.9.0.0/16", 77 );
      router_.route( "10.1.0.0/16", 2, 1 );
      router_.settle();
      EXPECT_EQ( server_.open( directory_.path( "control" ) ), "" );
      client_ = std::make_unique< ::Test::ControlSocket >( directory_.path( "control" ) );
   }

   std::vector< Json > ask( const char * request ) { return client_->ask( Json::parse( request ) ); }
   // One member of every row.
   std::string each( const char * request, const char * member ) {
      std::string all;
      for ( const auto & row : ask( request ) )
         if ( row.contains( member ) )
            all += row[ member ].is_string() ? row[ member ].get< std::string >() + " " : row[ member ].dump() + " ";
      return all;
   }
   std::string error( const char * request ) {
      const auto last = ask( request ).back();
      const auto & error = last.contains( "error" ) ? last[ "error" ] : last[ "end" ][ "error" ];
      return error[ "code" ].get< std::string >() + ": " + error[ "message" ].get< std::string >();
   }

   ::Test::Directory directory_;
   ::Test::TestRouter router_;
   Host::ControlServer server_{ router_ };
   std::unique_ptr< ::Test::ControlSocket > client_;
};

TEST_F( Shows, fibListsTheRoutesThatAreInTheDataPlaneInOrder ) {
   const char * const prefixes = "10.1.0.0/16 10.1.2.0/24 224.0.0.0/4 224.0.0.0/24 255.255.255.255/32 ";
   EXPECT_EQ( each( R"({"command":"show fib"})", "prefix" ), prefixes );
   EXPECT_EQ( each( R"({"command":"show fib","vrf":"red"})", "prefix" ),
              "10.1.0.0/16 224.0.0.0/4 224.0.0.0/24 255.255.255.255/32 " );
   EXPECT_EQ( each( R"({"command":"show fib","vrf":"all"})", "vrf" ),
              "default default default default default red red red red " );
}

TEST_F( Shows, fibFindsTheLongestMatchOfAnAddressAndThePrefixItself ) {
   EXPECT_EQ( each( R"({"command":"show fib","match":"10.1.2.3"})", "prefix" ), "10.1.2.0/24 " );
   EXPECT_EQ( each( R"({"command":"show fib","match":"10.1.3.3"})", "prefix" ), "10.1.0.0/16 " );
   EXPECT_EQ( each( R"({"command":"show fib","match":"10.1.0.0/16"})", "prefix" ), "10.1.0.0/16 " );
   EXPECT_EQ( each( R"({"command":"show fib","match":"10.1.2.3","vrf":"all"})", "prefix" ),
              "10.1.2.0/24 10.1.0.0/16 " );
   EXPECT_EQ( error( R"({"command":"show fib","match":"10.9.0.1"})" ),
              "notFound: no route to 10.9.0.1 in VRF default" );
   EXPECT_EQ( error( R"({"command":"show fib","match":"10.1.2.0/23"})" ),
              "notFound: no route to 10.1.2.0/23 in VRF default" );
   EXPECT_EQ( error( R"({"command":"show fib","match":"10.1.2.1/24"})" ), "usage: prefix 10.1.2.1/24 has host bits" );
   EXPECT_EQ( error( R"({"command":"show fib","match":"ten"})" ), "usage: \"ten\" is neither an address nor a prefix" );
   EXPECT_EQ( error( R"({"command":"show fib","vrf":"blue"})" ), "notFound: there is no VRF \"blue\"" );
   EXPECT_EQ( error( R"({"command":"show fib","match":"2001:db8::1"})" ),
              "notFound: the data plane holds no IPv6 routes, so none to 2001:db8::1" );
}

TEST_F( Shows, theDataPlaneItselfGivesTheSameMatchesAndTheAgentsText ) {
   for ( const char * address : { "10.1.2.3", "10.1.3.3", "224.0.0.5", "255.255.255.255" } ) {
      Json request{ { "command", "show fib" }, { "match", address } };
      const auto agent = client_->ask( request ).front();
      request[ "dataplane" ] = true;
      const auto dataPlane = client_->ask( request ).front();
      EXPECT_EQ( agent[ "prefix" ], dataPlane[ "prefix" ] ) << address;
      EXPECT_EQ( agent[ "fec" ], dataPlane[ "fec" ] ) << address;
   }
   EXPECT_EQ( error( R"({"command":"show fib","match":"10.9.0.1","dataplane":true})" ),
              "notFound: the data plane has no route to 10.9.0.1" );
   const auto text = each( R"({"command":"show fib","vrf":"all","dataplane":true})", "agentText" );
   EXPECT_NE( text.find( " 'pModuleFIB0': (  '10.1.0.0/16', ( 'default', " ), text.npos ) << text;
   EXPECT_NE( text.find( " 'pModuleFIB1': (  '10.1.0.0/16', ( 'red', " ), text.npos ) << text;
   const auto rows = ask( R"({"command":"show nexthops","interface":"Et1","dataplane":true})" );
   EXPECT_NE( rows.front()[ "agentText" ].get< std::string >().find( "'02:00:00:00:01:02'" ), text.npos );
   EXPECT_EQ( rows.back()[ "end" ][ "interfaces" ].begin().value(), "Ethernet1" );
}

TEST_F( Shows, whatTheDataPlaneShowsReachesWhoAskedWithoutWhatWentMeanwhile ) {
   const auto text = []( const std::vector< Json > & rows ) { return Json( rows ).dump(); };
   const auto begin = [ this ]( ::Test::ControlSocket & client, const char * intf ) {
      const auto queued = router_.channel()->requestsQueued();
      Json request{ { "command", "show nexthops" }, { "dataplane", true } };
      if ( *intf != 0 ) request[ "interface" ] = intf;
      client.send( request.dump() + "\n" );
      ::Test::runUntil( [ & ] { return router_.channel()->requestsQueued() > queued; } );
   };
   const auto hold = [ this ]( bool held ) {
      const auto pid = router_.status().dataPlanePid;
      held ? ::Test::stop( pid ) : static_cast< void >( kill( pid, SIGCONT ) );
   };
   // an interface goes while another one is asked: it is left out
   hold( true );
   begin( *client_, "" );
   router_.vexcsd()->l3IntfDel( Kynet::IntfId::fromString( "Ethernet3" ).value() );
   hold( false );
   const auto all = client_->answer();
   EXPECT_EQ( all.back()[ "end" ].value( "error", Json() ), Json() );
   EXPECT_EQ( all.back()[ "end" ][ "interfaces" ].size(), 2u );
   hold( true );
   // a client leaves: its answer reaches nobody
   auto other = std::make_unique< ::Test::ControlSocket >( directory_.path( "control" ) );
   begin( *other, "Et1" );
   other = std::make_unique< ::Test::ControlSocket >( directory_.path( "control" ) );
   begin( *other, "Et2" );
   // one is refused: the other one is not
   router_.channel()->destroyModule( 60000, "NextHop_et1" );
   begin( *client_, "Et1" );
   hold( false );
   EXPECT_EQ( text( other->answer() ).find( "02:00:00:00:01:02" ), std::string::npos );
   EXPECT_EQ( text( client_->answer() ).find( R"([{"end":{"rows":0,"error":{"code":"refused","message":"the data)" ),
              0u );
   // the data plane goes: that is what is said
   hold( true );
   begin( *client_, "Et2" );
   router_.lose();
   EXPECT_NE( text( client_->answer() ).find( "there is no data plane at present" ), std::string::npos );
}

TEST_F( Shows, routesSayWhatHasBecomeOfThemAndPendingSaysWhy ) {
   router_.route6( "2001:db8::/32", 1 );
   router_.settle();
   EXPECT_EQ( each( R"({"command":"show routes"})", "prefix" ), "10.1.0.0/16 10.1.2.0/24 10.9.0.0/16 2001:db8::/32 " );
   EXPECT_EQ( each( R"({"command":"show routes"})", "state" ), "programmed programmed pending refused " );
   EXPECT_EQ( each( R"({"command":"show routes"})", "reason" ),
              "FEC 77 does not exist refused: the data plane takes no routes of this family " );
   EXPECT_EQ( each( R"({"command":"show routes","match":"10.9.0.1"})", "state" ), "pending " );
   EXPECT_EQ( each( R"({"command":"show routes","match":"2001:db8::1"})", "state" ), "refused " );
   EXPECT_EQ( each( R"({"command":"show pending"})", "reason" ),
              "neighbour 10.0.3.9 on Ethernet3 is not resolved FEC 77 does not exist refused: the data plane takes no "
              "routes of this family " );
   const auto some = ask( R"({"command":"show pending","most":1})" );
   EXPECT_EQ( some.size(), 2u );
   EXPECT_EQ( some.back()[ "end" ][ "more" ], true );
}

TEST_F( Shows, helpNamesTheMembersOfEachCommandAsTheDocumentationDoes ) {
   std::ifstream file( DOCS "/vexctl.md" );
   const std::string documentation{ std::istreambuf_iterator( file ), {} };
   for ( const auto & row : ask( R"({"command":"help"})" ) ) {
      if ( !row.contains( "members" ) ) continue;
      std::string members;
      for ( const auto & member : row[ "members" ] )
         members += ( members.empty() ? "`" : ", `" ) + member[ "member" ].get< std::string >() + "` (" +
                    ( member[ "required" ] ? "needed: " : "" ) + member[ "value" ].get< std::string >() + ")";
      const auto line =
           "| `" + row[ "command" ].get< std::string >() + "` | " + ( members.empty() ? "none" : members ) + " |\n";
      EXPECT_NE( documentation.find( line ), std::string::npos ) << line;
   }
}

TEST_F( Shows, nexthopsAndAdjacenciesOfFecs ) {
   EXPECT_EQ( each( R"({"command":"show nexthops"})", "command" ), "forward forward arpTrap " );
   EXPECT_EQ( each( R"({"command":"show nexthops","interface":"Ethernet2"})", "mac" ), "02:00:00:00:02:02 " );
   EXPECT_EQ( error( R"({"command":"show nexthops","interface":"Ethernet9"})" ),
              "notFound: there is no interface Ethernet9" );
   EXPECT_EQ( error( R"({"command":"show nexthops","interface":"nine"})" ), "usage: \"nine\" is no interface's name" );
   EXPECT_EQ( each( R"({"command":"show adjacencies"})", "routes" ), "2 1 " );
   EXPECT_EQ( each( R"({"command":"show adjacencies"})", "programmed" ), "true true " );
}

TEST_F( Shows, interfacesTunnelsAndVrfs ) {
   router_.tunnel( "Tunnel7", "10.0.1.1", "10.1.0.7" );
   router_.settle();
   EXPECT_EQ( each( R"({"command":"show interfaces"})", "vrf" ), "default default red default " );
   EXPECT_EQ( each( R"({"command":"show interfaces"})", "kind" ), "ethernet ethernet ethernet gre " );
   EXPECT_EQ( each( R"({"command":"show interfaces","interface":"Et1"})", "addresses" ), "[\"10.0.1.1/24\"] " );
   EXPECT_EQ( error( R"({"command":"show interfaces","interface":"Et8"})" ),
              "notFound: there is no interface Ethernet8" );
   EXPECT_EQ( each( R"({"command":"show tunnels"})", "destination" ), "10.1.0.7 " );
   EXPECT_EQ( each( R"({"command":"show tunnels","tunnel":"Tunnel7"})", "built" ), "true " );
   EXPECT_EQ( each( R"({"command":"show neighbors","interface":"Et1"})", "mac" ), "02:00:00:00:01:02 " );
   EXPECT_EQ( each( R"({"command":"show vrfs"})", "routes" ), "3 1 " );
}

TEST_F( Shows, aRefusalAndTheQueueAreInWords ) {
   EXPECT_EQ( ask( R"({"command":"show errors"})" ).back()[ "end" ][ "refused" ], 0 );
   // given a route that the data plane cannot have, because its VRF is not there
   const auto l3Modules = router_.agent()->l3Modules();
   router_.channel()->disconnectModules( 60000, "nobody", Vex::GateId( 3 ) );
   EXPECT_EQ( each( R"({"command":"show queue"})", "module" ), "nobody " );
   router_.settle();
   EXPECT_EQ( each( R"({"command":"show queue"})", "module" ), "" );
   EXPECT_EQ( each( R"({"command":"show errors"})", "module" ), "nobody " );
   EXPECT_EQ( each( R"({"command":"show errors"})", "action" ), "disconnect " );
   EXPECT_EQ( each( R"({"command":"show errors"})", "errno" ), "ENOENT " );
}

TEST_F( Shows, countersAreReadFromTheTableOfTheDataPlane ) {
   const char * const trace = R"({"command":"trace packet","interface":"Ethernet1","source":"10.0.1.9",
                                  "destination":"99.9.9.9","count":true})";
   EXPECT_EQ( each( R"({"command":"show counters","nonzero":true})", "counter" ), "" );
   EXPECT_EQ( ask( trace ).back()[ "end" ][ "end" ], "dropped" );
   EXPECT_EQ( each( R"({"command":"show counters","nonzero":true})", "counter" ), "No_Route_Pkts " );
   EXPECT_EQ( each( R"({"command":"show counters","module":"fibIpv4"})", "value" ), "1 0 " );
   EXPECT_EQ( error( R"({"command":"show counters","module":"fib"})" ), "notFound: there is no module fib" );
}

TEST_F( Shows, aTracedPacketPrintsItsWayAndItsEnd ) {
   const auto lines = ask( R"({"command":"trace packet","interface":"Et1","source":"10.0.1.9","destination":"10.1.2.3",
                               "protocol":17,"sourcePort":4,"destinationPort":5})" );
   const auto & end = lines.back()[ "end" ];
   EXPECT_EQ( lines.front()[ "module" ], "PortRx_et1" );
   EXPECT_EQ( end[ "end" ], "sent" );
   const bool first = end[ "interface" ] == "Ethernet1";
   EXPECT_EQ( end[ "mac" ], first ? "02:00:00:00:01:02" : "02:00:00:00:02:02" );
   EXPECT_EQ( ask( R"({"command":"trace packet","interface":"Et3","source":"10.0.3.2","destination":"10.1.2.3",
                       "protocol":"tcp","dscp":"ef"})" )
                   .back()[ "end" ][ "reason" ],
              "arpTrap, the neighbour is unknown: next hop 1 is to be punted" );
   EXPECT_EQ( error( R"({"command":"trace packet","interface":"Et9","source":"1.1.1.1","destination":"2.2.2.2"})" ),
              "notFound: there is no interface Ethernet9 in the data plane" );
   EXPECT_EQ( error( R"({"command":"trace packet","interface":"Et1","source":"1.1.1","destination":"2.2.2.2"})" ),
              "usage: \"1.1.1\" is no IPv4 address" );
}

TEST_F( Shows, traceLevelsAreSetAndRead ) {
   ask( R"({"command":"trace level","unit":"VexL3Modules","level":6})" );
   const auto units = ask( R"({"command":"show trace-units"})" );
   const auto unit =
        std::ranges::find_if( units, []( const auto & row ) { return row.value( "unit", "" ) == "VexL3Modules"; } );
   ASSERT_NE( unit, units.end() );
   EXPECT_EQ( ( *unit )[ "level" ], 6 );
   router_.neighbor( "Ethernet3", "10.0.3.9", "02:00:00:00:03:09" );
   EXPECT_NE( each( R"({"command":"show trace","unit":"VexL3Modules","most":20})", "text" ).find( "writeNH" ),
              std::string::npos );
   EXPECT_EQ( error( R"({"command":"trace level","unit":"VexL3Modules","level":10})" ),
              "usage: a trace level is 0 to 9" );
   EXPECT_EQ( error( R"({"command":"trace level","unit":"Nobody","level":1})" ),
              "notFound: there is no trace unit \"Nobody\"" );
}

TEST_F( Shows, summaryCountsAndStatusOutlivesTheDataPlane ) {
   const auto summary = ask( R"({"command":"show summary"})" ).front();
   EXPECT_EQ( summary[ "routesProgrammed" ], 3 );
   EXPECT_EQ( summary[ "routesTold" ][ "ipv4" ], 4 );
   EXPECT_EQ( summary[ "requests" ][ "refused" ], 0 );
   router_.lose();
   EXPECT_EQ( error( R"({"command":"show summary"})" ), "unavailable: there is no data plane at present" );
   EXPECT_EQ( each( R"({"command":"show status"})", "phase" ), "waiting " );
   EXPECT_EQ( each( R"({"command":"show status"})", "restarts" ), "1 " );
}

TEST_F( Shows, aLossEndsAnAnswerThatIsOnItsWay ) {
   // given many more routes than fit into a slice
   for ( U32 n = 0; n < 20000; ++n )
      router_.fib->routeIs( 0, Kynet::Prefix( Kynet::IpAddr( 0x14000000 + ( n << 8 ) ), 24 ),
                            Mirel::Route( Mirel::RouteType::forward(), 1, 0 ) );
   router_.settle();
   client_->send( R"({"command":"show fib"})"
                  "\n" );
   for ( int line = 0; line < 100; ++line ) ASSERT_TRUE( client_->line() );
   router_.lose();
   EXPECT_EQ( client_->answer().back()[ "end" ][ "error" ][ "code" ], "unavailable" );
}

} // namespace
