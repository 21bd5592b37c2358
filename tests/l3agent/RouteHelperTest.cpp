#include "Engine.h"
#include "VexRouteHelper.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;
using namespace VexL3Unicast;

// Two adjacencies, 1 and 2, over one Ethernet interface.
class Routes : public testing::Test {
 protected:
   void SetUp() override {
      core.port( "Ethernet1" );
      core.routed( "Ethernet1", 4094 );
      for ( const U64 index : { 1, 2 } )
         core.adjHelper->createAdj(
              core.adjacency( index, via( { { forwardHop( "Ethernet1", "00:00:00:00:00:42" ), 1 } } ) ) );
      core.take();
   }
   void TearDown() override { EXPECT_EQ( core.brokenInvariant(), "" ); }

   Gant::Ptr< Fec > fecOf( U64 adj ) const {
      return core.routeDb->fec( core.routeDb->adjIdxToFec( Hul::L2AdjKey( adj ) ) );
   }
   static Hul::VrfAndIpGenPrefix key( const char * text ) {
      return Hul::VrfAndIpGenPrefix( Hul::VrfId( 0 ), prefix( text ) );
   }
   const Gant::Ptr< Hul::VrfL3Status > & status() const {
      return core.l3Status->vrfL3Status( L3::VrfName::defaultVrf() );
   }

   static constexpr U32 v4 = 1;
   L3Core core;
};

TEST_F( Routes, aRouteIsInsertedModifiedAndDeleted ) {
   EXPECT_TRUE( core.route( "10.0.0.0/8", 0, 1 ) );
   EXPECT_EQ( core.take(), lines( "fibIpv4 addRoute vrf 0 prefix 10.0.0.0 prefix_len 8 fec_id 3" ) );
   EXPECT_EQ( core.routeDb->route( key( "10.0.0.0/8" ) )->str(), "3,,lpmTableType" );

   EXPECT_TRUE( core.route( "10.0.0.0/8", 1, 2 ) );
   EXPECT_EQ( core.take(), lines( "fibIpv4 addRoute vrf 0 prefix 10.0.0.0 prefix_len 8 fec_id 4" ) );
   EXPECT_EQ( fecOf( 1 )->numLpmRoutes( v4 ), 0u );
   EXPECT_EQ( fecOf( 2 )->numLpmRoutes( v4 ), 1u );

   // On the same FEC it is written again.
   EXPECT_TRUE( core.route( "10.0.0.0/8", 2, 2 ) );
   EXPECT_EQ( core.take(), lines( "fibIpv4 addRoute vrf 0 prefix 10.0.0.0 prefix_len 8 fec_id 4" ) );
   EXPECT_EQ( fecOf( 2 )->numLpmRoutes( v4 ), 1u );

   EXPECT_TRUE( core.route( "10.0.0.0/8", 2, 0 ) );
   EXPECT_EQ( core.take(), lines( "fibIpv4 delRoute vrf 0 prefix 10.0.0.0 prefix_len 8" ) );
   EXPECT_TRUE( fecOf( 2 ) );
}

TEST_F( Routes, theFibIsWrittenBeforeTheRouteLeavesItsOldFec ) {
   core.route( "10.0.0.0/8", 0, 1 );
   // A FEC that is not in the data plane refuses the route: it is forgotten, and the FIB keeps the entry from before.
   core.routeDb->fecForLpmDel( fecOf( 2 )->key() );
   core.take();
   EXPECT_FALSE( core.route( "10.0.0.0/8", 1, 2 ) );
   EXPECT_EQ( core.take(), Lines{} );
   EXPECT_FALSE( core.routeDb->routeHas( key( "10.0.0.0/8" ) ) );
   EXPECT_EQ( fecOf( 1 )->lpmRoutes() + fecOf( 2 )->lpmRoutes(), 0u );
   // So the next change is an insert.
   EXPECT_TRUE( core.route( "10.0.0.0/8", 0, 1 ) );
   EXPECT_EQ( core.routeDb->numRouteInserts( v4 ), 2u );
}

TEST_F( Routes, anInsertOnAFecThatIsNotProgrammedIsUndone ) {
   core.routeDb->fecForLpmDel( fecOf( 1 )->key() );
   EXPECT_FALSE( core.route( "10.0.0.0/8", 0, 1 ) );
   EXPECT_EQ( core.take(), Lines{} );
   EXPECT_EQ( core.routeDb->numLpmCreate( v4 ), 1u );
   EXPECT_EQ( core.routeDb->numLpmRoutes( v4 ), 0u );
   EXPECT_FALSE( core.routeDb->routeHas( key( "10.0.0.0/8" ) ) );
}

TEST_F( Routes, sequencesAreAcknowledgedForwardOnly ) {
   const auto after = [ & ]( U64 oldAdj, U64 newAdj, U64 sequence ) {
      core.route( "10.0.0.0/8", oldAdj, newAdj, sequence );
      return status()->sequenceProgrammed();
   };
   EXPECT_EQ( after( 0, 1, 5 ), 5u );
   EXPECT_EQ( after( 1, 1, 0 ), 5u );
   EXPECT_EQ( after( 1, 1, 4 ), 5u );
   EXPECT_EQ( after( 1, 1, 0x100000001 ), 0x100000001u );
   EXPECT_EQ( after( 1, 1, 2 ), 0x100000001u );
   core.routeDb->fecForLpmDel( fecOf( 2 )->key() );
   EXPECT_EQ( after( 1, 2, 0x100000002 ), 0x100000002u );
   // Nothing to delete: no counter, and the sequence all the same.
   const auto deletes = core.routeDb->numRouteDeletes( v4 );
   EXPECT_EQ( after( 1, 0, 0x100000003 ), 0x100000003u );
   EXPECT_EQ( core.routeDb->numRouteDeletes( v4 ), deletes );
   // A VRF that is not known has no status to write to.
   EXPECT_TRUE( core.route( "10.0.0.0/8", 0, 1, 7, 99 ) );
}

} // namespace
