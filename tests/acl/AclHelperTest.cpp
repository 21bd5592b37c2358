#include "Engine.h"
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
   static Gant::Ptr< Hul::AclData > data( const char * name ) {
      const auto made = Gant::make< Hul::AclData >( Hul::AclKey( name, Acl::ip, Acl::in, 0 ) );
      made->activeIntfIs( intf( "Ethernet1" ), true );
      made->versionIs( Acl::UniqueId( 1, 0, 0 ) );
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

   Engine engine;
   Gant::Ptr< Vex::AclHelper > helper = Gant::make< Vex::AclHelper >( engine.vexcsd, nullptr, nullptr, nullptr );
};

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

} // namespace
