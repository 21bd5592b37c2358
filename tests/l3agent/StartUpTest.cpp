// What stands after each phase of the start, and what each object was given.
#include "AgentRouter.h"
#include "HulIntfStatusSm.h"
#include "HulNatSm.h"
#include "StateIpNat.h"
#include "VexCommonData.h"
#include "VexL3FecVersionSm.h"
#include "VexL3TunnelTypes.h"
#include "VexL3UnicastCapacity.h"
#include "VexNatHelper.h"
#include "VexRoutingStatusSm.h"
#include "VexVrrpSm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace Test;

class StartUp : public testing::Test {
 protected:
   RouterState state;
   RouterAgent router{ state };
   VexL3Unicast::AgentSm & agent = *router.agent;
};

TEST_F( StartUp, phaseOneMakesNatAndPhaseTwoWhatNeedsTheRoutes ) {
   agent.initializedIs( true );
   EXPECT_TRUE( agent.natHelper() && agent.nhMapConfig() && agent.nhMapStatus() && agent.natRouteResolverSm() &&
                agent.natSm() );
   EXPECT_FALSE( agent.tunnelDb() || agent.fecVersionSm() || agent.routingStatusSm() || agent.vexVrrpSm() ||
                 agent.capacitySm() );
   agent.maybeStartProcessing();
   EXPECT_TRUE( agent.tunnelDb() && agent.fecVersionSm() && agent.routingStatusSm() && agent.vexVrrpSm() &&
                agent.capacitySm() );
   // Never its own doing.
   EXPECT_FALSE( agent.natLoopbackSm() || agent.hulTunnelSm() || agent.vxlanTunnelConfigDir() );
}

TEST_F( StartUp, eachObjectGetsWhatWasThereWhenItWasMade ) {
   router.start();
   EXPECT_EQ( agent.natHelper()->hulL3IntfTable(), agent.hulL3IntfTable() );
   EXPECT_EQ( agent.natHelper()->vexcsd(), router.vexcsd );
   EXPECT_TRUE( agent.natHelper()->hwInitialized() );
   EXPECT_EQ( agent.nhMapConfig()->name(), "NatNextHopConfig" );
   EXPECT_EQ( agent.nhMapStatus()->name(), "NatNextHopStatus" );
   EXPECT_EQ( agent.natRouteResolverSm()->l3Status(), agent.hulL3Status() );
   EXPECT_EQ( agent.natSm()->args().natHelper, agent.natHelper() );
   EXPECT_TRUE( agent.natSm()->start() );
   EXPECT_EQ( agent.l3Sm()->tunnelDb(), agent.tunnelDb() );
   EXPECT_EQ( agent.fecVersionSm()->name(), "fecVersionSm" );
   EXPECT_EQ( agent.fecVersionSm()->hulVrfRootSm(), agent.hulVrfRootSm() );
   EXPECT_EQ( agent.routingStatusSm()->hulcsd(), router.vexcsd );
   EXPECT_EQ( agent.routingStatusSm()->verifyData(), router.vexcsd->verifyData() );
   // It comes before the helper of adjacencies.
   EXPECT_FALSE( agent.hulIntfStatusSm()->args().hulL2AdjHelper );
   EXPECT_EQ( agent.capacitySm()->agentSm(), &agent );
   EXPECT_EQ( agent.capacitySm()->clock(), Gant::activityManager()->clock() );
}

TEST_F( StartUp, theCapacityTableDeclaresOneFeatureWithoutNumbers ) {
   router.start();
   agent.capacitySm()->handleClock();
   const auto & entries = state.capacityStatus->entryIterator();
   ASSERT_EQ( entries.size(), 1u );
   EXPECT_EQ( entries.begin()->first, HulCapacity::TableKey( "NextHop", "VexL3UnicastCapacity", "" ) );
   EXPECT_EQ( entries.begin()->second, HulCapacity::TableEntry( 0, 0, 0, 0 ) );
}

TEST_F( StartUp, silenceReachesEveryStateMachine ) {
   router.start();
   agent.natLoopbackSmIs();
   const auto all = [ & ] {
      return std::vector< bool >{
           agent.routingStatusSm()->hasNotificationActive(),    agent.vexVrrpSm()->hasNotificationActive(),
           agent.natRouteResolverSm()->hasNotificationActive(), agent.natSm()->hasNotificationActive(),
           agent.natLoopbackSm()->hasNotificationActive(),      agent.fecVersionSm()->hasNotificationActive(),
           agent.capacitySm()->hasNotificationActive() };
   };
   agent.hasNotificationActiveIs( false );
   EXPECT_THAT( all(), testing::Each( false ) );
   agent.hasNotificationActiveIs( true );
   EXPECT_THAT( all(), testing::Each( true ) );
}

TEST_F( StartUp, theHostsObjectsAreMadeAndKeptByName ) {
   agent.initializedIs( true );
   const auto dir = agent.vxlanTunnelConfigDirIs( "tunnels" );
   EXPECT_EQ( dir->name(), "tunnels" );
   EXPECT_EQ( agent.vxlanTunnelConfigDirIs( "tunnels" ), dir );
   EXPECT_NE( agent.vxlanTunnelConfigDirIs( "others" ), dir );
   EXPECT_EQ( agent.vxlanHerTunnelStatusDirIs( "her" )->name(), "her" );
   EXPECT_EQ( agent.natLoopbackSmIs()->hulL3IntfTable(), agent.hulL3IntfTable() );
   const auto shared = Gant::make< Vex::NatSharedData >( "nat" );
   agent.natSharedIs( shared );
   EXPECT_EQ( agent.natShared(), shared );
}

// Held from outside, so that what goes when can be seen.
TEST_F( StartUp, atItsEndTheAgentLetsGoOfEverything ) {
   router.start();
   const auto tunnelDb = agent.tunnelDb();
   const auto natHelper = agent.natHelper();
   const auto routingStatus = agent.routingStatus();
   const auto vrrp = agent.vexVrrpSm();
   router.agent = nullptr;
   EXPECT_EQ( tunnelDb->references(), 1u );
   EXPECT_EQ( natHelper->references(), 1u );
   EXPECT_EQ( routingStatus->references(), 1u );
   EXPECT_EQ( vrrp->references(), 1u );
}

} // namespace
