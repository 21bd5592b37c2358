// The daemon as its supervisor and its user see it: exit codes, what it says, and what becomes of its data plane.
#include "DaemonProcess.h"

namespace {

using namespace Test;

TEST_F( Vexl3d, checksItsSourcesAndSaysWhatIsWrong ) {
   write( "wrong.yaml", "interfaces: [{name: Ethernet1, mtu: 1}]\nroute-file: {path: lines}\n" );
   write( "lines", "10.0.0.1/8\n" );
   const struct {
      Words arguments;
      int code;
      std::string message;
   } cases[] = {
        { { "--check-config", "--config", path( "router.yaml" ) }, 0, "" },
        { { "--check-config", "--config", EXAMPLES "/router.yaml" }, 0, "" },
        { { "--check-config", "--config", EXAMPLES "/filters.yaml" }, 0, "" },
        { { "--check-config", "--config", path( "wrong.yaml" ) },
          1,
          "wrong.yaml:1: interface Ethernet1: MTU 1 is under 68" },
        { { "--check-config", "--config", path( "wrong.yaml" ) }, 1, "lines:1: 10.0.0.1/8: the prefix has host bits" },
        { { "--check-config", "--config", path( "none.yaml" ) }, 1, "none.yaml: No such file or directory" },
        { { "--config", path( "none.yaml" ) }, 1, "none.yaml: No such file or directory" },
        { { "--dataplane", "nowhere" }, 2, "is not embedded, unix:PATH or HOST:PORT" },
        { { "--log", "VexL3Sm=10" }, 2, "is not a number from 0 to 9" },
        { { "--loud" }, 2, "--loud" },
        { { "--version" }, 0, "vexl3d " },
        { { "--help" }, 0, "--check-config" },
   };
   for ( const auto & given : cases ) {
      Process process( VEXL3D_PROGRAM, given.arguments, runtime() );
      const auto output = process.all();
      EXPECT_EQ( process.wait(), given.code ) << output;
      EXPECT_NE( output.find( given.message ), std::string::npos ) << output;
   }
}

TEST_F( Vexl3d, endsOnASignalWithItsDataPlaneAndLeavesNothing ) {
   for ( const int number : { SIGTERM, SIGINT } ) {
      Process daemon( VEXL3D_PROGRAM, arguments( {} ), runtime() );
      ASSERT_TRUE( daemon.says( fed ) );
      daemon.signal( number );
      // The pipe ends with the last of those who hold it.
      daemon.all();
      EXPECT_EQ( daemon.wait(), 0 );
      EXPECT_TRUE( std::filesystem::is_empty( runtime() ) );
   }
}

TEST_F( Vexl3d, goesOnAfterTheLossOfAnEmbeddedDataPlane ) {
   Process daemon( VEXL3D_PROGRAM, arguments( {} ), runtime() );
   for ( int round = 0; round < 3; ++round ) {
      ASSERT_TRUE( daemon.says( fed ) );
      std::ifstream children( "/proc/" + std::to_string( daemon.pid() ) + "/task/" + std::to_string( daemon.pid() ) +
                              "/children" );
      pid_t child = 0;
      ASSERT_TRUE( children >> child );
      kill( child, SIGKILL );
      ASSERT_TRUE( daemon.says( "no data plane: the data plane was ended by signal 9" ) );
   }
   ASSERT_TRUE( daemon.says( fed ) );
}

TEST_F( Vexl3d, feedsWhateverDataPlaneComesAndAppliesReloads ) {
   const auto address = "unix:" + path( "dataplane.sock" );
   constexpr std::uint32_t described = 0xc0000201, reloaded = 0xcb007101;
   Process daemon( VEXL3D_PROGRAM, arguments( { "--dataplane", address } ), runtime() );
   ASSERT_TRUE( daemon.says( "no data plane: " ) );
   {
      Process dataPlane( VEXDP_PROGRAM, { "--listen", address } );
      ASSERT_TRUE( daemon.says( fed ) );
      EXPECT_EQ( nextHops( address, described ), 2 );
      EXPECT_EQ( nextHops( address, reloaded ), -1 );
   }
   ASSERT_TRUE( daemon.says( "no data plane: " ) );
   // Changes while there is none reach the next one.
   write( "router.yaml", "interfaces:\n  - {name: Ethernet1, addresses: 10.0.1.1/24}\n"
                         "routes:\n  - {prefix: 203.0.113.0/24, via: 10.0.1.2}\n" );
   daemon.signal( SIGHUP );
   ASSERT_TRUE( daemon.says( "reloaded" ) );
   Process dataPlane( VEXDP_PROGRAM, { "--listen", address } );
   ASSERT_TRUE( daemon.says( fed ) );
   EXPECT_EQ( nextHops( address, described ), -1 );
   EXPECT_EQ( nextHops( address, reloaded ), 1 );
   daemon.signal( SIGTERM );
   EXPECT_EQ( daemon.wait(), 0 );
}

TEST_F( Vexl3d, oneDaemonOwnsADataPlaneAndTheOthersStandBy ) {
   const auto address = "unix:" + path( "dataplane.sock" );
   Process dataPlane( VEXDP_PROGRAM, { "--listen", address } );
   const auto started = [ & ]( const std::string & socket, Words more ) {
      more.insert( more.end(),
                   { "--config", path( "router.yaml" ), "--socket", path( socket ), "--dataplane", address } );
      return std::make_unique< Process >( VEXL3D_PROGRAM, more, runtime() );
   };
   const auto belongsTo = []( const Process & owner ) {
      return "process " + std::to_string( owner.pid() ) + " since 2";
   };
   const auto first = started( "first", {} );
   ASSERT_TRUE( first->says( fed ) );
   const auto second = started( "second", {} );
   ASSERT_TRUE( second->says( "standing by: the data plane belongs to vexl3d on " ) );
   ASSERT_TRUE( second->says( belongsTo( *first ) ) );
   auto third = started( "third", { "--takeover" } );
   ASSERT_TRUE( third->says( fed ) );
   ASSERT_TRUE( second->says( belongsTo( *third ) ) );
   ASSERT_TRUE( first->says( "taken over by vexl3d on " ) );
   ASSERT_TRUE( first->says( belongsTo( *third ) ) );
   third.reset();
   ASSERT_TRUE( second->says( fed ) );
   ASSERT_TRUE( first->says( belongsTo( *second ) ) );
}

TEST_F( Vexl3d, anOverfullDataPlaneIsNamedByEveryShowAndByExitCodes ) {
   std::string lines;
   for ( int n = 0; n < 20; ++n ) lines += "20.0." + std::to_string( n ) + ".0/24 10.0.1.2\n";
   write( "routes", lines );
   Process daemon( VEXL3D_PROGRAM, arguments( { "--max-routes", "20", "--routes", path( "routes" ) } ), runtime() );
   ASSERT_TRUE( daemon.says( fed ) );
   // 7 of the interfaces and the description and 10 of the file beside the 3 that every VRF has; 10 have no room.
   std::map< std::string, int > states, reasons;
   for ( const auto & row : rows( { "show", "routes" } ) ) {
      ++states[ row[ "state" ] ];
      const std::string reason = row.value( "reason", "" );
      ++reasons[ reason.substr( std::min( reason.size(), reason.rfind( ", " ) ) ) ];
   }
   EXPECT_EQ( states, ( std::map< std::string, int >{ { "programmed", 17 }, { "refused", 10 } } ) );
   EXPECT_EQ( reasons, ( std::map< std::string, int >{ { "", 17 }, { ", the table is full with 20 routes", 10 } } ) );
   const auto summary = vexctl( { "show", "summary" } )[ "result" ];
   EXPECT_EQ( summary[ "routesProgrammed" ], 17 );
   EXPECT_EQ( summary[ "routesRefused" ][ "ipv4" ], 10 );
   const auto table = rows( { "show", "capacity" } )[ 0 ];
   EXPECT_EQ( table.dump(), R"({"chip":"","committed":30,"counted":true,"feature":"ipv4","free":0,"max":20,)"
                            R"("table":"Route","used":20})" );
   const auto different = vexctl( { "verify" } );
   EXPECT_EQ( different[ "exitCode" ], 1 );
   EXPECT_EQ( different[ "differences" ], 10 );
   // Room for ten, and for one more.
   for ( int n = 0; n < 11; ++n )
      EXPECT_EQ( vexctl( { "route", "del", "20.0." + std::to_string( n ) + ".0/24" } )[ "exitCode" ], 0 );
   EXPECT_EQ( vexctl( { "verify" } )[ "exitCode" ], 0 );
   EXPECT_EQ( vexctl( { "show", "summary" } )[ "result" ][ "routesProgrammed" ], 16 );
}

TEST_F( Vexl3d, triesAgainWhenItsDataPlaneDoesNotStart ) {
   Process daemon( VEXL3D_PROGRAM, arguments( { "--dataplane-program", path( "none" ) } ), runtime() );
   EXPECT_TRUE( daemon.says( "no data plane: " + path( "none" ) + ": No such file or directory" ) );
   daemon.signal( SIGTERM );
   EXPECT_EQ( daemon.wait(), 0 );
}

} // namespace
