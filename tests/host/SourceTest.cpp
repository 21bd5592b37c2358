#include "HostTestRouter.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

using namespace Test;

TEST( HostDescription, whatIsWrongIsToldWithItsLineAndTheRestIsUsed ) {
   HostedState router;
   EXPECT_EQ( router.describe( R"(bridges: []
vrfs:
  - red
  - red
interfaces:
  - {name: Ethernet1, addresses: 10.0.1.1/24, mtu: 60}
  - {name: Ethernet2, addresses: '2001:db8::1/64'}
  - {name: Ethernet3, adresses: 10.0.3.1/24}
  - {name: Ethernet4, addresses: 10.0.4.1/24, enabled: perhaps}
  - {name: Bethernet5}
  - {addresses: 10.0.6.1/24}
  - {name: Ethernet7, vrf: blue}
  - name: Ethernet8
    addresses:
      - 10.0.8.1/24
      - 10.0.8.2/33
  - {name: et9, addresses: 10.0.9.1/24}
  - {name: Ethernet9}
neighbors:
  - {interface: Ethernet9, address: 10.0.9.2, mac: 02:00:00:00:09}
routes:
  - {prefix: 192.0.2.1/24, via: 10.0.9.2}
  - {prefix: 192.0.2.0/24, via: [10.0.9.2, {nexthop: 10.0.9.3, weight: 0}]}
  - {prefix: 198.51.100.0/24, via: 10.0.9.2}
route-file: {path: routes, nexthops: [10.0.9.2], ecmp: 2}
)" ),
              ( Lines{
                   "router.yaml:4: vrf red is there twice",
                   "router.yaml:10: \"Bethernet5\" is not an interface name",
                   "router.yaml:11: \"name\" is missing",
                   "router.yaml:18: interface Ethernet9 is there twice",
                   "router.yaml:1: there is no section \"bridges\"",
                   "router.yaml:25: ecmp 2 is more than there are next hops",
                   "router.yaml:6: interface Ethernet1: MTU 60 is under 68",
                   "router.yaml:7: address 2001:db8::1/64 is IPv6, and interfaces take IPv4 ones",
                   "router.yaml:8: unknown key \"adresses\", did you mean \"addresses\"?",
                   "router.yaml:9: enabled is true or false",
                   "router.yaml:12: interface Ethernet7: VRF blue does not exist",
                   "router.yaml:16: \"10.0.8.2/33\" is not an IPv4 address with its prefix length",
                   "router.yaml:20: \"02:00:00:00:09\" is not a MAC address",
                   "router.yaml:22: route 192.0.2.1/24: the prefix has host bits",
                   "router.yaml:23: weight 0 is under 1",
              } ) );
   EXPECT_EQ( router.routes( "description" ), Lines{ "198.51.100.0/24 forward 10.0.9.2%Ethernet9 (description)" } );
}

TEST( HostChange, whatIsWrongByItselfIsInvalidAndTheRestRefused ) {
   HostedState router;
   router.describe( twoPorts );
   using Code = Host::ChangeResult::Code;
   const struct {
      const char * kind;
      const char * entry;
      Code code;
   } cases[] = { { "route", "{prefix: 10.78.0.1/16, blackhole: true}", Code::invalid },
                 { "route", "{prefix: 10.78.0.0/16, via: 2001:db8::1}", Code::invalid },
                 { "route", "{prefix: 10.78.0.0/16, vrf: blue, blackhole: true}", Code::refused },
                 { "route", "{prefix: default, blackhole: true}", Code::done },
                 { "vlan", "{id: 5000}", Code::invalid },
                 { "neighbor", "{interface: Ethernet1, address: 10.0.1.2, mac: 02:00}", Code::invalid },
                 { "neighbor", "{interface: Ethernet1, address: 10.9.1.2, mac: '02:00:00:00:00:09'}", Code::refused },
                 { "interface", "{name: Ethernet3, mtu: 60}", Code::invalid },
                 { "interface", "{name: Ethernet3, vrf: blue}", Code::refused },
                 { "access-list", "{name: web, rules: [permit everything]}", Code::invalid },
                 { "class-map", "{name: voice, match: {access-list: none}}", Code::refused },
                 { "rote", "{}", Code::invalid } };
   for ( const auto & [ kind, entry, code ] : cases ) {
      const auto result = applyChange( router.state, Host::ChangeOp::replace, kind, entry );
      EXPECT_EQ( result.code, code ) << kind << " " << entry << ": " << result.message;
   }
   EXPECT_EQ( router.routes( "command" ), Lines{ "0.0.0.0/0 drop (command)" } );
   const auto wild = router.change( "add tunnel {name: Tunnel1, source: 10.0.1.1, destination: 10.0.1.9, mode: \"g\\e" +
                                    std::string( 100000, 'x' ) + "\"}" );
   EXPECT_TRUE( wild.starts_with( "tunnel: mode \"g\\x1bxxx" ) && wild.size() < 600 ) << wild.substr( 0, 600 );
}

