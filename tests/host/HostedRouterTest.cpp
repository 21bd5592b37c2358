// What the data plane gets of what the router is told.
#include "HostTestRouter.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;

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

} // namespace
