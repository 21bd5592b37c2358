// Policies from the user's maps and bindings to the data plane's commands.
#include "Engine.h"
#include "HulQosAclSm.h"
#include "Rules.h"
#include "StateAclCheck.h"
#include "VexQosAclHelper.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;
using Acl::ListKey;
using Acl::RangeOper;
using Qos::ActionType;

class QosRouter : public testing::Test {
 protected:
   QosRouter() {
      engine.vexcsd->kyAclDbIs( Gant::make< Vex::KyAclDb >( engine.enginePair ) );
      for ( const char * name : { "Ethernet1", "Ethernet2" } ) {
         engine.port( name );
         engine.vexcsd->l3IntfIs( intf( name ), Hul::VrfId( 0 ), engine.vexcsd->l2Intf( intf( name ) ), 1500 );
      }
      addList( "voice", { udp().dport( RangeOper::range_, { 16384, 32767 } ) } );
      addList( "web", { tcp( Acl::deny ).from( "10.0.0.1" ), tcp().dport( RangeOper::eq_, { 80 } ) } );
      status->classMapIs( "voice", { .accessLists = { "voice" } } );
      status->classMapIs( "web", { .accessLists = { "web" } } );
      status->policyMapIs( "edge", { { { "voice", { { ActionType::actionSetDscp_, 46 } } },
                                       { "web", { { ActionType::actionSetTc_, 2 } } },
                                       { Qos::classDefault, { { ActionType::actionSetDscp_, 0 } } } } } );
      status->policyMapIs( "other", { { { "web", { { ActionType::actionSetTc_, 1 } } } } } );
      sm->startIs( true );
      drained();
   }
   void addList( const char * name, std::initializer_list< Acl::RuleConfig > rules ) {
      config->aclConfigIs( ListKey( Acl::ip, name ), list( name, rules ) );
   }
   void bind( const char * name, const char * policyMap, Qos::Direction direction = Qos::Direction::input() ) {
      status->servicePolicyIs( Qos::ServicePolicyKey( intf( name ), direction ), policyMap );
   }
   void unbind( const char * name ) {
      status->servicePolicyDel( Qos::ServicePolicyKey( intf( name ), Qos::Direction::input() ) );
   }
   Lines drained() {
      while ( Gant::activityManager()->poll() != 0 ) {
      }
      return brief( engine.take() );
   }
   Lines pending() const {
      Lines out;
      for ( const auto & [ object, reason ] : sm->pending() ) out.push_back( object + ": " + reason );
      return out;
   }
   size_t tablesAndCounters() const {
      return helper->qosPolicys() + engine.counters->counterIterator().size() +
             ( Vex::KyAclDb::maxAcls() - engine.vexcsd->kyAclDb()->freeAclIds() );
   }

   Engine engine;
   Gant::Ptr< Acl::Config > config = Gant::make< Acl::Config >();
   Gant::Ptr< Qos::Status > status = Gant::make< Qos::Status >();
   Gant::Ptr< Qos::AclHwStatus > hwStatus = Gant::make< Qos::AclHwStatus >();
   Gant::Ptr< Vex::QosAclHelper > helper =
        Gant::make< Vex::QosAclHelper >( status, nullptr, config, hwStatus, engine.vexcsd, nullptr );
   Gant::Ptr< Hul::QosAclSm > sm = Gant::make< Hul::QosAclSm >( Hul::QosAclSm::Args{ .vexcsd = engine.vexcsd,
                                                                                     .qosStatus = status,
                                                                                     .qosAclHwStatus = hwStatus,
                                                                                     .aclConfig = config,
                                                                                     .qosAclHelper = helper } );
};

