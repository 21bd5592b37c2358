#include "HostTestRouter.h"
#include "StateBridging.h"
#include "StateFhrp.h"
#include "StateIpNat.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;

TEST( HostState, routesFollowFromAddressesAndNeighbors ) {
   HostedState router;
   EXPECT_EQ( router.describe( R"(
      vrfs: [red]
      interfaces:
        - {name: Ethernet1, addresses: [10.0.1.1/24, 10.0.9.1/31]}
        - {name: Ethernet2, addresses: 10.0.1.1/24, vrf: red}
        - {name: Loopback0, addresses: 192.0.2.1}
      tunnels:
        - {name: Tunnel1, addresses: 10.0.7.1/30, vrf: red, source: 10.0.1.1, destination: 10.9.9.9}
      neighbors:
        - {interface: Ethernet1, address: 10.0.1.2, mac: 02:00:00:00:01:02}
   )" ),
              Lines{} );
   EXPECT_EQ( router.routes(), ( Lines{
                                    "10.0.1.0/24 attached Ethernet1 (connected)",
                                    "10.0.1.1/32 receive Ethernet1 (connected)",
                                    "10.0.1.2/32 forward 10.0.1.2%Ethernet1 (neighbor)",
                                    "10.0.1.255/32 broadcast Ethernet1 (connected)",
                                    "10.0.9.0/31 attached Ethernet1 (connected)",
                                    "10.0.9.1/32 receive Ethernet1 (connected)",
                                    "192.0.2.1/32 receive Loopback0 (connected)",
                                    "red 10.0.1.0/24 attached Ethernet2 (connected)",
                                    "red 10.0.1.1/32 receive Ethernet2 (connected)",
                                    "red 10.0.1.255/32 broadcast Ethernet2 (connected)",
                                    "red 10.0.7.0/30 forward Tunnel1 (connected)",
                                    "red 10.0.7.1/32 receive Tunnel1 (connected)",
                               } ) );
   EXPECT_EQ( router.change( "replace interface {name: Ethernet1, addresses: 10.0.3.1/30}" ), "" );
   EXPECT_EQ( router.change( "del interface {name: Ethernet2}" ), "" );
   EXPECT_EQ( router.change( "replace interface {name: Loopback0, addresses: 192.0.2.1, enabled: false}" ), "" );
   EXPECT_EQ( router.routes(), ( Lines{
                                    "10.0.3.0/30 attached Ethernet1 (connected)",
                                    "10.0.3.1/32 receive Ethernet1 (connected)",
                                    "10.0.3.3/32 broadcast Ethernet1 (connected)",
                                    "red 10.0.7.0/30 forward Tunnel1 (connected)",
                                    "red 10.0.7.1/32 receive Tunnel1 (connected)",
                               } ) );
}

