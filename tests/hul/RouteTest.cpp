#include "HulRouter.h"

#include "GantActivity.h"

namespace HulTest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F( Router, aRouteIsToldWithWhatWasInForceBefore ) {
   startUsual();
   state.fec( 1, { via( "Et1", "10.9.0.2" ) } );
   state.fec( 2, { via( Mirel::RouteType::drop_ ) } );
   take();
   state.route( "10.0.0.0/8", 1 );
   EXPECT_THAT( take(), ElementsAre( "10.0.0.0/8 vrf 0 none -> forward/0 seq 1" ) );
   state.route( "10.0.0.0/8", 1 );
   EXPECT_THAT( take(), IsEmpty() );
   state.route( "10.0.0.0/8", 2 );
   EXPECT_THAT( take(), ElementsAre( "10.0.0.0/8 vrf 0 forward/0 -> forward/1 seq 2" ) );
   state.route( "10.0.0.0/8", 2, 0, Mirel::RouteType::drop_ );
   EXPECT_THAT( take(), ElementsAre( "10.0.0.0/8 vrf 0 forward/1 -> drop/1 seq 3" ) );
   // Another writer's mark is nothing to the data plane.
   state.fib->routeIs( 0, prefix( "10.0.0.0/8" ), Mirel::Route( Mirel::RouteType::drop(), 2, 99 ) );
   EXPECT_THAT( take(), IsEmpty() );
   EXPECT_EQ( layer.l3Status->vrfL3Status( L3::VrfName( "default" ) )->sequenceProgrammed(), 4u );
   state.routeDel( "10.0.0.0/8" );
   EXPECT_THAT( drained(), ElementsAre( "10.0.0.0/8 vrf 0 drop/1 -> none seq 5" ) );
}

TEST_F( Router, routesOfOneTurnAreCommittedTogether ) {
   startUsual();
   state.fec( 1, { via( Mirel::RouteType::drop_ ) } );
   state.route( "10.0.0.0/8", 1 );
   state.route( "11.0.0.0/8", 1 );
   layer.drain();
   const auto lines = rec.take();
   ASSERT_EQ( lines.size(), 4u );
   EXPECT_EQ( lines.back(), "commitRouteBatch" );
   layer.drain();
   EXPECT_THAT( rec.take(), IsEmpty() );
}

TEST_F( Router, aRefusedRouteIsForgottenReportedAndComesAgainAsNew ) {
   startUsual();
   state.neighbor( "Et1", "10.9.0.2", 2 );
   state.fec( 1, { via( "Et1", "10.9.0.2" ) } );
   state.fec( 2, { via( Mirel::RouteType::drop_ ) } );
   state.route( "10.0.0.0/8", 1 );
   drained();
   bool refuse = true;
   rec.refusesRoute = [ & ]( const auto & ) { return refuse; };
   state.route( "10.0.0.0/8", 2 );
   EXPECT_THAT( drained(), ElementsAre( "10.0.0.0/8 vrf 0 forward/0 -> forward/1 seq 2 refused" ) );
   EXPECT_THAT( layer.unprogrammed(), ElementsAre( "vrf 0 10.0.0.0/8 refused" ) );
   EXPECT_THAT( layer.pending(), ElementsAre( "route 10.0.0.0/8 in VRF 0: the data plane refused it" ) );
   // Nothing about it changes: it is left alone, also when all routes are looked at.
   state.vrf( "red", 7 );
   state.route( "11.0.0.0/8", 2, 7 );
   state.vrfDel( "red" );
   layer.drain();
   rec.take();
   refuse = false;
   state.vrf( "red", 7 );
   EXPECT_THAT( drained(), ElementsAre( "createVrf 7", "11.0.0.0/8 vrf 7 none -> forward/1" ) );
   EXPECT_THAT( layer.unprogrammed(), ElementsAre( "vrf 0 10.0.0.0/8 refused" ) );
   state.route( "10.0.0.0/8", 1 );
   EXPECT_THAT( drained(), ElementsAre( "10.0.0.0/8 vrf 0 none -> forward/0 seq 3" ) );
   EXPECT_THAT( layer.unprogrammed(), IsEmpty() );
   // A refused route that goes is nobody's business.
   refuse = true;
   state.route( "12.0.0.0/8", 1 );
   take();
   state.routeDel( "12.0.0.0/8" );
   EXPECT_THAT( drained(), IsEmpty() );
   EXPECT_THAT( layer.unprogrammed(), IsEmpty() );
   // A change of its FEC is a change of the route.
   state.route( "13.0.0.0/8", 9 );
   refuse = true;
   state.fec( 9, { via( Mirel::RouteType::drop_ ) } );
   EXPECT_THAT( drained(), ElementsAre( "13.0.0.0/8 vrf 0 none -> forward/1 refused" ) );
   refuse = false;
   state.fec( 9, { via( "Et1", "10.9.0.2" ) } );
   EXPECT_THAT( drained(), ElementsAre( "13.0.0.0/8 vrf 0 none -> forward/0" ) );
}

