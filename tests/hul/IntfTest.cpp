#include "HulRouter.h"

namespace HulTest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F( Router, anInterfaceIsToldWhenTheLastThingItNeedsIsThere ) {
   struct Case {
      const char * missing;
      const char * reason; // null: the interface is not asked for
      void ( *give )( State & );
   };
   const Case cases[] = {
        { "routing", nullptr, []( State & s ) { s.ip->intfStatusIs( intfId( "Et1" ), Ip::IntfStatus() ); } },
        { "interface", "the interface does not exist", []( State & s ) { s.intfs->intfStatusDel( intfId( "Et1" ) ); } },
        { "VRF", "VRF default does not exist", []( State & s ) { s.vrfDel( "default" ); } },
   };
   start();
   for ( const auto & c : cases ) {
      SCOPED_TRACE( c.missing );
      state.vrf( "default", 0 );
      state.intf( "Et1" );
      layer.drain();
      rec.take();
      c.give( state );
      EXPECT_THAT( drained().front(), "handleL3Intf Et1 vlan 4094 mtu 1500 vrf 0 delete" );
      if ( c.reason == nullptr )
         EXPECT_THAT( layer.pending(), IsEmpty() );
      else
         EXPECT_THAT( layer.pending(), ElementsAre( Gant::String( "interface Ethernet1: " ) + c.reason ) );
   }
}

TEST_F( Router, eachFactOfAnInterfaceHasItsCallAndAnUnchangedOneNone ) {
   startUsual();
   const auto tell = [ & ]( const Ip::IntfStatus & status ) {
      state.ip->intfStatusIs( intfId( "Et1" ), status );
      return take();
   };
   Ip::IntfStatus status = state.ip->intfStatus( intfId( "Et1" ) );
   status.mtuIs( 9000 );
   EXPECT_THAT( tell( status ), ElementsAre( "handleL3Intf Et1 vlan 4094 mtu 9000 vrf 0 update" ) );
   status.multicastRoutingEnabledIs( true );
   EXPECT_THAT( tell( status ), ElementsAre( "enableVlanRouting Et1 vlan 4094 ip+mcast" ) );
   status.tcpMssIngressIs( 1300 );
   EXPECT_THAT( tell( status ), ElementsAre( "handleTcpMssIngress Et1 1300" ) );
   status.tcpMssEgressIs( 1200 );
   EXPECT_THAT( tell( status ), ElementsAre( "handleTcpMssEgress Et1 1200" ) );
   EXPECT_THAT( tell( status ), IsEmpty() );
   state.up( "Et1", false );
   state.up( "Et1", true );
   EXPECT_THAT( take(), IsEmpty() );
   state.l3->routingIs( false );
   EXPECT_THAT( take(), ElementsAre( "handleRouting 0 0", "enableVlanRouting Et1 vlan 4094 mcast",
                                     "enableVlanRouting Et2 vlan 4093 off" ) );
}

TEST_F( Router, internalVlansAreTheHighestThatNobodyHasARightTo ) {
   state.bridging->vlanConfigIs( Bridging::VlanId( 4094 ),
                                 Gant::make< Bridging::VlanConfig >( Bridging::VlanId( 4094 ) ) );
   startUsual();
   const auto vlan = [ & ]( const char * name ) { return layer.table->intfIdToL3Id( intfId( name ) ).value(); };
   state.intf( "Vlan100" );
   state.intf( "Vlan4092" );
   EXPECT_EQ( vlan( "Et1" ), 4093u );
   EXPECT_EQ( vlan( "Vlan100" ), 100u );
   // Ethernet2 had VLAN 4092 until its owner came.
   EXPECT_EQ( vlan( "Vlan4092" ), 4092u );
   EXPECT_EQ( vlan( "Et2" ), 4091u );
   rec.take();
   // A VLAN that is configured now drives out who used it internally, first.
   state.bridging->vlanConfigIs( Bridging::VlanId( 4093 ),
                                 Gant::make< Bridging::VlanConfig >( Bridging::VlanId( 4093 ) ) );
   EXPECT_THAT( take(), ElementsAre( "handleL3Intf Et1 vlan 4093 mtu 1500 vrf 0 delete",
                                     "handleL3Intf Et1 vlan 4090 mtu 1500 vrf 0 create",
                                     "enableVlanRouting Et1 vlan 4090 ip" ) );
   // One that is given back is the next one's.
   state.intfDel( "Et2" );
   state.intf( "Et3" );
   EXPECT_EQ( vlan( "Et2" ), 0u );
   EXPECT_EQ( vlan( "Et3" ), 4091u );
}

TEST_F( Router, anInterfaceForWhichThereIsNoVlanWaitsForOne ) {
   for ( U16 vlanId = 1; vlanId <= 4094; ++vlanId )
      if ( vlanId != 17 )
         state.bridging->vlanConfigIs( Bridging::VlanId( vlanId ),
                                       Gant::make< Bridging::VlanConfig >( Bridging::VlanId( vlanId ) ) );
   startUsual();
   EXPECT_EQ( layer.table->intfIdToL3Id( intfId( "Et1" ) ).value(), 17u );
   state.intf( "Vlan5000" );
   EXPECT_THAT( layer.pending(), ElementsAre( "interface Ethernet2: there is no VLAN for it",
                                              "interface Vlan5000: there is no VLAN for it" ) );
   state.bridging->vlanConfigDel( Bridging::VlanId( 23 ) );
   EXPECT_THAT( take(),
                ElementsAre( "handleL3Intf Et2 vlan 23 mtu 1500 vrf 0 create", "enableVlanRouting Et2 vlan 23 ip" ) );
   state.intf( "Et3" );
   state.intfDel( "Et1" );
   EXPECT_EQ( layer.table->intfIdToL3Id( intfId( "Et3" ) ).value(), 17u );
}

} // namespace
} // namespace HulTest
