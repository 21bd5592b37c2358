// The daemon as its supervisor and its user see it: exit codes, what it says, and what becomes of its data plane.
#include "DaemonProcess.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

using namespace Test;

// Its data plane. One that is not there is no process to be killed.
pid_t childOf( const Process & daemon ) {
   const auto pid = std::to_string( daemon.pid() );
   std::ifstream children( "/proc/" + pid + "/task/" + pid + "/children" );
   pid_t child = 0;
   EXPECT_TRUE( children >> child );
   return child != 0 ? child : std::numeric_limits< pid_t >::max();
}

int connected( const std::string & path ) {
   const int client = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 );
   sockaddr_un address{ AF_UNIX, {} };
   path.copy( address.sun_path, sizeof( address.sun_path ) - 1 );
   EXPECT_EQ( connect( client, reinterpret_cast< sockaddr * >( &address ), sizeof( address ) ), 0 );
   return client;
}

TEST_F( Vexl3d, checksItsSourcesAndSaysWhatIsWrong ) {
   write( "wrong.yaml", "interfaces: [{name: Ethernet1, mtu: 1}]\nroute-file: {path: lines}\n" );
   write( "lines", "10.0.0.1/8\n" );
   write( "keys.yaml", "tunnels: [{name: Tunnel1, mode: ipsec, source: 192.0.2.1, destination: 198.51.100.9}]\n"
                       "ipsec: [{name: site, id: 5, interfaces: Tunnel1}]\n" );
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
        { { "--check-config", "--config", path( "keys.yaml" ) }, 0, "" },
        { { "--check-config", "--config", path( "keys.yaml" ), "--dataplane", "localhost:1", "--insecure-tcp" },
          1,
          "ipsec site: no key leaves this machine: the data plane at localhost:1 is reached without TLS" },
        { { "--dataplane", "localhost:1" }, 2, "takes --tls-cert, --tls-key and --tls-ca, or --insecure-tcp" },
        { { "--dataplane", "unix:/x", "--insecure-tcp" }, 2, "--insecure-tcp and TLS are for --dataplane HOST:PORT" },
        { { "--dataplane-timeout", "-1" }, 2, "--dataplane-timeout" },
        { { "--dataplane", "nowhere" }, 2, "is not embedded, unix:PATH or HOST:PORT" },
        { { "--log", "VexL3Sm=10" }, 2, "is not a number from 0 to 9" },
        { { "--metrics", "localhost:9410" }, 2, "\"localhost:9410\" is not ADDRESS:PORT" },
        { { "--metrics", "127.0.0.1:0" }, 2, "is not ADDRESS:PORT" },
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
      kill( childOf( daemon ), SIGKILL );
      ASSERT_TRUE( daemon.says( "no data plane: the data plane was ended by signal 9" ) );
   }
   ASSERT_TRUE( daemon.says( fed ) );
}

// Its socket takes connections all the while.
TEST_F( Vexl3d, replacesAnEmbeddedDataPlaneThatIsStopped ) {
   Process daemon( VEXL3D_PROGRAM, arguments( { "--dataplane-timeout", "0.5" } ), runtime() );
   ASSERT_TRUE( daemon.says( fed ) );
   kill( childOf( daemon ), SIGSTOP );
   ASSERT_TRUE( daemon.says( "no data plane: the data plane has been silent for 0.5 s" ) );
   ASSERT_TRUE( daemon.says( fed ) );
}

TEST_F( Vexl3d, keepsDescriptorsForItselfAndTellsTheClientsThatHaveNone ) {
   const auto words = arguments( {} );
   std::string line = "ulimit -n 64; exec " VEXL3D_PROGRAM;
   for ( const auto & word : words ) line += " " + word;
   Process daemon( "/bin/sh", { "-c", line }, runtime() );
   ASSERT_TRUE( daemon.says( fed ) );
   std::vector< int > clients;
   for ( int client = 0; client < 63; ++client ) clients.push_back( connected( path( "vexl3d.sock" ) ) );
   std::string told;
   EXPECT_TRUE( Process::readInto( clients.front(), told ) );
   EXPECT_NE( told.find( "too many clients" ), told.npos );
   EXPECT_FALSE( Process::readInto( clients.front(), told ) );
   kill( childOf( daemon ), SIGKILL );
   ASSERT_TRUE( daemon.says( "clients are turned away" ) );
   ASSERT_TRUE( daemon.says( fed ) );
   for ( const int client : clients ) close( client );
}