TEST_F( Router, aTableOfManyRoutesIsToldInTurnsAndChangesMeanwhileAreRight ) {
   state.vrf( "default", 0 );
   state.fec( 1, { via( Mirel::RouteType::drop_ ) } );
   state.fec( 2, { via( "Et1", "10.9.0.2" ) } );
   const auto at = [ & ]( U32 n ) { return Kynet::Prefix( Kynet::IpAddr( 0x0a000000 + ( n << 8 ) ), 24 ); };
   constexpr U32 routes = 20000;
   for ( U32 n = 0; n < routes; ++n )
      state.fib->routeIs( 0, at( n ), Mirel::Route( Mirel::RouteType::forward(), 1, 0 ) );
   start();
   // In between the turns: one that has been told, one that has not, one of each that goes, and one that comes.
   size_t turn = 0, longest = 0;
   while ( layer.root->busy() ) {
      Gant::activityManager()->post( [ &, n = ++turn ] {
         longest = std::max( longest, rec.take().size() );
         if ( n != 1 ) return;
         state.fib->routeIs( 0, at( 0 ), Mirel::Route( Mirel::RouteType::forward(), 2, 0 ) );
         state.fib->routeIs( 0, at( routes - 1 ), Mirel::Route( Mirel::RouteType::forward(), 2, 0 ) );
         state.fib->routeDel( 0, at( 1 ) );
         state.fib->routeDel( 0, at( routes - 2 ) );
         state.fib->routeIs( 0, at( routes ), Mirel::Route( Mirel::RouteType::forward(), 2, 0 ) );
      } );
      Gant::activityManager()->poll();
   }
   layer.drain();
   EXPECT_LT( longest, 5000u );
   EXPECT_EQ( layer.root->toldRoutes(), routes - 1 );
   EXPECT_EQ( rec.route( Hul::VrfId( 0 ), at( 0 ) ), "forward: unresolved Et1 x1" );
   EXPECT_EQ( rec.route( Hul::VrfId( 0 ), at( 1 ) ), "none" );
   EXPECT_EQ( rec.route( Hul::VrfId( 0 ), at( 2 ) ), "forward: drop x1" );
   EXPECT_EQ( rec.route( Hul::VrfId( 0 ), at( routes ) ), "forward: unresolved Et1 x1" );
   // All of them move to another adjacency, again in turns.
   state.fec( 1, { via( "Et1", "10.9.0.2" ) } );
   rec.take();
   Gant::activityManager()->poll();
   layer.drain();
   EXPECT_EQ( rec.route( Hul::VrfId( 0 ), at( 2 ) ), "forward: unresolved Et1 x1" );
   EXPECT_EQ( rec.adjs(), 1u );
}

TEST_F( Router, verificationAsksForEverythingThatWasTold ) {
   startUsual();
   state.fec( 1, { via( Mirel::RouteType::drop_ ) } );
   state.route( "10.0.0.0/8", 1 );
   state.route( "11.0.0.0/8", 9 );
   drained();
   layer.csd->verifyData()->verifyIs( 1 );
   EXPECT_THAT( take(), ElementsAre( "verifyVrf 0", "verifyL3Intf Et1", "verifyL3Intf Et2", "verifyAdj 0",
                                     "prepareForVerifyRoute", "verifyRoute 10.0.0.0/8", "cleanupForVerifyRoute" ) );
}