TEST( HostState, virtualMacsVlansAndTranslationsReachTheStateAndGoWithTheirInterface ) {
   HostedState router;
   EXPECT_EQ( router.describe( std::string( twoPorts ) + R"(
vlans: [{id: 10, members: [Ethernet1, Cpu]}, {id: 11}]
virtual-macs: [{interface: Ethernet1, mac: 00:00:5e:00:01:07}, {interface: Ethernet2, mac: 00:00:5e:00:01:07}]
nat:
  - {interface: Ethernet1, target: destination, protocol: tcp, original: '192.0.2.1:80', translated: '10.0.1.9:8080'}
  - {vlan: 10, acl: inside, priority: 5}
)" ),
              ( Lines{ "router.yaml:12: accepted; this data plane has no translation, so no packet is translated",
                       "router.yaml:13: accepted; this data plane has no translation, so no packet is translated" } ) );
   const auto & tree = router.state.tree();
   const auto vlan = tree.bridgingConfig->vlanConfig( Bridging::VlanId( 10 ) );
   EXPECT_TRUE( vlan->intfHas( intf( "Ethernet1" ) ) && vlan->intfHas( intf( "Cpu" ) ) );
   // The router itself is no port.
   const auto status = tree.vlanStatusDir->vlanStatus( Bridging::VlanId( 10 ) );
   EXPECT_EQ( status->vlanPortStatusKeys(), std::vector{ intf( "Ethernet1" ) } );
   EXPECT_EQ( tree.virtualMacStatus->vrrpVirtualMacs(), 2u );
   const auto nat = tree.natStatus->staticConnectionIterator().begin();
   EXPECT_EQ( nat->first.protocol(), 6 );
   EXPECT_EQ( nat->second.translated().port(), Kynet::Port( 8080 ) );
   EXPECT_EQ( tree.natStatus->dynamicRules(), 1u );

   EXPECT_EQ( router.change( "replace vlan {id: 10, members: Ethernet2}" ), "" );
   EXPECT_EQ( vlan->intfKeys(), std::vector{ intf( "Ethernet2" ) } );
   EXPECT_EQ( router.change( "del interface {name: Ethernet1}" ), "" );
   EXPECT_EQ( tree.virtualMacStatus->vrrpVirtualMacs(), 1u );
   EXPECT_EQ( tree.natStatus->staticConnections(), 0u );
   router.change( "add vlan {id: 12}" );
   router.describe( twoPorts );
   EXPECT_EQ( tree.virtualMacStatus->vrrpVirtualMacs(), 0u );
   EXPECT_EQ( tree.natStatus->dynamicRules(), 0u );
   // The command's, the one of them taken over.
   EXPECT_EQ( tree.bridgingConfig->vlanConfigKeys(),
              ( std::vector{ Bridging::VlanId( 10 ), Bridging::VlanId( 12 ) } ) );
}

TEST( HostState, aReloadTakesTheRoutersMacOnlyWhenTheDescriptionToldIt ) {
   HostedState router;
   router.change( "add router {mac: '02:00:00:aa:00:01'}" );
   router.describe( "" );
   EXPECT_EQ( router.state.tree().bridgingConfig->bridgeMacAddr(), mac( "02:00:00:aa:00:01" ) );
   router.describe( "router: {mac: 02:00:00:aa:00:01}" );
   EXPECT_EQ( router.describe( "router: {mac: 02:00:00:aa:00:02}" ),
              Lines{ "router.yaml:1: router: MAC 02:00:00:aa:00:01 has to be taken away before 02:00:00:aa:00:02 can "
                     "come" } );
   EXPECT_EQ( router.describe( "" ), Lines{} );
   EXPECT_EQ( router.state.tree().bridgingConfig->bridgeMacAddr(), Kynet::EthAddr() );
}

