// vexctl as a person or a script meets it: what it prints, where, and how it ends.

#include "ControlSocket.h"
#include "HostControlServer.h"
#include "TestRouter.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Host::Json;
using Test::via;

struct Result {
   int exitCode = -1;
   std::string out, error;
};

class Vexctl : public testing::Test {
 protected:
   Vexctl() {
      router_.intf( "Ethernet1", "10.0.1.1/24" );
      router_.neighbor( "Ethernet1", "10.0.1.2", "02:00:00:00:01:02" );
      router_.fec( 1, { via( "10.0.1.2", "Ethernet1" ) } );
      router_.route( "10.1.0.0/16", 1 );
      router_.settle();
      EXPECT_EQ( server_.open( socket_ ), "" );
   }

   // Runs it, and the loop meanwhile. Once it has written something it gets the signal.
   Result run( std::vector< const char * > words, int signal = 0 ) {
      words.insert( words.begin(), { VEXCTL_PROGRAM, "--socket", socket_.c_str() } );
      words.push_back( nullptr );
      int out[ 2 ], error[ 2 ];
      EXPECT_TRUE( pipe2( out, O_CLOEXEC ) == 0 && pipe2( error, O_CLOEXEC ) == 0 );
      const auto pid = fork();
      if ( pid == 0 ) {
         dup2( out[ 1 ], STDOUT_FILENO );
         dup2( error[ 1 ], STDERR_FILENO );
         execv( VEXCTL_PROGRAM, const_cast< char ** >( words.data() ) );
         _exit( 127 );
      }
      close( out[ 1 ] );
      close( error[ 1 ] );
      Result result;
      bool outOpen = true, errorOpen = true;
      ::Test::runUntil( [ & ] {
         outOpen = outOpen && take( out[ 0 ], result.out );
         errorOpen = errorOpen && take( error[ 0 ], result.error );
         if ( signal != 0 && !result.out.empty() ) kill( pid, std::exchange( signal, 0 ) );
         return !outOpen && !errorOpen;
      } );
      int status = 0;
      waitpid( pid, &status, 0 );
      result.exitCode = WIFSIGNALED( status ) ? 128 + WTERMSIG( status ) : WEXITSTATUS( status );
      close( out[ 0 ] );
      close( error[ 0 ] );
      return result;
   }
   // False at the end.
   static bool take( int fd, std::string & text ) {
      char buffer[ 4096 ];
      fcntl( fd, F_SETFL, O_NONBLOCK );
      const auto n = read( fd, buffer, sizeof( buffer ) );
      if ( n > 0 ) text.append( buffer, static_cast< size_t >( n ) );
      return n != 0;
   }

   ::Test::Directory directory_;
   const std::string socket_ = directory_.path( "control" );
   ::Test::TestRouter router_;
   Host::ControlServer server_{ router_ };
};

TEST_F( Vexctl, printsATableForPeople ) {
   const auto result = run( { "show", "fib", "vrf", "default", "10.1.0.9" } );
   EXPECT_EQ( result.exitCode, 0 );
   EXPECT_EQ( result.error, "" );
   EXPECT_EQ( result.out,
              "VRF      Prefix       FEC  Next hops                                              State\n"
              "default  10.1.0.0/16    3  Ethernet1 forward 02:00:00:00:01:02 (gate 2, index 1)  programmed\n" );
}

TEST_F( Vexctl, everyShowGivesOneJsonDocumentAndATable ) {
   for ( const char * show :
         { "fib",       "routes",  "nexthops", "adjacencies", "pending",      "interfaces",   "tunnels",
           "neighbors", "vrfs",    "modules",  "graph",       "counters",     "capabilities", "capacity",
           "walks",     "vlans",   "nat",      "vrrp",        "summary",      "status",       "version",
           "errors",    "queue",   "trace",    "trace-units", "access-lists", "policy-map",   "control-plane",
           "ports",     "sources", "gates" } ) {
      const auto json = run( { "show", show, "--json" } );
      EXPECT_EQ( json.exitCode, 0 ) << show << json.error;
      const auto document = Json::parse( json.out, nullptr, false );
      ASSERT_TRUE( document.is_object() ) << show << ": " << json.out;
      EXPECT_TRUE( document.contains( "rows" ) || document.contains( "result" ) ) << show;
      const auto table = run( { "show", show } );
      EXPECT_EQ( table.exitCode, 0 ) << show << table.error;
      EXPECT_NE( table.out, "" ) << show;
   }
}

