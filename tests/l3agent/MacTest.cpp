// The router's MACs: the copies that are kept and verified, and the virtual ones on the layer-2 interfaces.
#include "Engine.h"
#include "VexRoutingStatusSm.h"
#include "VexVrrpSm.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;

const auto macA = mac( "00:1c:73:00:00:0a" ), macB = mac( "00:1c:73:00:00:0b" ), none = Kynet::EthAddr();

class RouterMacs : public testing::Test {
 protected:
   Gant::Ptr< Hul::HulCommonSmData > csd = Gant::make< Hul::HulCommonSmData >();
   Gant::Ptr< VexL3Unicast::RoutingStatus > model = VexL3Unicast::routingStatusFactory( "routingStatus" );
   Gant::Ptr< Bridging::Config > bridging = Gant::make< Bridging::Config >();
   Gant::Ptr< VexL3Unicast::RoutingStatusSm > make() { return VexL3Unicast::RoutingStatusSmIs( csd, model, bridging ); }
};

TEST_F( RouterMacs, eachGoesFromNoneToAValueAndBack ) {
   bridging->bridgeMacAddrIs( macA );
   model->routerMacIs( macA );
   const auto sm = make();
   EXPECT_TRUE( sm->initialized() );
   EXPECT_EQ( sm->routerMac(), macA );
   EXPECT_EQ( sm->bridgeMac(), macA );
   EXPECT_EQ( sm->virtualRouterMac(), none );
   model->virtualRouterMacIs( macB );
   EXPECT_EQ( sm->virtualRouterMac(), macB );
   model->virtualRouterMacIs( none );
   model->routerMacIs( none );
   EXPECT_EQ( sm->virtualRouterMac(), none );
   EXPECT_EQ( sm->routerMac(), none );
   bridging->bridgeMacAddrIs( none );
   EXPECT_EQ( sm->bridgeMac(), none );
   // Without a bridge MAC any router MAC will do.
   model->routerMacIs( macB );
   EXPECT_EQ( sm->routerMac(), macB );
}

TEST_F( RouterMacs, whatChangedInSilenceIsCaughtUpWith ) {
   bridging->bridgeMacAddrIs( macA );
   model->routerMacIs( macA );
   const auto sm = make();
   sm->hasNotificationActiveIs( false );
   model->routerMacIs( none );
   bridging->bridgeMacAddrIs( none );
   bridging->bridgeMacAddrIs( macB );
   model->routerMacIs( macB );
   EXPECT_EQ( sm->routerMac(), macA );
   sm->hasNotificationActiveIs( true );
   EXPECT_EQ( sm->routerMac(), macB );
   EXPECT_EQ( sm->bridgeMac(), macB );
}

class VirtualMacs : public testing::Test {
 protected:
   VirtualMacs() {
      engine.port( "Ethernet1" );
      engine.tunnel( "Tunnel1" );
      engine.take();
   }
   void set( const char * name, bool wanted ) {
      status->vrrpVirtualMacIs( Routing::Fhrp::VirtualRouterMac( intf( name ), vrrp ), wanted );
   }
   const Kynet::EthAddr vrrp = mac( "00:00:5e:00:01:0a" );
   Engine engine;
   Gant::Ptr< Routing::Fhrp::VirtualRouterMacStatus > status = Gant::make< Routing::Fhrp::VirtualRouterMacStatus >();
   Gant::Ptr< Routing::Fhrp::Hardware::Status > hw = Gant::make< Routing::Fhrp::Hardware::Status >();
};

TEST_F( VirtualMacs, reachTheInterfaceAndLeaveIt ) {
   set( "Ethernet1", true );
   const auto sm = VexL3Unicast::VexVrrpSmIs( engine.vexcsd, status, hw );
   EXPECT_TRUE( hw->anygwSupported() && hw->vrrpSupported() && !hw->useUniqueGroupIds() );
   EXPECT_EQ( hw->vrrpSupportedMaxNum(), 128u );
   const auto added = lines( "EtherClassify_et1 addVirtualMac mac_addr 00:00:5e:00:01:0a" );
   const auto removed = lines( "EtherClassify_et1 removeVirtualMac mac_addr 00:00:5e:00:01:0a" );
   EXPECT_EQ( engine.take(), added );
   set( "Ethernet1", false );
   EXPECT_EQ( engine.take(), removed );
   set( "Ethernet1", true );
   EXPECT_EQ( engine.take(), added );
   status->vrrpVirtualMacDel( Routing::Fhrp::VirtualRouterMac( intf( "Ethernet1" ), vrrp ) );
   EXPECT_EQ( engine.take(), removed );
   // One that went in silence.
   set( "Ethernet1", true );
   sm->hasNotificationActiveIs( false );
   status->vrrpVirtualMacDel( Routing::Fhrp::VirtualRouterMac( intf( "Ethernet1" ), vrrp ) );
   engine.take();
   sm->hasNotificationActiveIs( true );
   EXPECT_EQ( engine.take(), removed );
}

TEST_F( VirtualMacs, areNotForTunnelsAndNotRememberedForInterfacesThatAreNotThere ) {
   const auto sm = VexL3Unicast::VexVrrpSmIs( engine.vexcsd, status, hw );
   set( "Tunnel1", true );
   set( "Ethernet2", true );
   engine.port( "Ethernet2" );
   EXPECT_EQ( engine.channel->takeOf( { "EtherClassify_et2 addVirtualMac" } ), Lines{} );
   sm->handleVrrpMac();
   EXPECT_EQ( engine.take(), lines( "EtherClassify_et2 addVirtualMac mac_addr 00:00:5e:00:01:0a" ) );
}

} // namespace
