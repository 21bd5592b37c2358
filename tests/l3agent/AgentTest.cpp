#include "AgentRouter.h"
#include "GantTrace.h"
#include "HulL3Status.h"
#include "HulNatSm.h"
#include "StateIpNat.h"
#include "VexL3TunnelTypes.h"
#include "VexNatHelper.h"
#include "VexRoutingStatusSm.h"
#include "VexVrrpSm.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;
using namespace VexL3Unicast;

TEST( Agent, phaseOneMakesTablesAndTellsTheDataPlaneOfIpsecOnly ) {
   RouterState state;
   RouterAgent router( state );
   router.take();
   router.agent->initializedIs( true );
   const auto & agent = *router.agent;
   EXPECT_EQ( router.channel->takeOf( { "create", "connect" } ), lines( R"(
      create ipsecManagementModule IpsecManagement max_ipsec_sas 1024 max_ipsec_policies 1024
      create ipsecInTunnelModule IpsecTunnelIngress
   )" ) );
   ASSERT_TRUE( agent.l3Modules() );
   EXPECT_EQ( agent.l3Modules()->nextHopMods(), 0u );
   EXPECT_FALSE( agent.routeDb() || agent.l3Sm() );
   EXPECT_EQ( agent.hulL3Status()->hulL3IntfTable(), agent.hulL3IntfTable() );
   EXPECT_EQ( agent.vrfCapability(), state.routingMounts->routingHwStatus()->vrfCapability() );

   // A set to the same value runs nothing; one back to false runs the phase again.
   const auto l3Modules = agent.l3Modules();
   router.agent->initializedIs( true );
   EXPECT_EQ( agent.l3Modules(), l3Modules );
   router.agent->initializedIs( false );
   EXPECT_NE( agent.l3Modules(), l3Modules );
}

// The state that the others start with has these, and no other of the 19.
TEST( Agent, stopsWithTheirPathsWhereEntitiesThatItWritesAreMissing ) {
   for ( const auto & [ path, condition ] : { std::pair( "interface/errdisable/cause/acl", "aclCauseStatus\\(\\)" ),
                                              std::pair( "ip/nat/hwCapabilities", "natHwCapabilities\\(\\)" ),
                                              std::pair( "cell/1/acl/status/dp/vex", "aclStatusDp\\(\\)" ) } ) {
      RouterState state;
      state.em->entityIs( path, nullptr );
      RouterAgent router( state );
      EXPECT_DEATH( router.agent->initializedIs( true ),
                    std::string( "Failed\\(" ) + condition + "\\) " + path + " \\[VexL3AgentSm:" );
   }
}

TEST( Agent, phaseTwoMakesTheFibAndRunsOnce ) {
   RouterState state;
   RouterAgent router( state );
   router.agent->initializedIs( true );
   router.take();
   router.start();
   EXPECT_EQ(
        router.channel->takeOf( { "create" } ),
        lines(
             "create fibIpv4 FibIpv4 max_rules 1048576 max_tbl8s 2048\n create ForUsClassifyIpv4 ForUsClassifyIpv4" ) );
   const auto l3Sm = router.agent->l3Sm();
   const auto & nat = router.agent->natHwCapabilities();
   nat->natSupportedIs( false );
   router.agent->maybeStartProcessing();
   EXPECT_TRUE( nat->natSupported() );
   EXPECT_EQ( router.agent->l3Sm(), l3Sm );
   EXPECT_EQ( Gant::traceLines( 1, "VexL3AgentSm" ).back().text,
              "AgentSm::maybeStartProcessing Agent processing has already started" );
}

// Everything that a router of two interfaces and an ECMP route is to the data plane.
class RoutedAgent : public testing::Test {
 protected:
   RoutedAgent() {
      state.vrf( "default", 0 );
      for ( const char * name : { "Ethernet1", "Ethernet2" } ) state.intf( name );
      state.neighbor( "Ethernet1", "10.0.1.2", "00:00:00:00:01:02" );
      state.fec( 1, { viaTo( "10.0.1.2", "Ethernet1" ), viaTo( "10.0.2.2", "Ethernet2" ) } );
      state.route( "192.0.2.0/24", 1 );
   }
   void start() {
      for ( const char * name : { "Ethernet1", "Ethernet2" } ) router.port( name );
      router.start();
      router.drained();
   }
   // Each of the beginnings is that of a line, the first of which comes before the first of the next.
   static void expectOrder( const Lines & all, std::initializer_list< const char * > beginnings ) {
      long last = -1;
      for ( const char * begin : beginnings ) {
         const auto at = std::ranges::find_if( all, [ & ]( const auto & line ) { return line.starts_with( begin ); } );
         ASSERT_NE( at, all.end() ) << begin;
         EXPECT_LT( last, at - all.begin() ) << begin;
         last = at - all.begin();
      }
   }
   RouterState state;
   RouterAgent router{ state };
};

TEST_F( RoutedAgent, stateBecomesCommandsInTheContractsOrder ) {
   for ( const char * name : { "Ethernet1", "Ethernet2" } ) router.port( name );
   router.take();
   router.start();
   const auto all = router.drained();
   const char * const fec = "fibIpv4 addFec fec_id 3 nh_info {gate 2 nh_index 1} nh_info {gate 3 nh_index 1}";
   expectOrder( all, { "fibIpv4 addVrf vrf 0", "create NextHop_et1",
                       "NextHop_et1 writeNH nexthopinfo {nh_index 1 mac_da 00:00:00:00:01:02 pkt_cmd 1}", fec,
                       "fibIpv4 addRoute vrf 0 prefix 192.0.2.0 prefix_len 24 fec_id 3" } );
   expectOrder( all, { "NextHop_et2 writeNH nexthopinfo {nh_index 1 pkt_cmd 0}", fec } );
}

TEST_F( RoutedAgent, anInterfaceThatGoesTakesItsNextHopsAlongBeforeItsModules ) {
   start();
   state.intfDel( "Ethernet1" );
   expectOrder( router.drained(), { "NextHop_et1 deleteNH nexthopinfo {nh_index 1}", "destroy NextHop_et1" } );
   EXPECT_FALSE( router.agent->l3Modules()->nextHopModHas( intf( "Ethernet1" ) ) );
}

class StartUp : public testing::Test {
 protected:
   RouterState state;
   RouterAgent router{ state };
   VexL3Unicast::AgentSm & agent = *router.agent;
};

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
