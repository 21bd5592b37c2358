#include "HulRouter.h"

#include "GantActivity.h"

namespace HulTest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F( Router, aViaResolvesToWhatIsKnownOfItsNeighbour ) {
   struct Case {
      Mirel::Vias vias;
      const char * nextHops;
   };
   using Type = Mirel::RouteType;
   const Case cases[] = {
        { { via( "Et1", "10.9.0.2" ) }, "forward Et1 02:00:00:00:00:02 x1" },
        { { via( "Et1", "10.9.0.3" ) }, "unresolved Et1 x1" }, // nobody has the address
        { { via( "Et2", "10.9.0.2" ) }, "unresolved Et2 x1" }, // somebody has it elsewhere
        { { via( "Et9", "10.9.0.2" ) }, "unresolved Et9 x1" }, // no such interface
        { { via( "Et1", nullptr ) }, "unresolved Et1 x1" },    // whoever has the destination
        { { via( Type::attached_, "Et1" ) }, "unresolved Et1 x1" },
        { { via( Type::receive_, "Et1" ) }, "receive Et1 x1" },
        { { via( Type::receive_, "Tunnel1" ) }, "receive x1" }, // its way out ends elsewhere
        { { via( Type::broadcast_, "Et1" ) }, "slowReceiveBroadcast Et1 x1" },
        { { via( Type::drop_ ) }, "drop x1" },
        { {}, "nothing" },
        // Weights are told in the smallest whole numbers, and 0 counts as 1.
        { { via( "Et1", "10.9.0.2", 30 ), via( Type::drop_ ) }, "forward Et1 02:00:00:00:00:02 x30, drop x1" },
        { { via( "Et1", "10.9.0.2", 30 ), via( "Et2", "10.9.0.3", 20 ) },
          "unresolved Et2 x2, forward Et1 02:00:00:00:00:02 x3" },
        { { via( "Et1", "10.9.0.2", 0 ), via( "Et2", "10.9.0.3", 2 ) },
          "unresolved Et2 x2, forward Et1 02:00:00:00:00:02 x1" },
        // Equal next hops are one.
        { { via( "Et1", "10.9.0.3" ), via( "Et1", "10.9.0.4", 2 ) }, "unresolved Et1 x3" },
   };
   state.neighbor( "Et1", "10.9.0.2", 2 );
   startUsual();
   U32 adj = 0;
   for ( const auto & c : cases ) {
      state.fec( 1, {} );
      rec.take();
      state.fib->fecDel( 1 );
      rec.take();
      state.fec( 1, c.vias );
      EXPECT_THAT( take(), ElementsAre( Gant::format( "createAdj %u: ", 2 * adj + 1 ) + c.nextHops ) );
      ++adj;
      state.fib->fecDel( 1 );
      rec.take();
   }
}

TEST_F( Router, aNeighbourThatComesMovesAndGoesUpdatesExactlyTheAdjacenciesThatUseIt ) {
   startUsual();
   state.fec( 1, { via( "Et1", "10.9.0.2" ), via( "Et2", "10.8.0.2" ) } );
   state.fec( 2, { via( "Et1", "10.9.0.2" ) } );
   state.fec( 3, { via( "Et2", "10.8.0.2" ) } );
   state.fec( 4, { via( "Et1", "10.9.0.3" ) } );
   take();
   state.neighbor( "Et1", "10.9.0.2", 2 );
   EXPECT_THAT( take(), ElementsAre( "updateAdj 0: unresolved Et2 x1, forward Et1 02:00:00:00:00:02 x1",
                                     "updateAdj 1: forward Et1 02:00:00:00:00:02 x1" ) );
   state.neighbor( "Et1", "10.9.0.2", 5 );
   EXPECT_THAT( take(), ElementsAre( "updateAdj 0: unresolved Et2 x1, forward Et1 02:00:00:00:00:05 x1",
                                     "updateAdj 1: forward Et1 02:00:00:00:00:05 x1" ) );
   state.neighborDel( "Et1", "10.9.0.2" );
   EXPECT_THAT( take(),
                ElementsAre( "updateAdj 0: unresolved Et1 x1, unresolved Et2 x1", "updateAdj 1: unresolved Et1 x1" ) );
   // Nobody's neighbour.
   state.neighbor( "Et1", "10.9.0.77", 7 );
   EXPECT_THAT( drained(), IsEmpty() );
}