TEST_F( Vexl3d, aDataPlaneThatComesAnewHoldsNoClientsConnectionOpen ) {
   Process daemon( VEXL3D_PROGRAM, arguments( {} ), runtime() );
   ASSERT_TRUE( daemon.says( fed ) );
   const int client = connected( path( "vexl3d.sock" ) );
   kill( childOf( daemon ), SIGKILL );
   ASSERT_TRUE( daemon.says( "no data plane: " ) );
   ASSERT_TRUE( daemon.says( fed ) );
   shutdown( client, SHUT_WR );
   pollfd end{ client, POLLIN, 0 };
   EXPECT_EQ( poll( &end, 1, 30000 ), 1 );
   char byte;
   EXPECT_EQ( recv( client, &byte, 1, MSG_DONTWAIT ), 0 );
   close( client );
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

TEST_F( Vexl3d, reachesADataPlaneOverTcpWhereEachShowsACertificateOfTheOthersAuthority ) {
   // given an authority that has signed for both sides, and another one
   const auto run = [ this ]( const std::string & line ) {
      ASSERT_EQ( std::system( ( "cd " + path( "" ) + " && " + line + " 2>/dev/null" ).c_str() ), 0 ) << line;
   };
   run( "printf subjectAltName=DNS:localhost >names" );
   for ( const std::string name : { "ca", "other" } )
      run( "openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=" + name + " -keyout " + name + ".key -out " + name );
   run( "openssl req -newkey rsa:2048 -nodes -subj /CN=both -keyout key -out request && "
        "openssl x509 -req -in request -CA ca -CAkey ca.key -CAcreateserial -extfile names -out certificate" );
   const auto tls = [ this ]( const std::string & authority ) {
      return Words{ "--tls-cert", path( "certificate" ), "--tls-key", path( "key" ), "--tls-ca", path( authority ) };
   };
   auto listening = tls( "ca" );
   listening.insert( listening.end(), { "--listen", "localhost:0" } );
   Process dataPlane( VEXDP_PROGRAM, listening );
   ASSERT_TRUE( dataPlane.says( "listening on " ) );
   const auto address = dataPlane.rest();
   // then who trusts it and is trusted has it, and nobody else
   const struct {
      Words security;
      const char * says;
   } cases[] = {
        { tls( "ca" ), fed }, { tls( "other" ), "Ssl handshake failed" }, { { "--insecure-tcp" }, "no data plane: " } };
   for ( auto [ words, says ] : cases ) {
      words.insert( words.end(), { "--dataplane", address } );
      Process daemon( VEXL3D_PROGRAM, arguments( words ), runtime() );
      EXPECT_TRUE( daemon.says( says ) );
   }
}

TEST_F( Vexl3d, tellsADataPlaneThatLivesOnEverythingBesideWhatForwards ) {
   const auto address = "unix:" + path( "dataplane.sock" );
   Process dataPlane( VEXDP_PROGRAM, { "--listen", address } );
   const auto words = arguments( { "--dataplane", address, "--fpm", "off" } );
   {
      Process daemon( VEXL3D_PROGRAM, words, runtime() );
      ASSERT_TRUE( daemon.says( fed ) );
      EXPECT_FALSE( vexctl( { "show", "status" } )[ "result" ].contains( "forwarding" ) );
      daemon.signal( SIGKILL );
      daemon.wait();
   }
   EXPECT_EQ( nextHops( address, 0xc0000201 ), 2 ) << "it lives on";
   write( "router.yaml", "interfaces:\n  - {name: Ethernet1, addresses: 10.0.1.1/24}\n" );
   Process daemon( VEXL3D_PROGRAM, words, runtime() );
   ASSERT_TRUE( daemon.says( "in step after " ) );
   EXPECT_EQ( nextHops( address, 0xc0000201 ), -1 );
   EXPECT_EQ( vexctl( { "show", "status" } )[ "result" ][ "forwarding" ], "in step" );
   EXPECT_EQ( rows( { "verify" } ), Json::array() );
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
   // Its own last words are the reason.
   Process other( VEXL3D_PROGRAM, arguments( { "--dataplane-program", "/bin/ls" } ), runtime() );
   EXPECT_TRUE( other.says( "no data plane: the data plane ended with exit code 2: " ) );
   EXPECT_TRUE( other.says( "--help" ) );
}

} // namespace