TEST_F( QosRouter, aPolicyGoesOutOnceItIsAppliedClassByClass ) {
   EXPECT_EQ( tablesAndCounters(), 0u );
   bind( "Ethernet1", "edge" );
   EXPECT_EQ( drained(), lines( R"(
      kyAclDb createPolicy acl_id 0 acl_target 1 rule {proto 17 dst_port_lower 16384 dst_port_upper 32767 counter_id 0 action_dscp true dscp_data 46} rule {proto 6 dst_port_lower 80 dst_port_upper 80 counter_id 1 action_tc true tc_data 2} rule {counter_id 2 action_dscp true dscp_data 0}
      create PQos_Rx_et1 PolicyQos ingress true intf_id Ethernet1 policy_version 1
      PQos_Rx_et1 applyServicePolicy policy_id 0
      EtherClassify_et1 setEtherTypeGate ether_type 2048 ogate 1
      connect EtherClassify_et1:1 -> PQos_Rx_et1:0
   )" ) );
   bind( "Ethernet2", "edge" );
   EXPECT_EQ( drained().front(), "create PQos_Rx_et2 PolicyQos ingress true intf_id Ethernet2 policy_version 1" );
   EXPECT_EQ( sm->counts( "edge" ), ( std::vector< std::pair< Gant::String, U64 > >{
                                         { "voice", 0 }, { "web", 0 }, { "class-default", 0 } } ) );
}

TEST_F( QosRouter, aChangeOfMapClassOrListSwapsTheTableAlone ) {
   bind( "Ethernet1", "edge" );
   drained();
   config->aclConfig( ListKey( Acl::ip, "web" ) )->entriesIs( entries( { tcp() } ) );
   EXPECT_EQ( drained(), lines( R"(
      kyAclDb createPolicy acl_id 0 acl_target 1 rule {proto 17 dst_port_lower 16384 dst_port_upper 32767 counter_id 0 action_dscp true dscp_data 46} rule {proto 6 counter_id 3 action_tc true tc_data 2} rule {counter_id 2 action_dscp true dscp_data 0}
   )" ) );
   // The class and its counters go with the change.
   status->policyMapIs( "edge", { { { "voice", { { ActionType::actionSetTc_, 6 } } } } } );
   EXPECT_EQ( drained(), lines( R"(
      kyAclDb createPolicy acl_id 0 acl_target 1 rule {proto 17 dst_port_lower 16384 dst_port_upper 32767 counter_id 0 action_tc true tc_data 6}
   )" ) );
   EXPECT_EQ( engine.counters->counterIterator().size(), 1u );
   status->classMapIs( "voice", { .accessLists = { "web" } } );
   EXPECT_EQ( drained(), lines( R"(
      kyAclDb createPolicy acl_id 0 acl_target 1 rule {proto 6 counter_id 1 action_tc true tc_data 6}
   )" ) );
   EXPECT_EQ( engine.counters->counterIterator().size(), 1u );
   // Rules that are all gone leave an empty table.
   config->aclConfig( ListKey( Acl::ip, "web" ) )->entriesIs( {} );
   EXPECT_EQ( drained(), lines( "kyAclDb createPolicy acl_id 0 acl_target 1" ) );
}

TEST_F( QosRouter, anInterfaceGoesOverToAnotherPolicyAndTheLastOneTakesItAlong ) {
   bind( "Ethernet1", "edge" );
   drained();
   bind( "Ethernet1", "other" );
   EXPECT_EQ( drained(), lines( R"(
      disconnect EtherClassify_et1:1
      destroy PQos_Rx_et1
      kyAclDb createPolicy acl_id 1 acl_target 1 rule {proto 6 dst_port_lower 80 dst_port_upper 80 counter_id 3 action_tc true tc_data 1}
      create PQos_Rx_et1 PolicyQos ingress true intf_id Ethernet1 policy_version 1
      PQos_Rx_et1 applyServicePolicy policy_id 1
      connect EtherClassify_et1:1 -> PQos_Rx_et1:0
      kyAclDb destroyPolicy acl_id 0 acl_target 1
   )" ) );
   unbind( "Ethernet1" );
   EXPECT_EQ( drained(), lines( R"(
      disconnect EtherClassify_et1:1
      destroy PQos_Rx_et1
      kyAclDb destroyPolicy acl_id 1 acl_target 1
   )" ) );
   EXPECT_EQ( tablesAndCounters(), 0u );
}

TEST_F( QosRouter, whatIsWrongIsNamedAndWhatWasProgrammedStays ) {
   bind( "Ethernet1", "edge" );
   drained();
   struct {
      Qos::PolicyMapConfig policyMap;
      const char * error;
   } const cases[] = {
        { {}, "policy-map edge: it has no class" },
        { { { { "none", {} } } }, "policy-map edge, class none: there is no such class-map" },
        { { { { "web", {} }, { "web", {} } } }, "policy-map edge, class web: the class stands in it twice" },
        { { { { "web", { { ActionType::actionSetDscp_, 64 } } } } },
          "policy-map edge, class web: set dscp 64 is above 63" },
        { { { { "web", { { ActionType::actionSetTc_, 8 } } } } },
          "policy-map edge, class web: set traffic-class 8 is above 7" },
        { { { { "web", { { ActionType::actionPolice_, 1 } } } } },
          "policy-map edge, class web: this data plane sets DSCP and traffic class only" },
        { { { { "six", {} } } }, "class-map six: this data plane has no IPv6 access lists" },
        { { { { "vlan", {} } } }, "class-map vlan: this data plane does not match a VLAN in a class" },
        { { { { "lost", {} } } }, "policy-map edge, class lost: there is no access-list nowhere" },
   };
   status->classMapIs( "six",
                       { .matchOption = Qos::ClassMapMatchOption::matchIpv6AccessGroup_, .accessLists = { "web" } } );
   status->classMapIs( "vlan", { Qos::ClassMapMatchOption::matchVlan_, {}, 7 } );
   status->classMapIs( "lost", { .accessLists = { "nowhere" } } );
   for ( const auto & c : cases ) {
      status->policyMapIs( "edge", c.policyMap );
      EXPECT_EQ( drained(), Lines{} );
      EXPECT_EQ( pending(), Lines{ c.error } );
   }
   bind( "Ethernet2", "nothing" );
   bind( "Ethernet2", "other", Qos::Direction::output() );
   EXPECT_EQ( drained(), Lines{} );
   const auto all = pending();
   EXPECT_EQ( Lines( all.begin() + 1, all.end() ),
              ( Lines{ "interface Ethernet2, service-policy input nothing: there is no such policy-map",
                       "interface Ethernet2, service-policy output other: this data plane has no output policies" } ) );
   addList( "nowhere", { tcp() } );
   EXPECT_EQ( drained(), lines( "kyAclDb createPolicy acl_id 0 acl_target 1 rule {proto 6 counter_id 3}" ) );
}

} // namespace