TEST_F( Vexctl, anErrorIsADocumentAMessageAndAnExitCode ) {
   const struct {
      std::vector< const char * > words;
      int exitCode;
      const char * code;
      const char * message;
   } cases[] = { { { "show", "fib", "10.9.9.9" }, 3, "notFound", "no route to 10.9.9.9 in VRF default" },
                 { { "show", "fib", "vrf", "blue" }, 3, "notFound", "there is no VRF \"blue\"" },
                 { { "show", "fib", "ten" }, 2, "usage", "\"ten\" is neither an address nor a prefix" },
                 { { "show", "fib", "vrf" }, 2, "usage", "vrf is followed by NAME|all" },
                 { { "show", "vrfs", "now" }, 2, "usage", "" },
                 { { "show", "fbi" }, 2, "usage", "A subcommand is required: \"fbi\", did you mean \"fib\"?" },
                 { { "show", "queue", "--most", "-1" }, 2, "usage", "--most: -1 is no number from 0" },
                 { { "show", "tunnels", "Tunnel9" }, 3, "notFound", "there is no tunnel Tunnel9" },
                 { { "show", "policy-map", "edge" }, 3, "notFound", "there is no policy-map \"edge\"" },
                 { { "trace", "packet", "--in", "Et1", "--src", "10.0.1.9", "--dst", "10.1.0.1", "--ttl", "256" },
                   2,
                   "usage",
                   "ttl 256 is over 255" },
                 { { "trace", "packet", "--in", "Et1", "--src", "10.0.1.9", "--dst", "10.1.0.1", "--dscp", "best" },
                   2,
                   "usage",
                   "dscp \"best\" is neither a name nor a number from 0 to 63" },
                 { { "vrf", "add", "wrong" }, 2, "usage", "vrf: \"wrong\"" },
                 { { "tunnel", "add", "Tunnel1", "sorce", "10.0.0.1" },
                   2,
                   "usage",
                   "\"sorce\" is not expected here, did you mean \"source\"?" },
                 { { "vrf", "add", "taken" }, 1, "refused", "VRF \"taken\" is there already" },
                 { { "vrf", "del", "unknown" }, 3, "notFound", "there is no VRF \"unknown\"" },
                 { { "vrf", "add", "blue", "id", "many" }, 2, "usage", "id: \"many\" is no number" },
                 { { "--socket", "/nowhere", "show", "vrfs" },
                   4,
                   "noDaemon",
                   "no daemon at /nowhere: No such file or directory" } };
   for ( const auto & [ words, exitCode, code, message ] : cases ) {
      const auto text = run( words );
      EXPECT_EQ( text.exitCode, exitCode ) << text.error;
      EXPECT_EQ( text.out, "" );
      EXPECT_EQ( text.error.find( std::string( "vexctl: " ) + message ), 0u ) << text.error;
      auto withJson = words;
      withJson.push_back( "--json" );
      const auto json = run( withJson );
      EXPECT_EQ( json.exitCode, exitCode );
      const auto document = Json::parse( json.out, nullptr, false );
      ASSERT_TRUE( document.is_object() ) << json.out << json.error;
      EXPECT_EQ( document[ "error" ][ "code" ], code );
      EXPECT_EQ( document[ "rows" ], Json::array() );
   }
}