TEST_F( Router, anInterfaceThatGoesDownOrAwayTakesItsNextHopsAndBringsThemBack ) {
   startUsual();
   state.neighbor( "Et1", "10.9.0.2", 2 );
   state.fec( 1, { via( "Et1", "10.9.0.2" ) } );
   state.fec( 2, { via( Mirel::RouteType::receive_, "Et1" ) } );
   take();
   state.up( "Et1", false );
   EXPECT_THAT( take(), ElementsAre( "updateAdj 0: unresolved Et1 x1" ) );
   state.up( "Et1", true );
   EXPECT_THAT( take(), ElementsAre( "updateAdj 0: forward Et1 02:00:00:00:00:02 x1" ) );
   state.intfDel( "Et1" );
   EXPECT_THAT( take(),
                ElementsAre( "updateAdj 0: unresolved Et1 x1", "handleL3Intf Et1 vlan 4094 mtu 1500 vrf 0 delete" ) );
   // What the helper has of an interface goes with it: whatever names the interface is told again.
   state.intf( "Et1" );
   EXPECT_THAT( take(),
                ElementsAre( "handleL3Intf Et1 vlan 4094 mtu 1500 vrf 0 create", "enableVlanRouting Et1 vlan 4094 ip",
                             "updateAdj 0: forward Et1 02:00:00:00:00:02 x1", "updateAdj 1: receive Et1 x1" ) );
}

TEST_F( Router, fecsWithEqualViasShareAnAdjacencyAlsoAcrossVrfs ) {
   startUsual();
   state.vrf( "red", 7 );
   const Mirel::Vias vias{ via( "Et1", "10.9.0.2", 2 ), via( "Et2", "10.8.0.2" ) };
   state.fec( 1, vias );
   state.route( "10.0.0.0/8", 1 );
   state.fec( 2, vias );
   state.route( "10.0.0.0/8", 2, 7 );
   state.fec( 3, { via( "Et1", "10.9.0.2", 1 ), via( "Et2", "10.8.0.2" ) } );
   EXPECT_THAT( drained(),
                ElementsAre( "createVrf 7", "createAdj 0: unresolved Et1 x2, unresolved Et2 x1",
                             "10.0.0.0/8 vrf 0 none -> forward/0 seq 1", "10.0.0.0/8 vrf 7 none -> forward/0 seq 1",
                             "createAdj 1: unresolved Et1 x1, unresolved Et2 x1" ) );
   const auto & entries = layer.l3Status->l2AdjList( Hul::L2AdjKey( 0 ) )->adjEntryIterator();
   ASSERT_EQ( entries.size(), 2u );
   EXPECT_EQ( entries.at( 2 )->adjIndex(), 0u );
   EXPECT_EQ( entries.at( 2 )->routeType(), Mirel::RouteType::forward_ );
   // The families do not share: their FECs' numbers may be the same.
   state.fib6->fecIs( 1, vias );
   EXPECT_THAT( drained(), ElementsAre( "createAdj 2: unresolved Et1 x2, unresolved Et2 x1" ) );
}

TEST_F( Router, anAdjacencyGoesWithItsLastRouteWhicheverGoesFirst ) {
   startUsual();
   state.fec( 1, { via( "Et1", "10.9.0.2" ) } );
   state.route( "10.0.0.0/8", 1 );
   state.route( "11.0.0.0/8", 1 );
   drained();
   state.fib->fecDel( 1 );
   EXPECT_THAT( take(), IsEmpty() );
   state.routeDel( "10.0.0.0/8" );
   EXPECT_THAT( drained(), ElementsAre( "10.0.0.0/8 vrf 0 forward/0 -> none seq 3",
                                        "11.0.0.0/8 vrf 0 forward/0 -> none", "deleteAdj 0" ) );
   EXPECT_THAT( layer.pending(), ElementsAre( "route 11.0.0.0/8 in VRF 0: FEC 1 does not exist" ) );
   state.fec( 1, { via( "Et1", "10.9.0.2" ) } );
   EXPECT_THAT( drained(), ElementsAre( "createAdj 1: unresolved Et1 x1", "11.0.0.0/8 vrf 0 none -> forward/1" ) );
   state.routeDel( "11.0.0.0/8" );
   state.fib->fecDel( 1 );
   EXPECT_THAT( drained(), ElementsAre( "11.0.0.0/8 vrf 0 forward/1 -> none seq 4", "deleteAdj 1" ) );
}

