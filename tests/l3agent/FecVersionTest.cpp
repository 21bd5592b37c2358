// Which FECs are walked when something that they depend on changes.
#include "AgentRouter.h"
#include "HulAdjSm.h"
#include "VexL3FecVersionSm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace Test;
using VexL3Unicast::FecKey;

// Two interfaces, three FECs on the first and one on both.
class FecVersion : public testing::Test {
 protected:
   FecVersion() {
      state.vrf( "default", 0 );
      for ( const char * name : { "Ethernet1", "Ethernet2" } ) {
         router.port( name );
         state.intf( name );
      }
      state.neighbor( "Ethernet1", "10.0.1.2", "02:00:00:00:01:02" );
      state.fec( 1, { viaTo( "10.0.1.2", "Ethernet1" ) } );
      state.fec( 2, { viaTo( "10.0.1.3", "Ethernet1" ) } );
      state.fec( 3, { viaTo( "10.0.1.2", "Ethernet1" ), viaTo( "10.0.2.2", "Ethernet2" ) } );
      router.start();
      router.drained();
   }
   VexL3Unicast::FecVersionSm & sm() { return *router.agent->fecVersionSm(); }
   VexL3Unicast::RouteDb & db() { return *router.agent->routeDb(); }
   // The versions of FECs 3, 4 and 5, the first three that adjacencies get.
   std::vector< U32 > versions() {
      std::vector< U32 > out;
      for ( U32 key = 3; key <= 5; ++key ) out.push_back( db().fec( FecKey( key ) )->version() );
      return out;
   }
   RouterState state;
   RouterAgent router{ state };
};

TEST_F( FecVersion, anInterfaceThatChangesHasEachOfItsFecsWalkedOnce ) {
   const auto before = versions();
   const auto walks = sm().numScheduledPrefixWalk();
   sm().handleL3Intf( intf( "Ethernet1" ) );
   EXPECT_EQ( sm().numScheduledPrefixWalk(), walks + 3 );
   EXPECT_EQ( sm().pendingFecSets(), 0u );
   for ( size_t i = 0; i < before.size(); ++i ) EXPECT_EQ( versions()[ i ], before[ i ] + 1 );
   // The walks are updates in later turns of the loop, and count again.
   EXPECT_EQ( router.take(), Lines{} );
   EXPECT_THAT( router.drained(), testing::Contains( testing::StartsWith( "fibIpv4 addFec fec_id 3" ) ) );
   for ( size_t i = 0; i < before.size(); ++i ) EXPECT_EQ( versions()[ i ], before[ i ] + 2 );
}

} // namespace
