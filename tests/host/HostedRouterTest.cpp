// What the data plane gets of what the router is told.
#include "HostTestRouter.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;

// Positions of the first lines that begin so; one that is missing is a failure.
class Order {
 public:
   explicit Order( Lines lines ) : lines_( std::move( lines ) ) {}
   long operator()( const char * begin ) const {
      const auto at = std::ranges::find_if( lines_, [ & ]( const auto & l ) { return l.starts_with( begin ); } );
      EXPECT_NE( at, lines_.end() ) << begin;
      return at - lines_.begin();
   }

 private:
   Lines lines_;
};

TEST( HostedRouter, anInterfaceComesFromBelowAndGoesFromAbove ) {
   HostedRouter router;
   router.describe( twoPorts );
   router.start();
   router.drained();
   router.change( "add interface {name: Ethernet3, addresses: 10.0.3.1/24, mtu: 9000, mss: 1200}" );
   router.change( "add neighbor {interface: Ethernet3, address: 10.0.3.2, mac: '02:00:00:00:03:02'}" );
   const Order came( router.drained() );
   EXPECT_LT( came( "create PortRx_et3" ), came( "create NextHop_et3" ) );
   EXPECT_LT( came( "create IpOutput_et3 IpOutput ip_mtu 9000 mss 1200" ),
              came( "fibIpv4 addRoute vrf 0 prefix 10.0.3.0" ) );
   EXPECT_LT( came( "NextHop_et3 writeNH" ), came( "fibIpv4 addRoute vrf 0 prefix 10.0.3.2 prefix_len 32" ) );
   router.change( "del interface {name: Ethernet3}" );
   const Order went( router.drained() );
   EXPECT_LT( went( "fibIpv4 delRoute vrf 0 prefix 10.0.3.0" ), went( "destroy NextHop_et3" ) );
   EXPECT_LT( went( "fibIpv4 delRoute vrf 0 prefix 10.0.3.2" ), went( "destroy NextHop_et3" ) );
   EXPECT_LT( went( "destroy NextHop_et3" ), went( "destroy PortRx_et3" ) );
   EXPECT_FALSE( router.vexcsd->l3IntfHas( intf( "Ethernet3" ) ) || router.vexcsd->l2Intf( intf( "Ethernet3" ) ) );
}

TEST( HostedRouter, aReloadIsOnlyWhatDiffers ) {
   HostedRouter router;
   const std::string before = std::string( twoPorts ) + R"(
routes:
  - {prefix: 192.0.2.0/24, via: [10.0.1.2, 10.0.2.2]}
  - {prefix: 198.51.100.0/24, via: 10.0.1.2}
)";
   router.describe( before );
   router.start();
   router.drained();
   router.describe( before );
   EXPECT_EQ( router.drained(), Lines{} );
   router.describe( std::string( twoPorts ) + R"(
routes:
  - {prefix: 192.0.2.0/24, via: [10.0.1.2, 10.0.2.2]}
  - {prefix: 203.0.113.0/24, via: [10.0.1.2, 10.0.2.2]}
)" );
   EXPECT_EQ( router.drained(), lines( R"(
      fibIpv4 delRoute vrf 0 prefix 198.51.100.0 prefix_len 24
      fibIpv4 addRoute vrf 0 prefix 203.0.113.0 prefix_len 24 fec_id 11
   )" ) );
   router.change( "replace interface {name: Ethernet1, addresses: 10.0.1.1/24, mac: '02:00:00:00:00:01', mtu: 1400}" );
   EXPECT_EQ( router.drained(), Lines{ "IpOutput_et1 setMtu ip_mtu 1400" } );
}

TEST( HostedRouter, aTunnelStandsOverWhateverReachesItsEndAndLeavesNothing ) {
   HostedRouter router;
   router.describe( std::string( twoPorts ) + "routes: [{prefix: 198.51.100.0/24, via: 10.0.1.2}]\n" );
   router.start();
   router.drained();
   router.change( "add tunnel {name: Tunnel1, addresses: 10.255.0.1/30, source: 10.0.1.1, destination: 198.51.100.1, "
                  "key: 7, ttl: 9, tos: 4, mtu: 1400}" );
   router.change( "add route {prefix: 10.128.0.0/16, via: Tunnel1}" );
   const auto came = router.drained();
   EXPECT_LT( Order( came )( "create Ip4GreTun_tu1 Ip4GreTun ip_encap_arg {proto 47 tun_src_ip 10.0.1.1 tun_dst_ip "
                             "198.51.100.1 tun_tos 4 tun_ttl 9} gre_key 7" ),
              Order( came )( "fibIpv4 addRoute vrf 0 prefix 10.128.0.0 prefix_len 16" ) );
   EXPECT_GT( Order( came )( "NhResolve_tu1 addNhResolveEntry" ), 0 );
   router.change( "del route {prefix: 10.128.0.0/16}" );
   router.change( "del tunnel {name: Tunnel1}" );
   const Order went( router.drained() );
   for ( const char * gone : { "destroy Ip4GreTun_tu1", "destroy Ip4GreTunCp_tu1", "destroy NhResolve_tu1",
                               "destroy IpInput_tu1", "destroy IpOutput_tu1", "destroy PortRxCp_tu1" } )
      EXPECT_GE( went( gone ), 0 );
}