TEST( HostState, everyRefusalNamesItsObjectAndChangesNothing ) {
   HostedState router;
   router.describe( twoPorts );
   router.change( "add vrf {name: red, id: 7}" );
   router.change( "add interface {name: Ethernet3, vrf: red, addresses: 10.0.3.1/24, device: veth3}" );
   router.change( "add tunnel {name: Tunnel1, source: 10.0.1.1, destination: 198.51.100.1, underlay: red}" );
   router.change( "add route {prefix: 198.51.100.0/24, via: 10.0.1.2}" );
   const auto before = router.routes();
   const auto fecs = router.fecs();
   const struct {
      const char * change;
      const char * refusal;
   } cases[] = {
        { "replace interface {name: Ethernet1, mtu: 67}", "interface Ethernet1: MTU 67 is under 68" },
        { "replace interface {name: Ethernet1, mtu: 65536}", "interface Ethernet1: MTU 65536 is over 65535" },
        { "replace interface {name: Ethernet1, vrf: blue}", "interface Ethernet1: VRF blue does not exist" },
        { "replace interface {name: Ethernet1, addresses: 10.0.1.0/24}",
          "interface Ethernet1: address 10.0.1.0/24 is its subnet's own" },
        { "replace interface {name: Ethernet1, addresses: 10.0.1.255/24}",
          "interface Ethernet1: address 10.0.1.255/24 is its subnet's broadcast address" },
        { "replace interface {name: Ethernet1, addresses: 224.0.0.1/24}",
          "interface Ethernet1: address 224.0.0.1/24 is not one that an interface can have" },
        { "replace interface {name: Ethernet1, addresses: 10.0.2.9/16}",
          "interface Ethernet1: address 10.0.2.9/16 overlaps with 10.0.2.0/24 of Ethernet2" },
        { "replace interface {name: Ethernet1, mac: '01:00:5e:00:00:01'}",
          "interface Ethernet1: MAC 01:00:5e:00:00:01 is a multicast address" },
        { "add interface {name: Ethernet1}", "interface Ethernet1 is there already" },
        { "replace interface {name: Ethernet1, device: veth3}",
          "interface Ethernet1: device veth3 belongs to Ethernet3" },
        { "replace interface {name: Ethernet1, device: veth1, mtu: 9217}",
          "interface Ethernet1: MTU 9217 is over 9216, the most of a device" },
        { "add interface {name: Loopback0, device: veth1}", "interface Loopback0: a loopback interface has no device" },
        { "replace interface {name: Ethernet1, device: 'veth1,x=y'}",
          "interface: device \"veth1,x=y\" is no name of a network device" },
        { "replace interface {name: Ethernet1, device: veth1, driver: af_unix}",
          "interface: driver \"af_unix\" is not af_packet or af_xdp" },
        { "replace interface {name: Ethernet1, port: {driver: PMDPort, path: /x}}",
          "interface: path does not belong here" },
        { "replace interface {name: Ethernet1, port: {driver: PMDPort}}",
          "interface: a PMDPort needs vdev, pci, port-id" },
        { "add interface {name: Tunnel2}",
          "interface: Tunnel2 does not belong here: interfaces are Ethernet, Port-Channel, Vlan and Loopback "
          "interfaces" },
        { "del interface {name: Ethernet9}", "interface Ethernet9 does not exist" },
        { "add tunnel {name: Tunnel2, source: 10.0.1.1, destination: 10.0.1.1}",
          "interface Tunnel2: source and destination are both 10.0.1.1" },
        { "add tunnel {name: Tunnel2, source: 10.0.1.1, destination: '2001:db8::1'}",
          "tunnel: destination 2001:db8::1 is IPv6, and has to be IPv4" },
        { "add tunnel {name: Tunnel2, source: 10.0.1.1, destination: 10.9.9.9, underlay: blue}",
          "interface Tunnel2: underlay VRF blue does not exist" },
        { "add neighbor {interface: Ethernet9, address: 10.0.1.3, mac: '02:00:00:00:00:09'}",
          "neighbor 10.0.1.3 on Ethernet9: the interface does not exist" },
        { "add neighbor {interface: Ethernet1, address: 10.0.2.3, mac: '02:00:00:00:00:09'}",
          "neighbor 10.0.2.3 on Ethernet1: the address is on no subnet of the interface" },
        { "add neighbor {interface: Ethernet1, address: 10.0.1.1, mac: '02:00:00:00:00:09'}",
          "neighbor 10.0.1.1 on Ethernet1: the address is the router's own" },
        { "add neighbor {interface: Tunnel1, address: 10.0.1.3, mac: '02:00:00:00:00:09'}",
          "neighbor 10.0.1.3 on Tunnel1: a tunnel has no neighbors" },
        { "add route {prefix: 192.0.2.1/24, via: 10.0.1.2}", "route 192.0.2.1/24: the prefix has host bits" },
        { "add route {prefix: 192.0.2.0/24, via: Ethernet1}",
          "route 192.0.2.0/24: a next hop needs an address, unless its interface is a tunnel" },
        { "add route {prefix: 192.0.2.0/24, via: '2001:db8::1'}",
          "route 192.0.2.0/24: next hop 2001:db8::1 is IPv6, and the prefix IPv4" },
        { "add route {prefix: '2001:db8::/32', via: 10.0.1.2}",
          "route 2001:db8::/32: next hop 10.0.1.2 is IPv4, and the prefix IPv6" },
        { "add route {prefix: 192.0.2.0/24, vrf: blue, via: 10.0.1.2}",
          "route 192.0.2.0/24 in VRF blue: VRF blue does not exist" },
        { "add route {prefix: 192.0.2.0/24}", "route: a route has one of \"via\", \"blackhole\" and \"receive\"" },
        { "add route {prefix: 192.0.2.0/24, via: []}", "route 192.0.2.0/24: there is no next hop" },
        { "add route {prefix: 192.0.2.0/24, via: 10.0.1.2*0}", "route: weight \"0\" is not a number from 1 to 65535" },
        { "add route {prefix: 239.0.0.0/8, blackhole: true}",
          "route 239.0.0.0/8: multicast is not routed by unicast routes" },
        { "add route {prefix: 198.51.100.0/24, blackhole: true}", "route 198.51.100.0/24 is there already" },
        { "del route {prefix: 10.0.1.0/24}",
          "route 10.0.1.0/24: it follows from an interface's address and goes with it" },
        { "del route {prefix: 192.0.2.0/24}", "route 192.0.2.0/24 does not exist" },
        { "add vrf {name: blue, id: 7}", "VRF blue: id 7 belongs to VRF red" },
        { "replace vrf {name: red, id: 8}", "VRF red: its id is 7 and stays while it is there" },
        { "add vrf {name: 'two words'}", "vrf: VRF name \"two words\" is not one of up to 63 letters, digits, \"-\", "
                                         "\"_\" and \".\"" },
        { "del vrf {name: red}", "VRF red: Ethernet3 is in it" },
        { "del vrf {name: default}", "VRF default: Ethernet1 is in it" },
        { "add router {mac: '02:00:00:aa:00:01', bridge-mac: '02:00:00:aa:00:02'}",
          "router: bridge-mac 02:00:00:aa:00:02 is not the router's own MAC, 02:00:00:aa:00:01" },
        { "add router {bridge-mac: '02:00:00:aa:00:02'}",
          "router: bridge-mac 02:00:00:aa:00:02 is not the router's own MAC, of which there is none" },
        { "add virtual-mac {interface: Tunnel1, mac: '00:00:5e:00:01:07'}",
          "virtual MAC 00:00:5e:00:01:07 on Tunnel1: a tunnel has no MACs" },
        { "add virtual-mac {interface: Ethernet9, mac: '00:00:5e:00:01:07'}",
          "virtual MAC 00:00:5e:00:01:07 on Ethernet9: the interface does not exist" },
        { "add virtual-mac {interface: Ethernet1, mac: '01:00:5e:00:01:07'}",
          "virtual MAC 01:00:5e:00:01:07 on Ethernet1: it is a multicast address" },
        { "del virtual-mac {interface: Ethernet1, mac: '00:00:5e:00:01:07'}",
          "virtual MAC 00:00:5e:00:01:07 on Ethernet1 does not exist" },
        { "add vlan {id: 4095}", "vlan: id 4095 is over 4094" },
        { "add vlan {id: 10, members: Tunnel1}",
          "VLAN 10: Tunnel1 cannot be a member: members are Ethernet and Port-Channel interfaces, and Cpu" },
        { "add nat {interface: Ethernet9, original: 10.0.1.5, translated: 192.0.2.1}",
          "NAT of source 10.0.1.5 on Ethernet9: the interface does not exist" },
        { "add nat {interface: Ethernet1, original: '10.0.1.5:80', translated: '192.0.2.1:80'}",
          "NAT of source 10.0.1.5:80 on Ethernet1: ports are those of the protocol tcp or udp" },
        { "add nat {interface: Ethernet1, original: '10.0.1.5:0', translated: 192.0.2.1}",
          "nat: original \"10.0.1.5:0\" is not an IPv4 address, alone or with :PORT" },
        { "add bridge {name: br0}",
          "bridge: there is no kind \"bridge\"; kinds are router, vrf, access-list, class-map, policy-map, interface, "
          "tunnel, ipsec, neighbor, vlan, virtual-mac, nat, route" },
        { "add vrf {name: [", "vrf: it is not YAML: end of sequence flow not found" },
   };
   for ( const auto & given : cases ) EXPECT_EQ( router.change( given.change ), given.refusal ) << given.change;
   EXPECT_EQ( router.routes(), before );
   EXPECT_EQ( router.fecs(), fecs );
}

