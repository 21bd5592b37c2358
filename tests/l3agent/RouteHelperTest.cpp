#include "Engine.h"
#include "VexRouteHelper.h"

#include <gtest/gtest.h>
#include <unistd.h>

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

   static constexpr U32 v4 = 1, v6 = 2;
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

   int ends[ 2 ];
   ASSERT_EQ( pipe( ends ), 0 );
   core.route4Helper->showSoftwareSummary( static_cast< unsigned >( ends[ 1 ] ) );
   close( ends[ 1 ] );
   char text[ 2000 ];
   const auto size = read( ends[ 0 ], text, sizeof( text ) );
   close( ends[ 0 ] );
   EXPECT_EQ( Gant::String( text, static_cast< size_t >( size ) ),
              "\n'ipVersion':'IPV4',\n'routeInserts':1,\n'routeDeletes':1,\n'routeUpdates':2,\n"
              "'routeUpdatesIgnored':0,\n'routeUpdatesFecChanged':1,\n'routeUpdatesFecUpdated':1,\n'lpmCreates':1,\n"
              "'lpmDeletes':1,\n'lpmUpdates':2,\n'lpmUpdatesFecChanged':1,\n'lpmUpdatesFecUpdated':1,\n" );
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

TEST_F( Routes, ipv6IsRefusedCountedAndSuspended ) {
   const auto update = [ & ]( U8 type ) {
      return core.route6Helper->updateRoute( *Kynet::Ip6Prefix::fromString( "2001:db8::/32" ), Hul::VrfId( 0 ), {},
                                             Hul::RouteInfo( type, 1 ), 9 );
   };
   EXPECT_EQ( update( 1 ), Hul::HulRouteUpdateStatus::routeUpdateFailed_ );
   EXPECT_EQ( update( 0 ), Hul::HulRouteUpdateStatus::routeUpdateSucceeded_ );
   EXPECT_EQ( core.take(), Lines{} );
   EXPECT_EQ( core.routeDb->numLpmCreate( v6 ), 1u );
   EXPECT_EQ( core.routeDb->routes(), 0u );
   EXPECT_EQ( status()->sequence6Programmed(), 9u );
   EXPECT_EQ( status()->sequenceProgrammed(), 0u );
   core.route6Helper->handleRouting( false );
   EXPECT_TRUE( core.l3Status->suspendIp6RouteUpdates() );
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

TEST_F( Routes, verificationPreparesForItselfAndAsksTheDatabase ) {
   core.route( "10.0.0.0/8", 0, 1 );
   core.take();
   const Hul::RouteInfo info( 1, 1 );
   core.route4Helper->verifyRoute( prefix( "10.0.0.0/8" ), Hul::VrfId( 0 ), info );
   EXPECT_FALSE( core.route4Helper->readyForVerifyRoute() );
   core.route4Helper->prepareForVerifyRoute();
   core.route4Helper->verifyRoute( prefix( "10.0.0.0/8" ), Hul::VrfId( 0 ), info );
   EXPECT_TRUE( core.route4Helper->readyForVerifyRoute() );
   core.route4Helper->cleanupForVerifyRoute();
   EXPECT_EQ( core.take(), Lines{} );
   EXPECT_DEATH( core.route4Helper->verifyRoute( prefix( "10.0.0.0/8" ), Hul::VrfId( 0 ), Hul::RouteInfo( 1, 2 ) ),
                 "Failed\\(fecKey == vexRouteInfo->fecKey\\(\\)\\)" );
   EXPECT_DEATH( core.route4Helper->verifyRoute( prefix( "11.0.0.0/8" ), Hul::VrfId( 0 ), info ),
                 "Failed\\(vexRouteInfo\\)" );
}

TEST_F( Routes, aLayerThatBreaksTheOrderEndsTheProcess ) {
   core.route( "10.0.0.0/8", 0, 1 );
   EXPECT_DEATH( core.route( "11.0.0.0/8", 0, 77 ), "Failed\\(fecKey != FecKey::null\\(\\)\\)" );
   EXPECT_DEATH( core.route( "10.0.0.0/8", 2, 1 ), "Failed\\(oldFec->lpmRouteHas\\( vrfPrefix \\)\\)" );
   EXPECT_DEATH( core.route( "10.0.0.0/8", 77, 1 ), "Failed\\(oldFecKey != FecKey::null\\(\\)\\)" );
   EXPECT_DEATH( core.route( "10.0.0.0/8", 1, 77 ), "Failed\\(newFecKey != FecKey::null\\(\\)\\)" );
   EXPECT_DEATH( core.route( "10.0.0.0/8", 2, 0 ), "Failed\\(fec->lpmRouteHas\\( vrfPrefix \\)\\)" );
   EXPECT_DEATH( routeInsert( key( "10.0.0.0/8" ), Hul::RouteInfo( 1, 1 ), 0, core.routeDb, core.sm ),
                 "Failed\\(!vexRouteInfo\\)" );
}

TEST_F( Routes, allRoutesOfAFecCanBeWrittenAgain ) {
   core.route( "10.0.0.0/8", 0, 1 );
   core.route( "9.0.0.0/8", 0, 1 );
   core.take();
   core.sm->updateLpmRoutesForFec( fecOf( 1 ) );
   EXPECT_EQ( core.take(), lines( "fibIpv4 addRoute vrf 0 prefix 9.0.0.0 prefix_len 8 fec_id 3\n"
                                  "fibIpv4 addRoute vrf 0 prefix 10.0.0.0 prefix_len 8 fec_id 3" ) );
}

} // namespace
