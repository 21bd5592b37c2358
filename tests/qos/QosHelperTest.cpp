#include "Engine.h"
#include "GantTrace.h"
#include "Rules.h"
#include "VexQosAclHelper.h"
#include "VexQosLog.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;
using Hul::AclKey;
using Qos::MapType;
using MatchOption = Qos::ClassMapMatchOption;

constexpr auto byIpList = MatchOption::matchIpAccessGroup_;

// The helper alone, called as the layer calls it: one policy with one class of one list.
class QosHelperCalls : public testing::Test {
 protected:
   QosHelperCalls() {
      engine.vexcsd->kyAclDbIs( Gant::make< Vex::KyAclDb >( engine.enginePair ) );
      engine.port( "Ethernet1" );
      helper->hwInit();
      engine.take();
      matchData->aclDataIs( key, Gant::make< Hul::AclData >( key ) );
      classData->matchDataIs( byIpList, matchData );
      classData->actionDataIs( 3, Hul::QosActionData( 46 ) );
      state->activeIntfIs( Qos::IntfPairKey( intf( "Ethernet1" ), Kynet::IntfId() ), true );
      state->versionIs( 7 );
   }
   void rule( U32 number ) {
      helper->createIpAclSubrule( Acl::ip, RuleOf(), Acl::UniqueId( number, 0, 0 ), state, classData, key, number, 0,
                                  {} );
   }
   void build() {
      EXPECT_EQ( helper->precreateAcl( state, classData, byIpList, key ), Hul::aclCreateErrorNone );
      rule( 10 );
   }
   static Gant::String lastTrace() { return Gant::traceLines( 1, "VexQosAclHelper" ).back().text; }
   Vex::VexQosReturnCode found() { return helper->getData( state->key(), classData->key(), key ); }

   Engine engine;
   Gant::Ptr< Qos::AclHwStatus > hwStatus = Gant::make< Qos::AclHwStatus >();
   Gant::Ptr< Vex::QosAclHelper > helper =
        Gant::make< Vex::QosAclHelper >( nullptr, nullptr, nullptr, hwStatus, engine.vexcsd, nullptr );
   AclKey key{ "l", Acl::ip, Acl::in, 0 };
   Gant::Ptr< Hul::QosClassMatchData > matchData = Gant::make< Hul::QosClassMatchData >();
   Gant::Ptr< Hul::QosClassData > classData =
        Gant::make< Hul::QosClassData >( Hul::QosClassDataKey( "p", MapType::mapQos(), "c", MapType::mapQos() ) );
   Gant::Ptr< Hul::QosPolicyMapState > state = Gant::make< Hul::QosPolicyMapState >(
        Hul::QosPolicyMapKey( "p", MapType::mapQos(), Qos::Direction::input(), "Default" ) );
};