TEST( HostState, aPrefixOfSeveralSourcesShowsTheFirstAndComesBackToTheOthers ) {
   HostedState router;
   const auto present = [ & ] {
      const auto all = router.routes();
      const auto at = std::ranges::find_if( all, []( const auto & l ) { return l.starts_with( "10.0.1.0/24" ); } );
      return at == all.end() ? std::string() : *at;
   };
   const auto description = std::string( twoPorts ) + "routes: [{prefix: 10.0.1.0/24, via: 10.0.2.2}]\n"
                                                      "route-file: {path: routes, nexthops: [10.0.2.2]}\n";
   router.describe( description );
   router.routeFile( "10.0.1.0/24 blackhole\n" );
   EXPECT_EQ( present(), "10.0.1.0/24 attached Ethernet1 (connected)" );
   // One that waits behind another source's is taken back, too.
   const std::string command = "route {prefix: 10.0.1.0/24, via: [10.0.2.2, 10.0.2.3]}";
   EXPECT_EQ( router.change( "replace " + command ), "" );
   EXPECT_NE( router.change( "add " + command ), "" );
   EXPECT_EQ( router.change( "del route {prefix: 10.0.1.0/24}" ), "" );
   EXPECT_EQ( router.state.routes( Host::Teller::command() ), 0u );
   router.change( "replace " + command );
   router.change( "del interface {name: Ethernet1}" );
   EXPECT_EQ( present(), "10.0.1.0/24 forward 10.0.2.2%Ethernet2 10.0.2.3%Ethernet2 (command)" );
   router.change( "del route {prefix: 10.0.1.0/24}" );
   EXPECT_EQ( present(), "10.0.1.0/24 forward 10.0.2.2%Ethernet2 (description)" );
   router.change( "del route {prefix: 10.0.1.0/24}" );
   EXPECT_EQ( present(), "10.0.1.0/24 drop (routeFile)" );
   // The next reading of the sources says again what they say.
   router.describe( description );
   EXPECT_EQ( present(), "10.0.1.0/24 attached Ethernet1 (connected)" );
   router.describe( "" );
   EXPECT_EQ( router.routes(), Lines{} );
   EXPECT_EQ( router.fecs(), 0u );
}