TEST_F( Router, ip6RoutesGoTheSameWay ) {
   startUsual();
   state.l3->routing6Is( true );
   state.ip6->intfStatusIs( intfId( "Et1" ), Ip6::IntfStatus( true ) );
   state.fib6->fecIs( 1, { via( "Et1", "fe80::2" ) } );
   state.fib6->routeIs( 0, prefix6( "2001:db8::/32" ), Mirel::Route( Mirel::RouteType::forward(), 1, 0 ) );
   state.neighbor( "Et1", "fe80::2", 6 );
   EXPECT_THAT( drained(), ElementsAre( "handleRouting 1 1", "enableVlanRouting Et1 vlan 4094 ip+ip6",
                                        "createAdj 0: unresolved Et1 x1", "2001:db8::/32 vrf 0 none -> forward/0 seq 1",
                                        "updateAdj 0: forward Et1 02:00:00:00:00:06 x1" ) );
   EXPECT_EQ( layer.l3Status->vrfL3Status( L3::VrfName( "default" ) )->sequence6Programmed(), 1u );
   // Without IPv6 on the interface there is nobody to send to.
   state.ip6->intfStatusDel( intfId( "Et1" ) );
   EXPECT_THAT( drained(), ElementsAre( "enableVlanRouting Et1 vlan 4094 ip", "updateAdj 0: unresolved Et1 x1" ) );
}

TEST_F( Router, aHelperThatWantsNoIp6RoutesHearsOfNoneAndTheyAreListed ) {
   rec.refusesIp6 = true;
   state.fib6->fecIs( 1, { via( "Et1", "fe80::2" ) } );
   state.fib6->routeIs( 0, prefix6( "2001:db8::/32" ), Mirel::Route( Mirel::RouteType::forward(), 1, 0 ) );
   startUsual();
   state.fib6->routeIs( 0, prefix6( "2001:db9::/32" ), Mirel::Route( Mirel::RouteType::forward(), 2, 0 ) );
   EXPECT_THAT( drained(), IsEmpty() );
   EXPECT_THAT( layer.unprogrammed(),
                ElementsAre( "vrf 0 2001:db8::/32 familyNotSupported", "vrf 0 2001:db9::/32 familyNotSupported" ) );
   EXPECT_EQ( layer.pending().front(),
              "route 2001:db8::/32 in VRF 0: refused: the data plane takes no routes of this family" );
   state.fib6->routeDel( 0, prefix6( "2001:db9::/32" ) );
   EXPECT_THAT( layer.unprogrammed(), ElementsAre( "vrf 0 2001:db8::/32 familyNotSupported" ) );
   // A helper that changes its mind is told what there is; when it changes it again, that is taken back.
   rec.refusesIp6 = false;
   layer.l3Status->suspendIp6RouteUpdatesIs( false );
   EXPECT_THAT( drained(), ElementsAre( "createAdj 0: unresolved Et1 x1", "2001:db8::/32 vrf 0 none -> forward/0" ) );
   EXPECT_THAT( layer.unprogrammed(), IsEmpty() );
   layer.l3Status->suspendIp6RouteUpdatesIs( true );
   EXPECT_THAT( drained(), ElementsAre( "2001:db8::/32 vrf 0 forward/0 -> none", "deleteAdj 0" ) );
   EXPECT_THAT( layer.unprogrammed(), ElementsAre( "vrf 0 2001:db8::/32 familyNotSupported" ) );
}

// A data plane that answers when it is told to.
class SlowDataPlane : public Router {
 protected:
   void SetUp() override {
      startUsual();
      state.fec( 1, { via( Mirel::RouteType::drop_ ) } );
      state.fec( 2, { via( "Et1", "10.9.0.2" ) } );
      rec.refusesRoute = [ this ]( const auto & ) {
         progress.toldInc();
         return false;
      };
   }
   // "state: reason"
   Gant::String of( const char * text ) const {
      const auto route = layer.root->routeState( Hul::VrfId( 0 ), Kynet::IpGenPrefix( prefix( text ) ) );
      return Gant::textsOf( route.progress, ": ", route.reason );
   }
   Lines of( const std::vector< const char * > & texts ) const {
      Lines out;
      for ( const auto * const text : texts ) out.push_back( of( text ) );
      return out;
   }
   Hul::Progress & progress = *layer.csd->progress();
   const Gant::String underWay = "pending: the data plane has not answered",
                      done = "programmed: ", full = "refused: the data plane refused it: full";
};

