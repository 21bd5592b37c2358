#include "Engine.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;
using namespace VexL3Unicast;
using Hul::NextHopEntryType;

class Adjacencies : public testing::Test {
 protected:
   void SetUp() override {
      for ( const char * name : { "Ethernet1", "Ethernet2" } ) core.port( name );
      core.routed( "Ethernet1", 4094 );
      core.routed( "Ethernet2", 4093 );
      core.take();
   }
   void TearDown() override { EXPECT_EQ( core.brokenInvariant(), "" ); }

   Gant::Ptr< Fec > fecOf( U64 adj ) const {
      return core.routeDb->fec( core.routeDb->adjIdxToFec( Hul::L2AdjKey( adj ) ) );
   }
   Hul::NextHop neighbour( const char * intfName, int last ) const {
      return forwardHop( intfName, Gant::format( "00:00:00:00:00:%02x", last ).c_str() );
   }
   L3Core core;
};

TEST_F( Adjacencies, anAdjacencyIsMadeBeforeItIsBrokenAndKeepsItsKey ) {
   const auto adj =
        core.adjacency( 50, via( { { neighbour( "Ethernet1", 1 ), 1 }, { neighbour( "Ethernet2", 2 ), 1 } } ) );
   EXPECT_EQ( core.adjHelper->createAdj( adj ), Hul::AdjUpdateStatus::adjUpdateSucceeded_ );
   EXPECT_EQ( core.take(), lines( R"(
      NextHop_et1 writeNH nexthopinfo {nh_index 1 mac_da 00:00:00:00:00:01 pkt_cmd 1}
      NextHop_et2 writeNH nexthopinfo {nh_index 1 mac_da 00:00:00:00:00:02 pkt_cmd 1}
      fibIpv4 addFec fec_id 3 nh_info {gate 1 nh_index 1} nh_info {gate 2 nh_index 1}
   )" ) );

   adj->viaIs( via( { { neighbour( "Ethernet1", 1 ), 1 }, { neighbour( "Ethernet1", 3 ), 1 } } ) );
   EXPECT_EQ( core.adjHelper->updateAdj( adj ),
              Hul::AdjUpdateReturnType( Hul::AdjUpdateStatus::adjUpdateSucceeded_, false ) );
   EXPECT_EQ( core.take(), lines( R"(
      NextHop_et1 writeNH nexthopinfo {nh_index 2 mac_da 00:00:00:00:00:01 pkt_cmd 1}
      NextHop_et1 writeNH nexthopinfo {nh_index 3 mac_da 00:00:00:00:00:03 pkt_cmd 1}
      fibIpv4 addFec fec_id 3 nh_info {gate 1 nh_index 2} nh_info {gate 1 nh_index 3}
      NextHop_et1 deleteNH nexthopinfo {nh_index 1}
      NextHop_et2 deleteNH nexthopinfo {nh_index 1}
   )" ) );
   EXPECT_EQ( fecOf( 50 )->version(), 2u );

   core.adjHelper->deleteAdj( adj );
   EXPECT_EQ( core.take(), lines( R"(
      fibIpv4 delFec fec_id 3
      NextHop_et1 deleteNH nexthopinfo {nh_index 2}
      NextHop_et1 deleteNH nexthopinfo {nh_index 3}
   )" ) );
   EXPECT_TRUE( core.routeDb->unusedFecKeyHas( FecKey( 3 ) ) );
   core.adjHelper->deleteAdj( adj );
   EXPECT_EQ( core.adjHelper->numDeleteAdj(), 2u );
   EXPECT_EQ( core.take(), Lines{} );

   // The key comes back, with its generation.
   core.adjHelper->createAdj( core.adjacency( 51, via( { { neighbour( "Ethernet2", 4 ), 1 } } ) ) );
   EXPECT_EQ( fecOf( 51 )->str(), "3,1,0,1" );
}

TEST_F( Adjacencies, aKnownAdjacencyThatIsCreatedAgainIsUpdated ) {
   const auto adj = core.adjacency( 50, via( { { neighbour( "Ethernet1", 1 ), 1 } } ) );
   core.adjHelper->createAdj( adj );
   EXPECT_EQ( core.adjHelper->createAdj( adj ), Hul::AdjUpdateStatus::adjUpdateSucceeded_ );
   EXPECT_EQ( core.adjHelper->numCreateAdj(), 1u );
   EXPECT_EQ( core.adjHelper->numUpdateAdj(), 1u );
   EXPECT_EQ( fecOf( 50 )->version(), 2u );
   EXPECT_EQ( fecOf( 50 )->info().nextHop( 0 ).nhLocalIndex(), 2u );
   // One that is not known fails, and asks to be walked.
   EXPECT_EQ( core.adjHelper->updateAdj( core.adjacency( 99, {} ) ),
              Hul::AdjUpdateReturnType( Hul::AdjUpdateStatus::adjUpdateFailed_, true ) );
}

TEST_F( Adjacencies, everyKindOfNextHopHasItsKeyAndItsEntry ) {
   core.l3IntfTable->intfL3IndexDel( intf( "Ethernet2" ) );
   const struct {
      Hul::NextHop nextHop;
      const char * key;
      const char * command;
      const char * fec;
   } cases[] = {
        { hop( NextHopEntryType::unresolved(), "Ethernet1" ), "pktCmdArpTrap,0,Ethernet1,00:00:00:00:00:00,1,0,0.0.0.0",
          "nh_index 1 pkt_cmd 0", "nh_info {gate 1 nh_index 1}" },
        { hop( NextHopEntryType::receive(), "Ethernet1" ), "pktCmdReceive,0,Ethernet1,00:00:00:00:00:00,1,0,0.0.0.0",
          "nh_index 1 pkt_cmd 0", "nh_info {gate 1 nh_index 1}" },
        { neighbour( "Ethernet1", 9 ), "pktCmdForward,4094,Ethernet1,00:00:00:00:00:09,1,0,0.0.0.0",
          "nh_index 1 mac_da 00:00:00:00:00:09 pkt_cmd 1", "nh_info {gate 1 nh_index 1}" },
        // The interface has no L3Id yet.
        { neighbour( "Ethernet2", 9 ), "pktCmdDrop,0,Ethernet2,00:00:00:00:00:00,1,0,0.0.0.0", "nh_index 1 pkt_cmd 2",
          "" },
        { hop( NextHopEntryType::drop(), "Ethernet1" ), "pktCmdDrop,0,Ethernet1,00:00:00:00:00:00,1,0,0.0.0.0",
          "nh_index 1 pkt_cmd 2", "" },
        { hop( NextHopEntryType::slowReceive(), "Ethernet1" ),
          "pktCmdSlowReceive,0,Ethernet1,00:00:00:00:00:00,1,0,0.0.0.0", "nh_index 1 pkt_cmd 0",
          "nh_info {gate 1 nh_index 1}" },
        { hop( NextHopEntryType::slowReceiveBroadcast(), "Ethernet1" ),
          "pktCmdSlowReceive,0,Ethernet1,00:00:00:00:00:00,1,0,0.0.0.0", "nh_index 1 pkt_cmd 0",
          "nh_info {gate 1 nh_index 1}" },
   };
   for ( const auto & c : cases ) {
      const auto adj = core.adjacency( 50, via( { { c.nextHop, 1 } } ) );
      core.adjHelper->createAdj( adj );
      EXPECT_EQ( fecOf( 50 )->info().nextHop( 0 ).str(), c.key );
      const auto sent = core.take();
      EXPECT_NE( sent[ 0 ].find( Gant::String( "writeNH nexthopinfo {" ) + c.command + "}" ), sent[ 0 ].npos )
           << sent[ 0 ];
      EXPECT_EQ( sent[ 1 ], Gant::String( "fibIpv4 addFec fec_id 3" ) + ( *c.fec ? " " : "" ) + c.fec ) << c.key;
      core.adjHelper->deleteAdj( adj );
      core.take();
   }
}

TEST_F( Adjacencies, weightsCountAndDoNotReachTheDataPlane ) {
   core.adjHelper->createAdj(
        core.adjacency( 50, via( { { neighbour( "Ethernet1", 1 ), 3 }, { neighbour( "Ethernet2", 2 ), 0 } } ) ) );
   EXPECT_EQ( fecOf( 50 )->info().str(), "1 3" );
   EXPECT_TRUE( fecOf( 50 )->isEcmp() );
   EXPECT_EQ( core.take(), lines( R"(
      NextHop_et1 writeNH nexthopinfo {nh_index 1 mac_da 00:00:00:00:00:01 pkt_cmd 1}
      fibIpv4 addFec fec_id 3 nh_info {gate 1 nh_index 1}
   )" ) );
   core.adjHelper->createAdj( core.adjacency( 51, {} ) );
   EXPECT_EQ( core.take(), lines( "fibIpv4 addFec fec_id 4" ) );
}

TEST_F( Adjacencies, aMissingModuleIsAPartialSuccessThatAnUpdateRepairs ) {
   const auto adj = core.adjacency( 50, via( { { neighbour( "Ethernet3", 1 ), 1 } } ) );
   EXPECT_EQ( core.adjHelper->createAdj( adj ), Hul::AdjUpdateStatus::adjUpdateSucceeded_ );
   // No L3Id and no module: nothing to write, and a drop is not listed.
   EXPECT_EQ( core.take(), lines( "fibIpv4 addFec fec_id 3" ) );
   EXPECT_TRUE( core.routeDb->fecForLpmHas( FecKey( 3 ) ) );

   core.l3IntfTable->intfL3IndexIs( intf( "Ethernet3" ), HulL3Intf::L3Id( 4092 ) );
   EXPECT_EQ( core.adjHelper->updateAdj( adj ),
              Hul::AdjUpdateReturnType( Hul::AdjUpdateStatus::adjUpdateSucceeded_, true ) );
   // Listed without waiting for the module, under a gate that does not exist yet.
   EXPECT_EQ( core.take(), lines( "fibIpv4 addFec fec_id 3 nh_info {gate 4294967295 nh_index 2}" ) );

   core.port( "Ethernet3" );
   core.routed( "Ethernet3", 4092 );
   core.take();
   EXPECT_EQ( core.adjHelper->updateAdj( adj ),
              Hul::AdjUpdateReturnType( Hul::AdjUpdateStatus::adjUpdateSucceeded_, false ) );
   EXPECT_EQ( core.take(), lines( R"(
      NextHop_et3 writeNH nexthopinfo {nh_index 1 mac_da 00:00:00:00:00:01 pkt_cmd 1}
      fibIpv4 addFec fec_id 3 nh_info {gate 3 nh_index 1}
      NextHop_et3 deleteNH nexthopinfo {nh_index 2}
   )" ) );
}

TEST_F( Adjacencies, aNextHopThroughATunnelGoesByItsResolveEntry ) {
   const auto adj = core.adjacency( 50, via( { { tunnelHop( "Tunnel1", "Ethernet1", "00:00:00:00:00:07" ), 1 } } ) );
   core.adjHelper->createAdj( adj );
   // The tunnel is not there: its next hop is written and not listed.
   EXPECT_EQ( core.take(), lines( R"(
      NextHop_et1 writeNH nexthopinfo {nh_index 1 mac_da 00:00:00:00:00:07 pkt_cmd 1}
      fibIpv4 addFec fec_id 3
   )" ) );
   core.tunnel( "Tunnel1" );
   core.routed( "Tunnel1", 4092 );
   core.take();
   for ( const U32 nhr : { 1, 2, 1 } ) {
      core.adjHelper->updateAdj( adj );
      const auto index = fecOf( 50 )->info().nextHop( 0 ).nhLocalIndex();
      const auto sent = core.take();
      EXPECT_EQ( sent[ 1 ],
                 Gant::format( "NhResolve_tu1 addNhResolveEntry nhr_index %u ogate 1 nhm_index %u", nhr, index ) );
      EXPECT_EQ( sent[ 2 ], Gant::format( "fibIpv4 addFec fec_id 3 nh_info {gate 3 nh_index %u}", nhr ) );
   }
   core.adjHelper->deleteAdj( adj );
   EXPECT_EQ( core.take(), lines( R"(
      fibIpv4 delFec fec_id 3
      NextHop_et1 deleteNH nexthopinfo {nh_index 2}
      NhResolve_tu1 deleteNhResolveEntry nhr_index 1
   )" ) );
   EXPECT_EQ( core.l3Modules->nhResolve( intf( "Tunnel1" ) )->nhrEntryIndexAvailables(), 1023u );
}

TEST_F( Adjacencies, aNextHopWithoutAnInterfaceIsInNoIndexAndGoesToTheClassifier ) {
   const Hul::NextHop receive( NextHopEntryType::receive(), {}, {}, {}, {} );
   core.adjHelper->createAdj( core.adjacency( 50, via( { { receive, 1 } } ) ) );
   EXPECT_EQ( core.take(), lines( "fibIpv4 addFec fec_id 3 nh_info {gate 0 nh_index 1}" ) );
   EXPECT_EQ( core.routeDb->intfToFecSets(), 0u );
   VexNhEntry entry = core.sm->getNextHopInfo( fecOf( 50 )->info().nextHop( 0 ) );
   EXPECT_EQ( entry.pktCmd(), 2u );
   EXPECT_EQ( entry.egressVif(), 490u );
}

} // namespace