TEST( HostDescription, oneThatCannotBeReadLeavesEverythingAsItWas ) {
   HostedState router;
   router.describe( twoPorts );
   const auto before = router.routes();
   EXPECT_EQ( router.describe( "interfaces: [\n" ),
              Lines{ "router.yaml:2: it is not YAML: end of sequence flow not found" } );
   EXPECT_EQ( router.describe( "- a list\n" ), Lines{ "router.yaml:1: a description is a map of sections" } );
   std::filesystem::remove( router.directory.path( "router.yaml" ) );
   EXPECT_EQ( router.routeFile( "" ), Lines{ "router.yaml: No such file or directory" } );
   EXPECT_EQ( router.routes(), before );
}

TEST( HostDescription, aTextThatStandsForMoreThanItIsIsRefusedBeforeItIsATree ) {
   HostedState router;
   std::string doubling = "a0: &a0 [x,x,x,x,x,x,x,x,x]\n";
   for ( int i = 1; i < 10; ++i ) {
      const auto before = "*a" + std::to_string( i - 1 );
      doubling += "a" + std::to_string( i ) + ": &a" + std::to_string( i ) + " [" + before;
      for ( int j = 1; j < 9; ++j ) doubling += "," + before;
      doubling += "]\n";
   }
   const std::pair< std::string, const char * > cases[] = {
        { "ipsec: &a [*a]\n", "router.yaml:1: an alias stands inside its own anchor" },
        { doubling, "router.yaml:8: it stands for more than 33554432 values" },
        { "vrfs: " + std::string( 40, '[' ) + std::string( 40, ']' ), "router.yaml:1: it is nested more than 32 deep" },
        { "a: &a " + std::string( 20, '[' ) + std::string( 20, ']' ) + "\nb: " + std::string( 20, '[' ) + "*a" +
               std::string( 20, ']' ),
          "router.yaml:2: it is nested more than 32 deep" },
   };
   for ( const auto & [ text, error ] : cases ) EXPECT_EQ( router.describe( text ), Lines{ error } );
   EXPECT_EQ( router.change( "add ipsec &a [*a]" ), "ipsec: an alias stands inside its own anchor" );
   EXPECT_EQ( router.describe( "vrfs: [&a red, blue]\ninterfaces: [{name: Ethernet1, vrf: *a}]\n" ), Lines{} );
}

TEST( HostDescription, aWrongEntryLeavesItsObjectAndWhatCommandsToldStays ) {
   HostedState router;
   router.describe( twoPorts );
   router.change( "add neighbor {interface: Ethernet2, address: 10.0.2.9, mac: '02:00:00:00:02:09'}" );
   EXPECT_EQ( router.describe( R"(
interfaces:
  - {name: Ethernet1, addresses: 10.0.1.1/24, mtu: 1}
  - {name: Ethernet2, addresses: 10.0.2.1/24}
)" ),
              Lines{ "router.yaml:3: interface Ethernet1: MTU 1 is under 68" } );
   EXPECT_EQ( router.state.intfBook().intfs().size(), 2u );
   EXPECT_EQ( router.routes( "neighbor" ), Lines{ "10.0.2.9/32 forward 10.0.2.9%Ethernet2 (neighbor)" } );
}

TEST( HostDescription, whatHangsOnAWrongEntryIsToldWithIt ) {
   HostedState router;
   EXPECT_EQ( router.describe( R"(
access-lists:
  - {name: web, rules: [permit tpc any any]}
interfaces:
  - {name: Ethernet1, addresses: 10.0.1.1/24, access-group: {in: web}}
  - {name: Ethernet10, addresses: 10.0.10.1/24, access-group: {in: web-2}}
neighbors:
  - {interface: Ethernet1, address: 10.0.1.2, mac: 02:00:00:00:01:02}
)" ),
              ( Lines{ "router.yaml:3: access-list web, sequence 10: \"tpc\" is not a protocol: a name, or a number "
                       "from 1 to 255; with it goes "
                       "interface Ethernet1 (line 5), neighbor 10.0.1.2 on Ethernet1 (line 8)",
                       "router.yaml:6: interface Ethernet10: there is no access-list web-2" } ) );
}