TEST( HostState, offersOfAPrefixHoldByDistanceAndMetricAndTheStaleOnesAreSwept ) {
   HostedState router;
   ASSERT_EQ( router.describe( twoPorts ), Lines{} );
   auto & book = router.state.routes4();
   const auto prefix = *Kynet::Prefix::fromString( "192.0.2.0/24" );
   const auto offer = [ & ]( const Host::Origin & origin, const char * hop ) {
      const auto fecId = book.fecs().acquire(
           0, { Mirel::RouteType::forward(), { Host::Hop( *Kynet::IpGenAddr::fromString( hop ), {}, 1 ) } } );
      EXPECT_TRUE( book.routeIs( 0, prefix, router.state.origins().id( origin ), Mirel::RouteType::forward(), fecId ) );
      book.fecs().release( fecId );
   };
   const auto holder = [ & ] {
      auto lines = router.routes( "fpm" );
      std::ranges::copy( router.routes( "kernel" ), std::back_inserter( lines ) );
      return lines;
   };
   const auto fecs = router.fecs();
   offer( { Host::Teller::kernel(), 4, 1, 200 }, "10.0.1.2" );
   offer( { Host::Teller::fpm(), 186, 20, 0 }, "10.0.2.2" );
   EXPECT_EQ( holder(), Lines{ "192.0.2.0/24 forward 10.0.1.2%Ethernet1 (kernel)" } );
   offer( { Host::Teller::kernel(), 4, 1, 100 }, "10.0.2.2" ); // beside the other one, and before it
   EXPECT_EQ( holder(), Lines{ "192.0.2.0/24 forward 10.0.2.2%Ethernet2 (kernel)" } );
   book.mark( Host::Teller::kernel() );
   offer( { Host::Teller::kernel(), 4, 250, 100 }, "10.0.2.2" ); // told again, and worse
   EXPECT_EQ( holder(), Lines{ "192.0.2.0/24 forward 10.0.1.2%Ethernet1 (kernel)" } );
   EXPECT_EQ( book.staleRoutes( Host::Teller::kernel() ), 1u );
   U32 at = 0;
   EXPECT_FALSE( book.sweep( Host::Teller::kernel(), at, 1000 ) );
   EXPECT_EQ( holder(), Lines{ "192.0.2.0/24 forward 10.0.2.2%Ethernet2 (fpm)" } );
   for ( int marks = 0; marks < 300; ++marks ) book.mark( Host::Teller::fpm() );
   EXPECT_EQ( book.staleRoutes( Host::Teller::fpm() ), 1u );
   EXPECT_TRUE( book.routeDel( 0, prefix, Host::Teller::fpm() ) );
   EXPECT_EQ( holder(), Lines{ "192.0.2.0/24 forward 10.0.2.2%Ethernet2 (kernel)" } );
   EXPECT_TRUE( book.routeDel( 0, prefix, Host::Teller::kernel(), 100 ) );
   EXPECT_EQ( router.fecs(), fecs );
}