TEST_F( Vexctl, changesGoToTheRouterInTheDescriptionsWords ) {
   const std::pair< std::vector< const char * >, const char * > changes[] = {
        { { "route", "add", "10.2.0.0/16", "vrf", "red", "via", "10.0.1.2", "dev", "Ethernet1", "weight", "3", "via",
            "10.0.1.3" },
          R"(0 route {"prefix":"10.2.0.0/16","vrf":"red","via":[{"nexthop":"10.0.1.2","interface":"Ethernet1","weight":3},{"nexthop":"10.0.1.3"}]})" },
        { { "route", "replace", "10.2.0.0/16", "blackhole" }, R"(1 route {"prefix":"10.2.0.0/16","blackhole":true})" },
        { { "route", "add", "10.2.0.0/16", "dev", "Tunnel1" },
          R"(0 route {"prefix":"10.2.0.0/16","via":[{"interface":"Tunnel1"}]})" },
        { { "route", "del", "10.2.0.0/16", "vrf", "red" }, R"(2 route {"prefix":"10.2.0.0/16","vrf":"red"})" },
        { { "neighbor", "add", "Ethernet1", "10.0.1.3", "02:00:00:00:01:03" },
          R"(0 neighbor {"interface":"Ethernet1","address":"10.0.1.3","mac":"02:00:00:00:01:03"})" },
        { { "interface", "replace", "Ethernet2", "vrf", "red", "address", "10.0.2.1/24", "address", "10.0.3.1/24",
            "mtu", "9000", "disabled" },
          R"(1 interface {"name":"Ethernet2","vrf":"red","addresses":["10.0.2.1/24","10.0.3.1/24"],"mtu":9000,"enabled":false})" },
        { { "tunnel", "add", "Tunnel1", "source", "10.0.1.1", "destination", "10.9.9.9", "key", "5" },
          R"(0 tunnel {"name":"Tunnel1","source":"10.0.1.1","destination":"10.9.9.9","key":5})" },
        { { "interface", "add", "Ethernet3", "access-group", "web", "in", "access-group", "open", "out",
            "service-policy", "input", "edge" },
          R"(0 interface {"name":"Ethernet3","access-group":{"in":"web","out":"open"},"service-policy":{"input":"edge"}})" },
        { { "access-list", "add", "web", "10 permit ip any any", "remark all of it" },
          R"(0 access-list {"name":"web","rules":["10 permit ip any any","remark all of it"]})" },
        { { "class-map", "replace", "voice", "match", "access-list", "web", "open" },
          R"(1 class-map {"name":"voice","match":{"access-list":["web","open"]}})" },
        { { "policy-map", "add", "edge", "class", "voice", "set", "dscp", "ef", "set", "traffic-class", "5", "class",
            "class-default" },
          R"(0 policy-map {"name":"edge","classes":[{"class":"voice","set":{"dscp":"ef","traffic-class":"5"}},{"class":"class-default"}]})" },
        { { "access-list", "del", "web" }, R"(2 access-list {"name":"web"})" },
        { { "vrf", "add", "blue", "netns", "b1" }, R"(0 vrf {"name":"blue","netns":"b1"})" },
        { { "interface", "add", "Ethernet3", "device", "veth3", "driver", "af_xdp", "no-kernel" },
          R"(0 interface {"name":"Ethernet3","device":"veth3","driver":"af_xdp","kernel":false})" },
        { { "vlan", "add", "10", "member", "Ethernet1", "member", "Cpu" },
          R"(0 vlan {"id":10,"members":["Ethernet1","Cpu"]})" },
        { { "virtual-mac", "del", "Ethernet1", "00:00:5e:00:01:07" },
          R"(2 virtual-mac {"interface":"Ethernet1","mac":"00:00:5e:00:01:07"})" },
        { { "entry", "add", "vlan", "{id: 7}" }, "0 vlan {id: 7}" } };
   for ( const auto & [ words, asked ] : changes ) {
      router_.changes.clear();
      const auto result = run( words );
      EXPECT_EQ( result.exitCode, 0 ) << result.error;
      EXPECT_EQ( result.out, "" );
      EXPECT_EQ( router_.changes, std::string( asked ) + "\n" );
   }
}

TEST_F( Vexctl, verifyEndsWithOneWhenThereAreDifferences ) {
   const auto clean = run( { "verify" } );
   EXPECT_EQ( clean.exitCode, 0 ) << clean.error << clean.out;
   EXPECT_EQ( clean.out.find( "No differences: " ), 0u ) << clean.out;
   router_.channel()->destroyModule( 60000, "IpInput_et1" );
   router_.settle();
   const auto damaged = run( { "verify" } );
   EXPECT_EQ( damaged.exitCode, 1 );
   EXPECT_NE( damaged.out.find( "missing     IpInput_et1" ), std::string::npos ) << damaged.out;
}

TEST_F( Vexctl, monitorWritesALineOrAScreenEachUntilItIsInterrupted ) {
   for ( const std::string what : { "ports", "modules", "drops" } ) {
      const auto result = run( { "monitor", what.c_str(), "--count", "2", "--every", "0.1", "--json" } );
      EXPECT_EQ( result.exitCode, 0 ) << result.error;
      std::istringstream lines( result.out );
      std::string first, second, third;
      EXPECT_TRUE( std::getline( lines, first ) && std::getline( lines, second ) && !std::getline( lines, third ) );
      const auto line = Json::parse( second, nullptr, false );
      ASSERT_TRUE( line.is_object() ) << second;
      EXPECT_EQ( line[ "monitor" ], what );
      EXPECT_EQ( line[ "rows" ].empty(), what != "modules" ) << second;
   }
   const auto screens = run( { "monitor", "modules", "--every", "0.1" }, SIGINT );
   EXPECT_EQ( screens.exitCode, 0 ) << screens.error;
   EXPECT_NE( screens.out.find( "IpInput_et1" ), std::string::npos ) << screens.out;
   EXPECT_EQ( run( { "--socket", "/nowhere", "monitor" } ).exitCode, 4 );
}

TEST_F( Vexctl, drawsAPacketsWayAndTheGraph ) {
   const auto packet = run( { "trace", "packet", "--in", "Et1", "--src", "10.0.1.9", "--dst", "10.1.0.1" } );
   EXPECT_EQ( packet.exitCode, 0 ) << packet.error;
   EXPECT_EQ( packet.out.find( "  1  PortRx_et1" ), 0u ) << packet.out;
   EXPECT_NE( packet.out.find( "\nSent out of Ethernet1 to 02:00:00:00:01:02, 34 bytes\n" ), std::string::npos )
        << packet.out;
   const auto dot = run( { "show", "graph", "--dot" } );
   EXPECT_EQ( dot.out.find( "digraph modules {" ), 0u );
   EXPECT_NE( dot.out.find( R"("IpInput_et1" -> "fibIpv4" [label="1"];)" ), std::string::npos ) << dot.out;
}

} // namespace