TEST( HostDescription, aReloadBringsBackWhatCommandsReplacedRoutesToo ) {
   HostedState router;
   const char * const described = "interfaces:\n  - {name: Ethernet1, addresses: 10.0.1.1/24, mtu: 1400}\n"
                                  "routes:\n  - {prefix: 192.0.2.0/24, via: 10.0.1.2}\n"
                                  "route-file: {path: routes, nexthops: [10.0.1.2]}\n";
   router.describe( described );
   router.routeFile( "198.51.100.0/24\n" );
   const auto before = router.routes();
   router.change( "replace interface {name: Ethernet1, addresses: 10.0.1.1/24, mtu: 1300}" );
   for ( const char * prefix : { "192.0.2.0/24", "198.51.100.0/24", "203.0.113.0/24" } )
      router.change( std::string( "replace route {prefix: " ) + prefix + ", via: 10.0.1.9}" );
   EXPECT_EQ( router.routes( "command" ).size(), 3u );
   EXPECT_EQ( router.describe( described ), Lines{} );
   EXPECT_EQ( router.state.intfBook().intfs().begin()->second.fact.mtu, 1400u );
   EXPECT_EQ( router.routes( "command" ), Lines{ "203.0.113.0/24 forward 10.0.1.9%Ethernet1 (command)" } );
   router.change( "del route {prefix: 203.0.113.0/24}" );
   EXPECT_EQ( router.routes(), before );
}

TEST( HostDescription, addressesAndVrfsMoveBetweenInterfacesInOneReload ) {
   HostedState router;
   EXPECT_EQ( router.describe( "vrfs: [red]\ninterfaces:\n"
                               "  - {name: Ethernet1, addresses: 10.0.1.1/24, vrf: red}\n"
                               "  - {name: Ethernet2, addresses: 10.0.2.1/24}\n" ),
              Lines{} );
   EXPECT_EQ( router.describe( "vrfs: [blue]\ninterfaces:\n"
                               "  - {name: Ethernet1, addresses: 10.0.2.1/24}\n"
                               "  - {name: Ethernet2, addresses: 10.0.1.1/24, vrf: blue}\n" ),
              Lines{} );
   EXPECT_EQ( router.state.vrfBook().vrfs().size(), 2u );
   EXPECT_EQ( router.routes().front(), "10.0.2.0/24 attached Ethernet1 (connected)" );
}

TEST( HostRouteFile, linesNameTheirNextHopsOrAreSpread ) {
   HostedState router;
   EXPECT_EQ(
        router.describe( std::string( twoPorts ) + R"(
vrfs: [red]
tunnels: [{name: Tunnel1, source: 10.0.1.1, destination: 198.51.100.1}]
route-file: {path: routes, groups: [[10.0.1.2, 10.0.2.2*2]]}
)" ),
        Lines{ "router.yaml:11: route-file: accepted; weights have no effect: each next hop gets an equal share" } );
   EXPECT_EQ(
        router.routeFile( "# a comment\n"
                          "\n"
                          "192.0.2.0/24\r\n"
                          "192.0.3.0/24\t10.0.2.9*3 10.0.1.2%Ethernet1 # its own\n"
                          "192.0.4.0/24 Tunnel1\n"
                          "192.0.5.0/24 blackhole\n"
                          "192.0.6.1/24\n"
                          "192.0.7.0/24 10.9.9.9\n"
                          "192.0.8.0/24 10.0.1.2 blackhole\n"
                          "192.0.9.0\n"
                          "192.0.3.0/24\n"
                          "2001:db8::/32 2001:db8::1%Ethernet1\n"
                          "10.0.1.0/24\n" ),
        ( Lines{
             "router.yaml:11: route-file: accepted; weights have no effect: each next hop gets an equal share",
             "routes:4: 192.0.3.0/24: accepted; weights have no effect: each next hop gets an equal share",
             "routes:7: 192.0.6.1/24: the prefix has host bits",
             "routes:8: 192.0.7.0/24: accepted; no interface reaches next hop 10.9.9.9, and its packets are dropped",
             "routes:9: 192.0.8.0/24: \"blackhole\" stands alone",
             "routes:10: \"192.0.9.0\" is not an IP prefix",
             "routes:11: 192.0.3.0/24: an earlier line has the prefix already",
        } ) );
   EXPECT_EQ( router.routes( "routeFile" ),
              ( Lines{
                   "192.0.2.0/24 forward 10.0.1.2%Ethernet1 10.0.2.2%Ethernet2*2 (routeFile)",
                   "192.0.3.0/24 forward 10.0.2.9%Ethernet2*3 10.0.1.2%Ethernet1 (routeFile)",
                   "192.0.4.0/24 forward Tunnel1 (routeFile)",
                   "192.0.5.0/24 drop (routeFile)",
                   "192.0.7.0/24 forward 10.9.9.9 (routeFile)",
              } ) );
   EXPECT_EQ( router.state.tree().fib6->routes(), 1u );
}

