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

TEST_F( Vexl3d, leavesTheSocketToTheDaemonThatHasIt ) {
   Process daemon( VEXL3D_PROGRAM, arguments( {} ), runtime() );
   ASSERT_TRUE( daemon.says( fed ) );
   EXPECT_EQ( std::filesystem::status( path( "vexl3d.sock" ) ).permissions(), std::filesystem::perms( 0660 ) );
   Process second( VEXL3D_PROGRAM, arguments( {} ), runtime() );
   EXPECT_TRUE( second.says( "another daemon has this socket" ) );
   EXPECT_EQ( second.wait(), 1 );
   daemon.signal( SIGTERM );
   EXPECT_EQ( daemon.wait(), 0 );
}

TEST_F( Vexl3d, saysThatTheRouterIsEmptyWithoutADescription ) {
   Process daemon( VEXL3D_PROGRAM, { "--socket", path( "vexl3d.sock" ) }, runtime() );
   EXPECT_TRUE( daemon.says( "no --config: the router is empty" ) );
   daemon.signal( SIGTERM );
   EXPECT_EQ( daemon.wait(), 0 );
}

TEST_F( Vexl3d, triesAgainWhenItsDataPlaneDoesNotStart ) {
   Process daemon( VEXL3D_PROGRAM, arguments( { "--dataplane-program", path( "none" ) } ), runtime() );
   EXPECT_TRUE( daemon.says( "no data plane: " + path( "none" ) + ": No such file or directory" ) );
   daemon.signal( SIGTERM );
   EXPECT_EQ( daemon.wait(), 0 );
}

} // namespace