// An interface that goes while no FEC is on the adjacency has nobody to ask for its walk.
TEST_F( Router, anAdjacencyThatAFecComesBackToIsWalked ) {
   startUsual();
   state.fec( 1, { via( "Et1", "10.9.0.2" ) } );
   state.route( "10.0.0.0/8", 1 );
   drained();
   state.fib->fecDel( 1 );
   state.fec( 2, { via( "Et1", "10.9.0.2" ) } );
   EXPECT_THAT( drained(), ElementsAre( "10.0.0.0/8 vrf 0 forward/0 -> none", "updateAdj 0: unresolved Et1 x1" ) );
}

TEST_F( Router, aFecThatIsAloneOnItsAdjacencyChangesItInPlace ) {
   startUsual();
   state.fec( 1, { via( "Et1", "10.9.0.2" ) } );
   state.route( "10.0.0.0/8", 1 );
   drained();
   state.fec( 1, { via( "Et2", "10.8.0.2" ) } );
   EXPECT_THAT( drained(), ElementsAre( "updateAdj 0: unresolved Et2 x1" ) );
   // The neighbours that count are the new ones.
   state.neighbor( "Et1", "10.9.0.2", 1 );
   state.neighbor( "Et2", "10.8.0.2", 2 );
   EXPECT_THAT( drained(), ElementsAre( "updateAdj 0: forward Et2 02:00:00:00:00:02 x1" ) );
   // Other vias with the same outcome are no change for the helper.
   state.fec( 1, { via( "Et2", "10.8.0.2", 5 ) } );
   EXPECT_THAT( drained(), IsEmpty() );
}

TEST_F( Router, anAdjacencyIsNotChangedUnderRoutesOfAFecThatHasLeftIt ) {
   startUsual();
   state.fec( 1, { via( "Et1", "10.9.0.2" ) } );
   state.fec( 2, { via( "Et1", "10.9.0.2" ) } );
   state.route( "10.0.0.0/8", 1 );
   state.route( "11.0.0.0/8", 2 );
   drained();
   // 10.0.0.0/8 is still on adjacency 0 when FEC 2, now alone there, changes.
   state.fec( 1, { via( "Et2", "10.8.0.2" ) } );
   state.fec( 2, { via( "Et2", "10.8.0.3" ) } );
   EXPECT_THAT( drained(), ElementsAre( "createAdj 1: unresolved Et2 x1", "createAdj 2: unresolved Et2 x1",
                                        "10.0.0.0/8 vrf 0 forward/0 -> forward/1",
                                        "11.0.0.0/8 vrf 0 forward/0 -> forward/2", "deleteAdj 0" ) );
}

TEST_F( Router, aWalkIsOneUpdateInALaterTurnHoweverOftenItIsAskedFor ) {
   startUsual();
   state.fec( 1, { via( "Et1", "10.9.0.2" ) } );
   state.fec( 2, { via( "Et1", "10.9.0.2" ) } );
   take();
   const auto adj = layer.l3Status->l2AdjList( Hul::L2AdjKey( 0 ) );
   for ( const auto & [ fecId, entry ] : adj->adjEntryIterator() ) {
      layer.root->hulAdjSm()->schedulePrefixWalk( entry );
      layer.root->hulAdjSm()->schedulePrefixWalk( entry );
   }
   EXPECT_THAT( take(), IsEmpty() );
   EXPECT_THAT( drained(), ElementsAre( "updateAdj 0: unresolved Et1 x1" ) );
   // An update in between does what the walk was for.
   layer.root->hulAdjSm()->schedulePrefixWalk( adj->adjEntryIterator().at( 1 ) );
   state.neighbor( "Et1", "10.9.0.2", 2 );
   EXPECT_THAT( drained(), ElementsAre( "updateAdj 0: forward Et1 02:00:00:00:00:02 x1" ) );
   // The adjacency is gone when the turn comes, and when it is asked for.
   const auto entry = adj->adjEntryIterator().at( 1 );
   layer.root->hulAdjSm()->schedulePrefixWalk( entry );
   state.fib->fecDel( 1 );
   state.fib->fecDel( 2 );
   layer.root->hulAdjSm()->schedulePrefixWalk( entry );
   layer.root->hulAdjSm()->schedulePrefixWalk( nullptr );
   EXPECT_THAT( drained(), ElementsAre( "deleteAdj 0" ) );
}