TEST_F( SlowDataPlane, aRouteIsWhatTheDataPlaneSaidToItsLastChange ) {
   state.route( "10.0.0.0/8", 1 ); // command 1
   state.route( "11.0.0.0/8", 1 ); // 2
   state.route( "10.0.0.0/8", 2 ); // 3
   progress.refusedIs( 1, EINVAL, "no" );
   progress.acknowledgedIs( 2 );
   EXPECT_THAT( of( { "10.0.0.0/8", "11.0.0.0/8" } ), ElementsAre( underWay, done ) );
   EXPECT_THAT( layer.pending(), testing::Contains( "route 10.0.0.0/8 in VRF 0: the data plane has not answered" ) );
   progress.refusedIs( 3, EINVAL, "no such place" );
   progress.acknowledgedIs( 3 );
   EXPECT_EQ( of( "10.0.0.0/8" ), "refused: the data plane refused it: no such place" );
   const auto counts = layer.root->routeCounts( Kynet::AddressFamily::ipv4_ );
   EXPECT_EQ( counts.programmed, 1u );
   EXPECT_EQ( counts.refused, 1u );
   // A reason that is too long ago is still told by its code.
   for ( U32 n = 0; n < Hul::Progress::refusedKept; ++n ) progress.toldInc(), progress.refusedIs( 4 + n, EPERM, "" );
   EXPECT_EQ( of( "10.0.0.0/8" ), "refused: the data plane refused it: Invalid argument" );
   state.route( "10.0.0.0/8", 1 );
   progress.acknowledgedIs( progress.told() );
   EXPECT_EQ( of( "10.0.0.0/8" ), done );
   EXPECT_EQ( layer.root->routeCounts( Kynet::AddressFamily::ipv4_ ).refused, 0u );
}

TEST_F( SlowDataPlane, aRouteOverAnInterfaceThatIsNotUpIsPending ) {
   state.route( "10.0.0.0/8", 2 );
   progress.acknowledgedIs( 1 );
   EXPECT_EQ( of( "10.0.0.0/8" ), done );
   const auto counts = [ this ] {
      const auto said = layer.root->routeCounts( Kynet::AddressFamily::ipv4_ );
      return std::pair( said.programmed, said.overDisabled );
   };
   state.intfs->intfStatusIs( intfId( "Et1" ), Interface::IntfStatus( false, false ) );
   EXPECT_EQ( of( "10.0.0.0/8" ), "pending: interface Ethernet1 is disabled" );
   EXPECT_EQ( counts(), std::pair( 0u, 1u ) );
   state.intfs->intfStatusIs( intfId( "Et1" ), Interface::IntfStatus( true, false ) );
   EXPECT_EQ( of( "10.0.0.0/8" ), "pending: interface Ethernet1 is down" );
   EXPECT_EQ( counts(), std::pair( 0u, 1u ) );
   state.intfs->intfStatusIs( intfId( "Et1" ), Interface::IntfStatus( true, true ) );
   EXPECT_EQ( counts(), std::pair( 1u, 0u ) );
}

TEST_F( SlowDataPlane, aRouteOverARefusedAdjacencyIsRefusedAndCounted ) {
   state.route( "10.0.0.0/8", 2 ); // command 1
   state.route( "11.0.0.0/8", 2 ); // 2
   progress.acknowledgedIs( 1 );
   rec.wantsWalk = [ this ] {
      progress.toldInc();
      return false;
   };
   const auto counts = [ this ] {
      const auto said = layer.root->routeCounts( Kynet::AddressFamily::ipv4_ );
      return std::vector{ said.underWay, said.programmed, said.refused, said.overRefused };
   };
   using Counts = std::vector< U32 >;
   state.neighbor( "Et1", "10.9.0.2", 2 ); // 3: its adjacency
   progress.acknowledgedIs( 2 );
   EXPECT_EQ( counts(), ( Counts{ 0, 2, 0, 0 } ) );
   progress.refusedIs( 3, EINVAL, "no" );
   progress.acknowledgedIs( 3 );
   EXPECT_EQ( counts(), ( Counts{ 0, 0, 2, 2 } ) );
   EXPECT_EQ( of( "10.0.0.0/8" ), "refused: the data plane refused its next hops: no" );
   EXPECT_THAT( layer.pending(),
                testing::Contains( "route 11.0.0.0/8 in VRF 0: the data plane refused its next hops: no" ) );
   state.routeDel( "10.0.0.0/8" );
   state.route( "11.0.0.0/8", 1 );
   EXPECT_EQ( counts(), ( Counts{ 1, 0, 0, 0 } ) );
}

