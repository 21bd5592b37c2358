#include "Engine.h"
#include "GantTrace.h"
#include "Rules.h"
#include "VexAclSm.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;

// The helper alone, called as the layer calls it.
class AclHelperCalls : public testing::Test {
 protected:
   AclHelperCalls() {
      engine.vexcsd->kyAclDbIs( Gant::make< Vex::KyAclDb >( engine.enginePair ) );
      helper->hwInit();
      engine.take();
   }
   static Gant::Ptr< Hul::AclData > data( const char * name, U32 version = 1, Acl::AclDirection direction = Acl::in ) {
      const auto made = Gant::make< Hul::AclData >( Hul::AclKey( name, Acl::ip, direction, 0 ) );
      made->activeIntfIs( intf( "Ethernet1" ), true );
      made->versionIs( Acl::UniqueId( version, 0, 0 ) );
      return made;
   }
   void rule( const Hul::AclDataPtr & aclData, U32 number = 1 ) {
      helper->createIpAclSubrule( Acl::ip, RuleOf(), Acl::UniqueId( number, 0, 0 ), aclData, number, 0, {}, 0, 0 );
   }
   void build( const Hul::AclDataPtr & aclData ) {
      helper->precreateAcl( aclData, nullptr );
      rule( aclData );
      helper->createFinalAclRule( Acl::ip, aclData, 2 );
   }
   void commit( const Hul::AclDataPtr & aclData ) {
      helper->prepareToCommit();
      helper->commitAcl( aclData );
      helper->batchCommitAcls();
   }
   Vex::VexAclDataState stateOf( const char * name ) const {
      return helper->vexAclData( Vex::AclTypeAndName( Acl::ip, name ) )->state();
   }

   Engine engine;
   Gant::Ptr< Vex::AclHelper > helper = Gant::make< Vex::AclHelper >( engine.vexcsd, nullptr, nullptr, nullptr );
};

TEST_F( AclHelperCalls, twoKeysOfOneListShareItUntilTheSecondGoes ) {
   const auto in = data( "a" ), out = data( "a", 1, Acl::out );
   build( in );
   EXPECT_EQ( stateOf( "a" ), Vex::AclHelper::prepared() );
   commit( in );
   EXPECT_EQ( brief( engine.take() ), Lines{ "kyAclDb createAcl acl_id 0 acl_target 0 rule {permit true counter_id 0} "
                                             "rule {permit false counter_id 1}" } );
   build( out );
   commit( out );
   EXPECT_EQ( stateOf( "a" ), Vex::AclHelper::programmed() );
   EXPECT_EQ( helper->vexAclData( Vex::AclTypeAndName( Acl::ip, "a" ) )->programmedAclKeys(), 2u );
   helper->destroyAcl( in );
   helper->batchCommitAcls();
   EXPECT_EQ( engine.take(), Lines{} );
   helper->destroyAcl( out );
   EXPECT_EQ( stateOf( "a" ), Vex::AclHelper::removing() );
   // Wanted again before the batch, it stays.
   build( out );
   EXPECT_EQ( stateOf( "a" ), Vex::AclHelper::programmed() );
   helper->destroyAcl( out );
   helper->batchCommitAcls();
   EXPECT_EQ( engine.take(), lines( "kyAclDb destroyAcl acl_id 0 acl_target 0" ) );
   EXPECT_EQ( engine.counters->counterIterator().size() + helper->vexAclDatas(), 0u );
}

TEST_F( AclHelperCalls, rulesOutsideOfABuildAreSkipped ) {
   const auto aclData = data( "a" );
   build( aclData );
   rule( aclData, 7 );
   commit( aclData );
   rule( aclData, 8 );
   EXPECT_EQ( helper->createFinalAclRule( Acl::ip, aclData, 9 ), Hul::aclCreateErrorNone );
   EXPECT_EQ( engine.counters->counterIterator().at( Vex::CounterId( 0 ) ).name, "kyAclDb-a-1" );
   EXPECT_EQ( engine.counters->counterIterator().at( Vex::CounterId( 1 ) ).name, "kyAclDb-a-2" );
   EXPECT_EQ( engine.counters->counterIterator().size(), 2u );
}