TEST_F( Router, aHelperThatAlwaysWantsAnotherWalkGetsOneForEachChange ) {
   startUsual();
   state.fec( 1, { via( "Et1", "10.9.0.2" ) } );
   take();
   rec.wantsWalk = [] { return true; };
   state.neighbor( "Et1", "10.9.0.2", 2 );
   EXPECT_THAT( drained(), ElementsAre( "updateAdj 0: forward Et1 02:00:00:00:00:02 x1",
                                        "updateAdj 0: forward Et1 02:00:00:00:00:02 x1" ) );
   EXPECT_THAT( layer.pending(), ElementsAre( "adjacency 0: the data plane took it in part" ) );
   layer.root->hulAdjSm()->schedulePrefixWalk( layer.l3Status->l2AdjList( Hul::L2AdjKey( 0 ) )->adjEntry( 1 ) );
   EXPECT_EQ( drained().size(), 2u );
   rec.wantsWalk = [] { return false; };
   state.neighborDel( "Et1", "10.9.0.2" );
   EXPECT_THAT( drained(), ElementsAre( "updateAdj 0: unresolved Et1 x1" ) );
   state.neighbor( "Et1", "10.9.0.2", 2 );
   drained();
   EXPECT_THAT( layer.pending(), IsEmpty() );
   // What is of no interface has no table that a walk could reach.
   rec.wantsWalk = [] { return true; };
   state.fec( 1, { via( Mirel::RouteType::drop_ ) } );
   EXPECT_THAT( drained(), ElementsAre( "updateAdj 0: drop x1" ) );
   EXPECT_THAT( layer.pending(), IsEmpty() );
}

TEST_F( Router, anAdjacencySaysWhatItLacks ) {
   startUsual();
   state.tunnel( "Tunnel1", "20.1.1.1" );
   state.fec( 1, { via( "Et1", "10.9.0.2" ), via( "Tunnel1", nullptr ) } );
   state.fec( 2, { via( "Et2", "10.8.0.2" ) } );
   const auto lacks = [ & ]( const char * what ) {
      drained();
      EXPECT_THAT( layer.pending(), ElementsAre( Gant::String( "adjacency 0: " ) + what ) );
   };
   state.neighbor( "Et2", "10.8.0.2", 8 );
   lacks( "neighbour 10.9.0.2 on Ethernet1 is not resolved" );
   state.up( "Et1", false );
   lacks( "Ethernet1 is not up and routed" );
   state.up( "Et1", true );
   state.neighbor( "Et1", "10.9.0.2", 2 );
   lacks( "there is no route to the end of Tunnel1" );
   state.route( "20.0.0.0/8", 2 );
   lacks( "Tunnel1 is not up and routed" );
   state.intf( "Tunnel1" );
   drained();
   EXPECT_THAT( layer.pending(), IsEmpty() );
}

TEST_F( Router, manyWalksAreSpreadOverTurns ) {
   startUsual();
   for ( U64 fecId = 0; fecId < 1000; ++fecId )
      state.fec( fecId, { via( "Et1", "10.9.0.2", U16( 1 ) ), via( "Et2", "10.8.0.2", U16( fecId + 1 ) ) } );
   take();
   for ( U64 index = 0; index < 1000; ++index )
      for ( const auto & [ fecId, entry ] : layer.l3Status->l2AdjList( Hul::L2AdjKey( index ) )->adjEntryIterator() )
         layer.root->hulAdjSm()->schedulePrefixWalk( entry );
   size_t firstOther = 0;
   Gant::activityManager()->post( [ & ] { firstOther = rec.take().size(); } );
   EXPECT_EQ( drained().size() + firstOther, 1000u );
   EXPECT_LT( firstOther, 500u );
}