TEST_F( SlowDataPlane, whatHadNoRoomIsToldAgainInOrderOnceForEachRouteThatWent ) {
   rec.repeats = true;
   for ( const auto * const text : { "10.0.0.0/8", "11.0.0.0/8", "12.0.0.0/8", "13.0.0.0/8" } ) state.route( text, 1 );
   for ( const U64 number : { 2, 3, 4 } ) progress.refusedIs( number, ENOSPC, "full" );
   progress.acknowledgedIs( 4 );
   EXPECT_THAT( of( { "10.0.0.0/8", "11.0.0.0/8", "12.0.0.0/8", "13.0.0.0/8" } ),
                ElementsAre( done, full, full, full ) );
   drained();
   state.routeDel( "11.0.0.0/8" ); // 5: it did not have it
   progress.refusedIs( 5, ENOENT, "there is none" );
   progress.acknowledgedIs( 5 );
   EXPECT_THAT( drained(), ElementsAre( "11.0.0.0/8 vrf 0 forward/0 -> none seq 5" ) );
   state.routeDel( "10.0.0.0/8" ); // 6
   drained();
   progress.acknowledgedIs( 6 );
   EXPECT_THAT( drained(), ElementsAre( "12.0.0.0/8 vrf 0 forward/0 -> forward/0" ) );
   EXPECT_THAT( of( { "12.0.0.0/8", "13.0.0.0/8" } ), ElementsAre( underWay, full ) );
   progress.acknowledgedIs( 7 );
   EXPECT_THAT( drained(), IsEmpty() );
   EXPECT_THAT( of( { "12.0.0.0/8", "13.0.0.0/8" } ), ElementsAre( done, full ) );
}

TEST_F( SlowDataPlane, routesThatMoveRestWhileVeryManyAreUnderWay ) {
   const auto taken = [ this ] {
      while ( Gant::activityManager()->poll() != 0 ) continue;
      return take();
   };
   state.route( "12.0.0.0/8", 2 );
   for ( const auto * const text : { "10.0.0.0/8", "11.0.0.0/8" } ) state.route( text, 1 );
   taken();
   progress.underWayMostIs( 2 );
   state.fec( 1, { via( "Et1", "10.9.0.2" ) } );
   EXPECT_THAT( taken(), IsEmpty() );
   progress.acknowledgedIs( 1 );
   EXPECT_THAT( taken(), testing::Contains( "10.0.0.0/8 vrf 0 forward/0 -> forward/1" ) );
}

TEST_F( SlowDataPlane, aChangeThatWaitsTakesThePlaceOfTheOneBeforeIt ) {
   const auto taken = [ this ] {
      while ( Gant::activityManager()->poll() != 0 ) continue;
      return take();
   };
   rec.repeats = true; // of one that is again as it was
   for ( const auto * const text : { "10.0.0.0/8", "11.0.0.0/8", "14.0.0.0/8" } ) state.route( text, 1 );
   taken();
   progress.underWayMostIs( 0 );
   for ( const U32 fec : { 2, 1, 2 } ) state.route( "10.0.0.0/8", fec );
   for ( const U32 fec : { 2, 1 } ) state.route( "14.0.0.0/8", fec );
   state.route( "12.0.0.0/8", 1 );
   state.routeDel( "12.0.0.0/8" );
   state.routeDel( "11.0.0.0/8" );
   state.route( "13.0.0.0/8", 1 ); // in the place of the one before
   EXPECT_THAT( taken(), ElementsAre( testing::StartsWith( "11.0.0.0/8 vrf 0 forward/0 -> none" ) ) );
   EXPECT_THAT( of( { "10.0.0.0/8", "13.0.0.0/8", "14.0.0.0/8" } ),
                ElementsAre( underWay, "pending: its turn has not come", underWay ) );
   progress.acknowledgedIs( progress.told() );
   EXPECT_THAT( taken(),
                ElementsAre( "10.0.0.0/8 vrf 0 forward/0 -> forward/1", "14.0.0.0/8 vrf 0 forward/0 -> forward/0",
                             "13.0.0.0/8 vrf 0 none -> forward/0" ) );
   progress.acknowledgedIs( progress.told() );
   EXPECT_THAT( of( { "10.0.0.0/8", "13.0.0.0/8", "14.0.0.0/8" } ), ElementsAre( done, done, done ) );
   EXPECT_EQ( layer.root->routeCounts( Kynet::AddressFamily::ipv4_ ).programmed, 3u );
}

} // namespace
} // namespace HulTest