TEST_F( AclHelperCalls, withoutAFreeIdAListIsRefusedToo ) {
   const auto & db = engine.vexcsd->kyAclDb();
   while ( db->freeAclIds() != 0 ) db->freeAclIdDeq();
   EXPECT_EQ( helper->precreateAcl( data( "a" ), nullptr ), Hul::aclCreateErrorTooManyAcls );
   EXPECT_EQ( helper->vexAclDatas(), 0u );
   EXPECT_DEATH( db->freeAclIdDeq(), "Failed\\(freeAclIds\\(\\)\\)" );
}

TEST_F( AclHelperCalls, anInterfaceWithoutItsListIsPointedAtItOnceItIsThere ) {
   const auto aclData = data( "a" );
   helper->addIntfToAcl( intf( "Ethernet1" ), aclData, nullptr );
   EXPECT_EQ( Gant::traceLines( 1, "VexAclSm" ).back().text,
              "AclHelper::addIntfToAcl L3Intf does not exists for intf Ethernet1" );
   helper->batchCommitAcls();
   const Vex::AclTypeIntfAndDirection key( Acl::ip, intf( "Ethernet1" ), Acl::in );
   EXPECT_TRUE( helper->kyAcl( key )->applying() );
   EXPECT_EQ( engine.take(), lines( R"(
      create aclipEt1in KyAcl ingress true intf_id Ethernet1
      connect aclipEt1in:0 -> trap:0
   )" ) );
   build( aclData );
   commit( aclData );
   EXPECT_FALSE( helper->kyAcl( key )->applying() );
   EXPECT_EQ( engine.take().back(), "aclipEt1in applyAcl acl_id 0 ipv4 true" );
}

TEST_F( AclHelperCalls, anInterfaceLeavesOnlyAListThatItHas ) {
   const auto aclData = data( "a" );
   EXPECT_FALSE( helper->removeIntfFromAcl( intf( "Ethernet1" ), aclData, false ) );
   helper->addIntfToAcl( intf( "Ethernet1" ), aclData, nullptr );
   engine.take();
   EXPECT_TRUE( helper->removeIntfFromAcl( intf( "Ethernet1" ), aclData, true ) );
   EXPECT_EQ( helper->kyAcls(), 1u );
   helper->cleanupAcl( aclData );
   EXPECT_EQ( helper->kyAcls(), 0u );
   EXPECT_EQ( engine.take(), lines( "destroy aclipEt1in" ) );
}

TEST_F( AclHelperCalls, pollsWhileAListIsRebuiltReadNothing ) {
   const auto aclData = data( "a" );
   const Acl::UniqueId id( 1, 0, 0 );
   EXPECT_FALSE( helper->aclCountersAllocated( aclData ) );
   build( aclData );
   EXPECT_TRUE( helper->aclCountersAllocated( aclData ) );
   const auto acl = helper->vexAclData( Vex::AclTypeAndName( Acl::ip, "a" ) );
   acl->lastCountIs( id, 5 );
   EXPECT_EQ( helper->aclRuleCountersSinceLastPoll( aclData, 1, id ), 0u );
   EXPECT_EQ( acl->lastCount( id ), 5u );
   commit( aclData );
   // The count is 0 and so below the last one, which follows it.
   EXPECT_EQ( helper->aclRuleCountersSinceLastPoll( aclData, 1, id ), 0u );
   EXPECT_EQ( acl->lastCount( id ), 0u );
}

TEST_F( AclHelperCalls, callsOutOfOrderEndTheProcess ) {
   const auto aclData = data( "a" );
   helper->precreateAcl( aclData, nullptr );
   EXPECT_DEATH( helper->precreateAcl( aclData, nullptr ), "Failed\\(acl->state\\(\\) != preparing\\(\\)\\)" );
   EXPECT_DEATH( helper->commitAcl( aclData ), "Failed\\(acl->state\\(\\) != preparing\\(\\)\\)" );
   EXPECT_DEATH( helper->destroyAcl( aclData ), "Failed\\(acl->state\\(\\) == programmed\\(\\)\\)" );
   helper->createFinalAclRule( Acl::ip, aclData, 1 );
   helper->commitAcl( aclData );
   EXPECT_DEATH( helper->precreateAcl( aclData, nullptr ), "Failed\\(acl->state\\(\\) != programming\\(\\)\\)" );
}

} // namespace