TEST( HostState, nextHopsFollowTheirSubnetsAndLeaveWhatIsDown ) {
   HostedState router;
   router.describe( twoPorts );
   router.change( "add route {prefix: 192.0.2.0/24, via: [10.0.1.2, 10.0.2.2*3]}" );
   const auto via = [ & ] { return router.routes( "command" ).front(); };
   EXPECT_EQ( via(), "192.0.2.0/24 forward 10.0.1.2%Ethernet1 10.0.2.2%Ethernet2*3 (command)" );
   router.change( "replace interface {name: Ethernet1, addresses: 10.0.1.1/24, enabled: false}" );
   EXPECT_EQ( via(), "192.0.2.0/24 forward 10.0.2.2%Ethernet2*3 (command)" );
   // With the last one down, they stay where they would be.
   router.change( "replace interface {name: Ethernet2, addresses: 10.0.2.1/24, enabled: false}" );
   EXPECT_EQ( via(), "192.0.2.0/24 forward 10.0.1.2%Ethernet1 10.0.2.2%Ethernet2*3 (command)" );
   router.change( "del interface {name: Ethernet1}" );
   router.change( "add interface {name: Ethernet3, addresses: 10.0.1.1/24}" );
   EXPECT_EQ( via(), "192.0.2.0/24 forward 10.0.1.2%Ethernet3 (command)" );
   router.change( "replace interface {name: Ethernet2, addresses: 10.0.2.1/24}" );
   EXPECT_EQ( via(), "192.0.2.0/24 forward 10.0.1.2%Ethernet3 10.0.2.2%Ethernet2*3 (command)" );
}

TEST( HostState, aRouteIsWhereARestartWouldHaveItWhateverBecomesOfItsInterfaces ) {
   const std::string routes = R"(
routes:
  - {prefix: 192.0.2.0/24, via: 10.0.1.2}
  - {prefix: 192.0.3.0/24, via: 10.0.1.2%Ethernet1}
  - {prefix: 192.0.4.0/24, via: [10.0.1.2, 10.0.2.2]}
  - {prefix: 192.0.5.0/24, via: Tunnel1}
  - {prefix: 192.0.2.0/24, vrf: red, via: 10.0.1.2}
)";
   const auto description = [ & ]( const std::string & intf, const std::string & tunnel ) {
      return "vrfs: [red]\ninterfaces: [" + intf + "{name: Ethernet2, addresses: 10.0.2.1/24}]\ntunnels: [" + tunnel +
             "]\n" + routes;
   };
   const std::string tunnel = "{name: Tunnel1, source: 10.0.1.1, destination: 10.0.2.2}";
   const auto ways = []( const HostedState & router ) { return router.routes( "description" ); };
   const struct {
      const char *intf, *tunnel, *single; // the route of one next hop
   } ends[] = {
        { "{name: Ethernet1, addresses: 10.0.1.1/24}",
          "{name: Tunnel1, vrf: red, source: 10.0.1.1, destination: 10.0.2.2}",
          "192.0.2.0/24 forward 10.0.1.2%Ethernet1 (description)" },
        { "{name: Ethernet1, addresses: 10.0.1.1/24, vrf: red}", tunnel.c_str(),
          "192.0.2.0/24 forward 10.0.1.2 (description)" },
        { "{name: Ethernet1, addresses: 10.0.9.1/24}", tunnel.c_str(), "192.0.2.0/24 forward 10.0.1.2 (description)" },
        { "{name: Ethernet3, addresses: 10.0.1.1/24}", "", "192.0.2.0/24 forward 10.0.1.2%Ethernet3 (description)" },
        { "", tunnel.c_str(), "192.0.2.0/24 forward 10.0.1.2 (description)" },
   };
   HostedState router;
   for ( const auto & end : ends ) {
      const auto text = description( end.intf + std::string( *end.intf == 0 ? "" : ", " ), end.tunnel );
      router.describe( text );
      HostedState restarted;
      restarted.describe( text );
      EXPECT_EQ( ways( router ), ways( restarted ) ) << text;
      EXPECT_EQ( ways( router ).front(), end.single ) << text;
   }
}