TEST_F( QosHelperCalls, aPolicyGoesTableFirstAndOncePerPass ) {
   build();
   helper->createDefaultRule( state, classData, byIpList, key );
   EXPECT_EQ( engine.take(), Lines{} );
   helper->batchCommitAcls( state );
   EXPECT_EQ( brief( engine.take() ), lines( R"(
      kyAclDb createPolicy acl_id 0 acl_target 1 rule {counter_id 0 action_dscp true dscp_data 46} rule {counter_id 1 action_dscp true dscp_data 46}
      create PQos_Rx_et1 PolicyQos ingress true intf_id Ethernet1 policy_version 7
      PQos_Rx_et1 applyServicePolicy policy_id 0
   )" ) );
   EXPECT_EQ( engine.counters->counterIterator().at( Vex::CounterId( 0 ) ).name, "qosPolicy-p-c-l-10" );
   EXPECT_EQ( engine.counters->counterIterator().at( Vex::CounterId( 1 ) ).name, "qosPolicy-p-c-l-0" );
   helper->batchCommitAcls( state );
   EXPECT_EQ( engine.take(), Lines{} );
   // Another pass makes another table under the id; a rule that left keeps its counter.
   helper->precreateAcl( state, classData, byIpList, key );
   EXPECT_EQ( found().qosacl()->ruleIds(), 0u );
   rule( 20 );
   helper->batchCommitAcls( state );
   EXPECT_EQ( brief( engine.take() ),
              Lines{ "kyAclDb createPolicy acl_id 0 acl_target 1 rule {counter_id 2 action_dscp true dscp_data 46}" } );
   EXPECT_EQ( found().qosacl()->counterIds(), 3u );
   EXPECT_FALSE( helper->ipSubruleExists( classData, key, Acl::UniqueId( 10, 0, 0 ), 10, 0 ) );
   EXPECT_TRUE( helper->ipSubruleExists( classData, key, Acl::UniqueId( 20, 0, 0 ), 20, 0 ) );
   EXPECT_EQ( helper->counterUpdateRequest( classData, key ).pktHits(), 0u );
}

TEST_F( QosHelperCalls, mapsOfOtherTypesAreLeftAlone ) {
   const auto other = Gant::make< Hul::QosPolicyMapState >(
        Hul::QosPolicyMapKey( "p", MapType::mapPdp(), Qos::Direction::input(), "Default" ) );
   EXPECT_EQ( helper->precreateAcl( other, classData, byIpList, key ), Hul::aclCreateErrorNone );
   helper->batchCommitAcls( other );
   EXPECT_EQ( lastTrace(), "QosAclHelper:: mapType not supported mapPdp" );
   EXPECT_EQ( helper->qosPolicys(), 0u );
   EXPECT_EQ( engine.take(), Lines{} );
}

TEST_F( QosHelperCalls, aModuleFollowsItsInterface ) {
   const auto up = [ & ] {
      engine.vexcsd->l3IntfIs( intf( "Ethernet1" ), Hul::VrfId( 0 ), engine.vexcsd->l2Intf( intf( "Ethernet1" ) ),
                               1500 );
   };
   build();
   helper->batchCommitAcls( state );
   const auto attached = helper->qosPolicy( state->key() )->attachedIntf( intf( "Ethernet1" ) );
   EXPECT_FALSE( attached->connected() );
   engine.take();
   up();
   EXPECT_TRUE( attached->connected() );
   EXPECT_EQ( engine.take().back(), "connect EtherClassify_et1:1 -> PQos_Rx_et1:0" );
   const auto & chain = engine.vexcsd->l3Intf( intf( "Ethernet1" ) )->ingressChains().at( Vex::etherTypeIpv4 );
   EXPECT_EQ( chain.links().front().priority, 300u );
   engine.vexcsd->l3IntfDel( intf( "Ethernet1" ) );
   EXPECT_FALSE( attached->connected() );
   up();
   EXPECT_TRUE( attached->connected() );
   engine.take();
   const Qos::IntfPairKey pair( intf( "Ethernet1" ), Kynet::IntfId() );
   helper->updatePortForAcl( state, classData, byIpList, key, pair, false );
   EXPECT_EQ( engine.take(), lines( R"(
      disconnect EtherClassify_et1:2
      destroy PQos_Rx_et1
   )" ) );
   helper->updatePortForAcl( state, classData, byIpList, key, pair, false );
   EXPECT_EQ( lastTrace(), "QosAclHelper::detachPolicy intf already detached Ethernet1 version 7" );
   // The group stands for its member; without a port nothing is applied.
   helper->updatePortForAcl( state, classData, byIpList, key,
                             Qos::IntfPairKey( intf( "Ethernet1" ), intf( "Port-Channel1" ) ), true );
   EXPECT_EQ( lastTrace(), "QosAclHelper::attachPolicy intf not supported Port-Channel1" );
   EXPECT_EQ( engine.take(), Lines{} );
}

TEST_F( QosHelperCalls, onlyInputPoliciesAreApplied ) {
   const auto output = Gant::make< Hul::QosPolicyMapState >(
        Hul::QosPolicyMapKey( "p", MapType::mapQos(), Qos::Direction::output(), "Default" ) );
   output->activeIntfIs( Qos::IntfPairKey( intf( "Ethernet1" ), Kynet::IntfId() ), true );
   helper->precreateAcl( output, classData, byIpList, key );
   EXPECT_DEATH( helper->batchCommitAcls( output ),
                 "Failed\\(qospolicy->key\\(\\).direction\\(\\) == Qos::Direction::input_\\)" );
   EXPECT_EQ( Vex::QosAclHelper::getModuleName( output->key(), intf( "Ethernet1" ) ), "PQos_Tx_et1" );
}

} // namespace
