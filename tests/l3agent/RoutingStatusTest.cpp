#include "Engine.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;

class RoutingStatusFacts : public testing::Test {
 protected:
   void SetUp() override {
      core.port( "Ethernet1" );
      core.take();
   }
   HulHelper::RoutingStatusSmHelper & helper() { return *core.routingStatusHelper; }
   Gant::Ptr< VexL3Unicast::VlanRoutingStatus > entry( U16 vlan ) const {
      return core.routingStatus->vlanRoutingStatus( Bridging::VlanId( vlan ) );
   }
   const Kynet::IntfId et1 = intf( "Ethernet1" );
   L3Core core;
};

TEST_F( RoutingStatusFacts, anInterfaceIsMadeChangedAndRemoved ) {
   helper().handleL3Intf( et1, 4094, 1500, true, false, Hul::VrfId( 2 ) );
   ASSERT_TRUE( core.vexcsd->l3IntfHas( et1 ) );
   EXPECT_EQ( core.vexcsd->l3Intf( et1 )->vrfId(), 2u );
   EXPECT_EQ( entry( 4094 )->genId(), 1u );
   EXPECT_EQ( entry( 4094 )->intfId(), et1 );
   EXPECT_TRUE( entry( 4094 )->vrfIdValid() );
   core.take();

   helper().handleL3Intf( et1, 4094, 9000, true, true, Hul::VrfId( 3 ) );
   EXPECT_EQ( core.take(), lines( "IpOutput_et1 setMtu ip_mtu 9000" ) );
   EXPECT_EQ( core.vexcsd->l3Intf( et1 )->ipMtu(), 9000u );
   // A change of VRF goes only into the model.
   EXPECT_EQ( core.vexcsd->l3Intf( et1 )->vrfId(), 2u );
   EXPECT_EQ( entry( 4094 )->vrfId(), 3u );

   // Without its output module, the interface still takes the MTU.
   core.l3Modules->ipOutputModDel( et1 );
   core.take();
   helper().handleL3Intf( et1, 4094, 1400, true, true, Hul::VrfId( 3 ) );
   EXPECT_EQ( core.take(), Lines{} );
   EXPECT_EQ( core.vexcsd->l3Intf( et1 )->ipMtu(), 1400u );

   helper().handleL3Intf( et1, 4094, 0, false, false, Hul::VrfId( 2 ) );
   EXPECT_FALSE( core.vexcsd->l3IntfHas( et1 ) );
   EXPECT_FALSE( entry( 4094 ) );
   helper().handleL3Intf( et1, 4094, 0, false, false, Hul::VrfId( 2 ) );
   EXPECT_DEATH( helper().handleL3Intf( et1, 4094, 1500, true, true, Hul::VrfId( 2 ) ), "Failed\\(!update\\)" );
}

TEST_F( RoutingStatusFacts, routingIsEnabledOnlyForAVlanThatIsThere ) {
   const Hul::RoutingState state( true, false, true, false );
   helper().enableVlanRouting( et1, 4094, state );
   EXPECT_FALSE( entry( 4094 ) );
   helper().handleL3Intf( et1, 4094, 1500, true, false, Hul::VrfId( 0 ) );
   EXPECT_FALSE( entry( 4094 )->routingStateValid() );
   helper().enableVlanRouting( et1, 4094, state );
   EXPECT_EQ( entry( 4094 )->routingState(), state );
   EXPECT_TRUE( entry( 4094 )->routingStateValid() );
   EXPECT_EQ( entry( 4094 )->genId(), 2u );
   for ( const U32 none : { 0x10000u, 4095u } ) helper().enableVlanRouting( et1, none, state );
   EXPECT_DEATH( helper().enableVlanRouting( et1, 0, state ), "Failed\\(vlanId\\)" );
}

TEST_F( RoutingStatusFacts, anMssIsRememberedUntilThereIsAModule ) {
   helper().handleTcpMssEgress( et1, 1360 );
   helper().handleTcpMssIngress( et1, 1340 );
   EXPECT_EQ( core.take(), Lines{} );
   helper().handleL3Intf( et1, 4094, 1500, true, false, Hul::VrfId( 0 ) );
   EXPECT_EQ( core.channel->takeOf( { "create Ip" } ),
              lines( "create IpOutput_et1 IpOutput ip_mtu 1500 mss 1360 do_mss_checksum true\n"
                     "create IpInput_et1 IpInput mss 1340 do_mss_checksum true" ) );
   helper().handleTcpMssEgress( et1, 1240 );
   helper().handleTcpMssIngress( et1, 0 );
   EXPECT_EQ( core.take(), lines( "IpOutput_et1 setTcpMssAdjust mss 1240 do_mss_checksum true\n"
                                  "IpInput_et1 setTcpMssAdjust mss 0 do_mss_checksum true" ) );
   core.l3Modules->ipInputModDel( et1 );
   EXPECT_DEATH( helper().handleTcpMssIngress( et1, 1 ), "Failed\\(ipInputMod\\)" );
}

} // namespace