TEST_F( Router, noRouteIsToldOnAnAdjacencyThatWasRefusedUntilItIsTaken ) {
   startUsual();
   bool refuse = true;
   rec.refusesAdj = [ & ] { return refuse; };
   state.fec( 1, { via( "Et1", "10.9.0.2" ) } );
   state.route( "10.0.0.0/8", 1 );
   EXPECT_THAT( drained(), ElementsAre( "createAdj 0: unresolved Et1 x1 refused" ) );
   EXPECT_THAT( layer.pending(),
                ElementsAre( "adjacency 0: the data plane refused it",
                             "route 10.0.0.0/8 in VRF 0: the data plane refused the adjacency of FEC 1" ) );
   state.neighbor( "Et1", "10.9.0.2", 2 );
   EXPECT_THAT( drained(), ElementsAre( "createAdj 0: forward Et1 02:00:00:00:00:02 x1 refused" ) );
   refuse = false;
   state.neighbor( "Et1", "10.9.0.2", 3 );
   EXPECT_THAT( drained(),
                ElementsAre( "createAdj 0: forward Et1 02:00:00:00:00:03 x1", "10.0.0.0/8 vrf 0 none -> forward/0" ) );
   EXPECT_THAT( layer.pending(), IsEmpty() );
   // One that was never taken is not taken back.
   refuse = true;
   state.fec( 2, { via( Mirel::RouteType::drop_ ) } );
   state.fib->fecDel( 2 );
   EXPECT_THAT( drained(), ElementsAre( "createAdj 1: drop x1 refused" ) );
}

TEST_F( Router, anAdjacencyThatDoesNotFitOnAnInterfaceWaitsForItsPlace ) {
   startUsual();
   layer.root->hulAdjSm()->nextHopLimitsIs( { 2, 1 } );
   const char * const hops[] = { "10.9.0.1", "10.9.0.2", "10.9.0.3", "10.9.0.4" };
   for ( U64 fec = 1; fec <= 4; ++fec ) {
      state.fec( fec, { via( "Et1", hops[ fec - 1 ] ) } );
      state.route( Gant::format( "%llu.0.0.0/8", static_cast< unsigned long long >( fec ) ).c_str(), fec );
   }
   EXPECT_THAT( drained(), ElementsAre( "createAdj 0: unresolved Et1 x1", "1.0.0.0/8 vrf 0 none -> forward/0 seq 1",
                                        "createAdj 1: unresolved Et1 x1", "2.0.0.0/8 vrf 0 none -> forward/1 seq 2" ) );
   const Gant::String full = "it does not fit on Ethernet1: 2 of 2 next hops are in use";
   EXPECT_THAT( layer.pending(),
                ElementsAre( "adjacency 0: neighbour 10.9.0.1 on Ethernet1 is not resolved",
                             "adjacency 1: neighbour 10.9.0.2 on Ethernet1 is not resolved", "adjacency 2: " + full,
                             "adjacency 3: " + full, "route 3.0.0.0/8 in VRF 0: " + full,
                             "route 4.0.0.0/8 in VRF 0: " + full ) );
   EXPECT_THAT( layer.unprogrammed(), ElementsAre( "vrf 0 3.0.0.0/8 noRoom", "vrf 0 4.0.0.0/8 noRoom" ) );
   // There is no place for the new next hop beside the old one.
   state.neighbor( "Et1", "10.9.0.1", 1 );
   EXPECT_THAT( drained(), ElementsAre( "updateAdj 0: nothing", "updateAdj 0: forward Et1 02:00:00:00:00:01 x1" ) );
   // The one that waited longest comes in.
   state.fib->fecDel( 2 );
   EXPECT_THAT( drained(), ElementsAre( "2.0.0.0/8 vrf 0 forward/1 -> none", "deleteAdj 1",
                                        "createAdj 2: unresolved Et1 x1", "3.0.0.0/8 vrf 0 none -> forward/2" ) );
   // One that grows out of its place leaves it to others, and comes back.
   state.fec( 1, { via( "Et1", "10.9.0.1" ), via( "Et1", "10.9.0.9" ) } );
   EXPECT_THAT( drained(), ElementsAre( "updateAdj 0: nothing", "createAdj 3: unresolved Et1 x1",
                                        "1.0.0.0/8 vrf 0 forward/0 -> none", "4.0.0.0/8 vrf 0 none -> forward/3" ) );
   state.fib->fecDel( 3 );
   state.fib->fecDel( 4 );
   EXPECT_THAT( drained(), testing::Contains( "1.0.0.0/8 vrf 0 none -> forward/0" ) );
   EXPECT_THAT( layer.unprogrammed(), IsEmpty() );
}

} // namespace
} // namespace HulTest