TEST( HostRouteFile, whatItHasNoMoreGoesAndTheOthersStayWhereTheyAre ) {
   HostedState router;
   router.describe( std::string( twoPorts ) + "route-file: {path: routes, nexthops: [10.0.1.2, 10.0.2.2]}\n" );
   const auto fecs = router.fecs();
   std::string all, some;
   for ( int i = 0; i < 200; ++i ) {
      const auto line = "20.0." + std::to_string( i ) + ".0/24\n";
      all += line;
      if ( i % 2 == 0 ) some = line + some;
   }
   router.routeFile( all );
   const auto before = router.routes( "routeFile" );
   ASSERT_EQ( before.size(), 200u );
   const auto by = [ & ]( const char * hop ) {
      return std::ranges::count_if( before, [ & ]( const auto & l ) { return l.find( hop ) != l.npos; } );
   };
   EXPECT_GT( by( "10.0.1.2" ), 60 );
   EXPECT_GT( by( "10.0.2.2" ), 60 );
   // A route of the file that waits behind another one goes too.
   router.change( "replace route {prefix: 20.0.1.0/24, blackhole: true}" );
   router.routeFile( some );
   const auto after = router.routes( "routeFile" );
   ASSERT_EQ( after.size(), 100u );
   EXPECT_TRUE( std::ranges::includes( before, after ) );
   EXPECT_EQ( router.state.routes( Host::Teller::routeFile() ), 100u );
   router.change( "del route {prefix: 20.0.1.0/24}" );
   router.routeFile( "# none\n" );
   EXPECT_EQ( router.routes( "routeFile" ), Lines{} );
   EXPECT_EQ( router.fecs(), fecs );
}

TEST( HostRouteFile, oneThatCannotBeReadTakesNothingAway ) {
   HostedState router;
   router.describe( std::string( twoPorts ) + "route-file: {path: routes, nexthops: [10.0.1.2]}\n" );
   router.routeFile( "20.0.0.0/8\n" );
   EXPECT_EQ( router.describe( std::string( twoPorts ) + "route-file: {path: none, nexthops: [10.0.1.2]}\n" ),
              Lines{ "none: No such file or directory" } );
   EXPECT_EQ( router.describe( std::string( twoPorts ) + "route-file: {path: ., nexthops: [10.0.1.2]}\n" ),
              Lines{ ".: it is a directory" } );
   EXPECT_EQ( router.routes( "routeFile" ).size(), 1u );
}

TEST( HostRouteFile, oneThatSomebodyIsStillWritingAddsAndTakesNothingAway ) {
   HostedState router;
   router.describe( std::string( twoPorts ) + "route-file: {path: routes, nexthops: [10.0.1.2]}\n" );
   router.routeFile( "20.0.0.0/8\n21.0.0.0/8\n" );
   EXPECT_EQ( router.routeFile( "22.0.0.0/8\n20.0.0.0/1" ),
              Lines{ "routes: its last line has no end: no route of it is taken away" } );
   EXPECT_EQ( router.routeFile( "" ), Lines{ "routes: it is empty: no route of it is taken away" } );
   EXPECT_EQ( router.routes( "routeFile" ).size(), 3u );
   const auto path = router.directory.path( "routes" );
   Host::SourceErrors errors( nullptr );
   Host::RouteFile reading( router.state, { .path = path }, errors );
   EXPECT_TRUE( reading.step( 0 ) );
   router.directory.write( "routes", "20.0.0.0/8\n" );
   while ( reading.step( 1 ) ) {
   }
   EXPECT_EQ( errors.errors().back().text, "it changed while it was read: no route of it is taken away" );
   std::filesystem::remove( path );
   ASSERT_EQ( mkfifo( path.c_str(), 0600 ), 0 );
   EXPECT_EQ( router.describe( std::string( twoPorts ) + "route-file: {path: routes, nexthops: [10.0.1.2]}\n" ),
              Lines{ "routes: it is no regular file" } );
   EXPECT_EQ( router.routes( "routeFile" ).size(), 3u );
}

TEST( HostRouteFile, isReadOnWhenADescriptionMeanwhileIsBroken ) {
   HostedState router;
   const auto description = router.directory.path( "router.yaml" );
   Host::Sources sources( router.state, { description, router.directory.path( "routes" ) }, nullptr );
   const auto load = [ & ]( const std::string & text ) {
      router.directory.write( "router.yaml", text );
      return sources.load();
   };
   const auto whole = std::string( twoPorts ) + "route-file: {nexthops: [10.0.1.2]}\n";
   router.directory.write( "routes", "20.0.0.0/8\n21.0.0.0/8\n" );
   EXPECT_TRUE( load( whole ) );
   EXPECT_TRUE( sources.step( 1 ) );
   EXPECT_FALSE( load( "interfaces: [\n" ) );
   EXPECT_EQ( sources.errors().count(), 1u );
   while ( sources.step( 1 ) ) {
   }
   EXPECT_EQ( router.routes( "routeFile" ).size(), 2u );
}

} // namespace