TEST( HostState, aRouteThatDoesLessThanItSaysIsTakenWithAWarning ) {
   HostedState router;
   router.describe( twoPorts );
   router.change( "add vrf {name: red}" );
   const struct {
      const char *change, *warning;
   } cases[] = {
        { "{prefix: 192.0.2.0/24, via: 10.9.9.9}",
          "route 192.0.2.0/24: accepted; no interface reaches next hop 10.9.9.9, and its packets are dropped" },
        { "{prefix: 192.0.2.0/24, via: [10.0.1.2, 10.0.1.2%Ethernet2]}",
          "route 192.0.2.0/24: accepted; next hop 10.0.1.2 is on no subnet of Ethernet2, and its packets go by the "
          "other next hops" },
        { "{prefix: 192.0.2.0/24, vrf: red, via: 10.0.1.2%Ethernet1}",
          "route 192.0.2.0/24 in VRF red: accepted; Ethernet1 is in VRF default, and its packets are dropped" },
        { "{prefix: 192.0.2.0/24, via: Tunnel9}",
          "route 192.0.2.0/24: accepted; interface Tunnel9 does not exist, and its packets are dropped" },
        { "{prefix: 192.0.2.0/24, receive: Ethernet9}",
          "route 192.0.2.0/24: accepted; interface Ethernet9 does not exist, and its packets are dropped" },
        { "{prefix: 192.0.2.0/24, via: [10.0.1.2*3, 10.0.2.2]}",
          "route 192.0.2.0/24: accepted; weights have no effect: each next hop gets an equal share" },
        { "{prefix: 192.0.2.0/24, via: [10.0.1.2*3, 10.0.2.2*3]}", "" },
   };
   for ( const auto & given : cases ) {
      EXPECT_EQ( router.change( std::string( "replace route " ) + given.change ), given.warning );
      // What is in force is taken as well.
      EXPECT_EQ( router.change( std::string( "replace route " ) + given.change ), given.warning );
   }
   EXPECT_EQ( router.describe( std::string( twoPorts ) + "routes: [{prefix: 192.0.2.0/24, via: 10.9.9.9}]\n" ),
              Lines{ "router.yaml:8: route 192.0.2.0/24: accepted; no interface reaches next hop 10.9.9.9, and its "
                     "packets are dropped" } );
}

TEST( HostState, aVrfTakesItsRoutesAlongAndItsNumberIsFreeAgain ) {
   HostedState router;
   router.change( "add vrf {name: red}" );
   router.change( "add route {prefix: 192.0.2.0/24, vrf: red, blackhole: true}" );
   router.change( "add route {prefix: 192.0.2.0/24, blackhole: true}" );
   EXPECT_EQ( router.change( "del vrf {name: red}" ), "" );
   EXPECT_EQ( router.routes(), Lines{ "192.0.2.0/24 drop (command)" } );
   router.change( "add vrf {name: blue}" );
   EXPECT_EQ( router.state.vrfBook().id( L3::VrfName( "blue" ) ), 1u );
}

} // namespace