TEST( HostedRouter, aMacOfTheRouterComesOverNoneAndLeavesInterfacesTheirOwn ) {
   HostedRouter router;
   router.describe( "router: {mac: 02:00:00:aa:00:01}\n" + std::string( twoPorts ) + "" );
   router.change( "add interface {name: Ethernet3}" );
   router.start();
   router.drained();
   for ( const char * refused : { "replace router {mac: '02:00:00:aa:00:02'}",
                                  "replace router {mac: '02:00:00:aa:00:01', bridge-mac: '02:00:00:aa:00:02'}" } )
      EXPECT_NE( router.change( refused ), "" );
   EXPECT_EQ( router.drained(), Lines{} );
   EXPECT_EQ( router.change( "del router {}" ), "" );
   EXPECT_EQ( router.change( "add router {mac: '02:00:00:aa:00:02', bridge-mac: '02:00:00:aa:00:02'}" ), "" );
   const auto sent = router.drained();
   const auto last = [ & ]( const std::string & begin ) {
      const auto at =
           std::find_if( sent.rbegin(), sent.rend(), [ & ]( const auto & l ) { return l.starts_with( begin ); } );
      return at == sent.rend() ? std::string() : *at;
   };
   EXPECT_EQ( last( "NextHop_et1 setSrcMacAddr" ), "NextHop_et1 setSrcMacAddr mac_addr 02:00:00:00:00:01" );
   EXPECT_EQ( last( "NextHop_et3 setSrcMacAddr" ), "NextHop_et3 setSrcMacAddr mac_addr 02:00:00:aa:00:02" );
}

TEST( HostedRouter, anIpv6RouteIsTakenAndShownAsNotProgrammed ) {
   HostedRouter router;
   router.describe( twoPorts );
   router.start();
   router.drained();
   EXPECT_EQ( router.change( "add route {prefix: '2001:db8::/32', via: 'fe80::1%Ethernet1'}" ), "" );
   router.drained();
   EXPECT_EQ( router.state.tree().fib6->routes(), 1u );
   EXPECT_EQ( router.session->unprogrammed6->routes(), 1u );
   EXPECT_EQ( router.change( "del route {prefix: '2001:db8::/32'}" ), "" );
   router.drained();
   EXPECT_EQ( router.session->unprogrammed6->routes(), 0u );
}

// An agent that comes later finds everything in the state, whatever has happened to it before.
TEST( HostedRouter, aNewAgentIsFedAsTheFirstOneWas ) {
   const std::string description = "vrfs: [red]\n" + std::string( twoPorts ) + R"(
tunnels: [{name: Tunnel1, addresses: 10.255.0.1/30, source: 10.0.1.1, destination: 198.51.100.1, underlay: default}]
routes:
  - {prefix: 0.0.0.0/0, via: [10.0.1.2, 10.0.2.2]}
  - {prefix: 10.128.0.0/16, via: Tunnel1}
  - {prefix: 192.0.2.0/24, vrf: red, blackhole: true}
)";
   HostedRouter changed, fresh;
   changed.start();
   changed.describe( description );
   changed.drained();
   changed.agent = nullptr;
   changed.ports = nullptr;
   fresh.describe( description );
   Lines sent[ 2 ];
   for ( auto * const router : { &changed, &fresh } ) {
      Engine engine;
      const auto ports = Gant::make< Host::PortSm >( router->state.tree().portDir, engine.vexcsd, engine.enginePair );
      router->vexcsd = engine.vexcsd;
      router->start();
      while ( Gant::activityManager()->poll() != 0 ) {
      }
      sent[ router == &fresh ] = engine.take();
      router->agent = nullptr;
      router->ports = nullptr;
   }
   EXPECT_EQ( sent[ 0 ], sent[ 1 ] );
   EXPECT_GT( sent[ 0 ].size(), 50u );
}

} // namespace
