#include "HulRouter.h"

#include "HulSeqStatus.h"

namespace HulTest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F( Router, whatIsThereAtStartIsToldFromTheTopAndRoutesInTheTurnsThatFollow ) {
   state.route( "10.0.0.0/8", 1 );
   state.fec( 1, { via( "Et1", "10.9.0.2" ) } );
   state.neighbor( "Et1", "10.9.0.2", 2 );
   state.intf( "Et1" );
   state.vrf( "default", 0 );
   state.bridging->bridgeMacAddrIs( mac( 0xfe ) );
   layer.start();
   EXPECT_THAT( take(),
                ElementsAre( "handleRouting 1 0", "handleRouterMac 02:00:00:00:00:fe add", "createVrf 0",
                             "handleL3Intf Et1 vlan 4094 mtu 1500 vrf 0 create", "enableVlanRouting Et1 vlan 4094 ip",
                             "createAdj 0: forward Et1 02:00:00:00:00:02 x1" ) );
   EXPECT_TRUE( layer.root->busy() );
   layer.drain();
   EXPECT_THAT( rec.take(),
                ElementsAre( "10.0.0.0/8 vrf 0 none -> forward/0", "endOfSyncOnInit", "commitRouteBatch" ) );
}

TEST_F( Router, aVrfComesBeforeWhatIsInItAndGoesAfterIt ) {
   startUsual();
   state.fec( 1, { via( "Et3", "10.9.0.2" ) } );
   state.route( "10.0.0.0/8", 1, 7 );
   state.intf( "Et3", "red" );
   state.neighbor( "Et3", "10.9.0.2", 2 );
   EXPECT_THAT( drained(), ElementsAre( "createAdj 0: unresolved Et3 x1" ) );
   EXPECT_THAT( layer.pending(), ElementsAre( "interface Ethernet3: VRF red does not exist",
                                              "adjacency 0: Ethernet3 is not up and routed",
                                              "route 10.0.0.0/8 in VRF 7: VRF 7 does not exist" ) );
   state.vrf( "red", 7, false );
   EXPECT_THAT( drained(), IsEmpty() );
   state.vrf( "red", 7 );
   EXPECT_THAT( drained(),
                ElementsAre( "createVrf 7", "handleL3Intf Et3 vlan 4092 mtu 1500 vrf 7 create",
                             "enableVlanRouting Et3 vlan 4092 ip", "updateAdj 0: forward Et3 02:00:00:00:00:02 x1",
                             "10.0.0.0/8 vrf 7 none -> forward/0" ) );
   EXPECT_THAT( layer.pending(), IsEmpty() );
   state.vrfDel( "red" );
   EXPECT_THAT( take(),
                ElementsAre( "updateAdj 0: unresolved Et3 x1", "handleL3Intf Et3 vlan 4092 mtu 1500 vrf 7 delete" ) );
   EXPECT_THAT( layer.pending(),
                testing::Contains( "deletion of VRF red: its routes and interfaces are still going" ) );
   EXPECT_THAT( drained(), ElementsAre( "10.0.0.0/8 vrf 7 forward/0 -> none", "deleteVrf 7" ) );
}

TEST_F( Router, aVrfIdThatIsTakenIsWaitedFor ) {
   startUsual();
   state.fec( 1, { via( Mirel::RouteType::drop_ ) } );
   state.vrf( "red", 7 );
   state.vrf( "blue", 7 );
   state.route( "10.0.0.0/8", 1, 7 );
   EXPECT_THAT( drained(),
                ElementsAre( "createAdj 0: drop x1", "createVrf 7", "10.0.0.0/8 vrf 7 none -> forward/0 seq 1" ) );
   EXPECT_THAT( layer.pending(), ElementsAre( "VRF blue: id 7 belongs to VRF red" ) );
   // red moves to another id, and blue gets what red had.
   state.vrf( "red", 8 );
   EXPECT_THAT( drained(), ElementsAre( "10.0.0.0/8 vrf 7 forward/0 -> none", "deleteVrf 7", "createVrf 7",
                                        "createVrf 8", "10.0.0.0/8 vrf 7 none -> forward/0" ) );
   EXPECT_EQ( layer.l3Status->vrfId( L3::VrfName( "blue" ) ), Hul::VrfId( 7 ) );
}

TEST_F( Router, sequencesReachTheHostWhenEverythingUpToThemIsTold ) {
   Hul::HulSeqStatusCreatorSm creator( { layer.csd, state.vrfs, layer.seqDir } );
   state.fec( 1, { via( Mirel::RouteType::drop_ ) } );
   state.route( "10.0.0.0/8", 1 );
   state.route( "11.0.0.0/8", 9 );
   state.vrf( "default", 0 );
   const auto entry = dynamic_cast< Hul::VrfSeqStatus * >( layer.seqDir->entity( "default" ).get() );
   ASSERT_NE( entry, nullptr );
   start();
   // While the routes of the start are on their way, a change's number says nothing yet.
   state.route( "12.0.0.0/8", 1 );
   EXPECT_THAT( take(), ElementsAre( "12.0.0.0/8 vrf 0 none -> forward/0" ) );
   EXPECT_EQ( entry->sequenceProgrammed(), 0u );
   layer.drain();
   EXPECT_EQ( entry->sequenceProgrammed(), 3u );
   state.route( "13.0.0.0/8", 1 );
   EXPECT_THAT( drained(), testing::Contains( "13.0.0.0/8 vrf 0 none -> forward/0 seq 4" ) );
   EXPECT_EQ( entry->sequenceProgrammed(), 4u );
   // A change that nothing can be done about yet is acknowledged too.
   state.route( "14.0.0.0/8", 9 );
   EXPECT_EQ( entry->sequenceProgrammed(), 5u );
   state.vrfDel( "default" );
   EXPECT_FALSE( layer.seqDir->entityHas( "default" ) );
   layer.drain();
}

TEST_F( Router, aVrfThatComesAgainUnderAnUsedIdIsUpToDateAndWhatIsUnderWayIsWaitedFor ) {
   Hul::HulSeqStatusCreatorSm creator( { layer.csd, state.vrfs, layer.seqDir } );
   auto & progress = *layer.csd->progress();
   startUsual();
   state.fec( 1, { via( Mirel::RouteType::drop_ ) } );
   state.vrf( "red", 7 );
   const auto programmed = [ & ] {
      return dynamic_cast< Hul::VrfSeqStatus & >( *layer.seqDir->entity( "red" ) ).sequenceProgrammed();
   };
   rec.refusesRoute = [ & ]( const auto & ) {
      progress.toldInc();
      return false;
   };
   state.route( "10.0.0.0/8", 1, 7 );
   EXPECT_EQ( programmed(), 0u );
   progress.acknowledgedIs( 1 );
   EXPECT_EQ( programmed(), 1u );
   state.routeDel( "10.0.0.0/8", 7 );
   state.vrfDel( "red" );
   drained();
   state.vrf( "red", 7 );
   EXPECT_EQ( programmed(), 0u );
   progress.acknowledgedIs( 2 );
   EXPECT_EQ( programmed(), 2u );
}

} // namespace
} // namespace HulTest
