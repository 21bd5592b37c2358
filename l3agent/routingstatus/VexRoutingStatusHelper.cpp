#include "VexRoutingStatusHelper.h"

#include "GantAssert.h"
#include "GantTrace.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexRoutingStatusHelper" );

RoutingStatusHelper::RoutingStatusHelper( const Gant::Name & name, const Gant::Ptr< RoutingStatus > & routingStatus,
                                          const Gant::Ptr< Vex::VexCommonSmData > & vexcsd,
                                          const Gant::Ptr< L3Modules > & l3Modules ) :
     RoutingStatusSmHelper( name ),
     routingStatus_( routingStatus ), vexcsd_( vexcsd ), l3Modules_( l3Modules ) {}

RoutingStatusHelper::~RoutingStatusHelper() = default;

Gant::Ptr< RoutingStatusHelper > routingStatusHelperFactory( const Gant::Name & name,
                                                             const Gant::Ptr< RoutingStatus > & routingStatus,
                                                             const Gant::Ptr< Vex::VexCommonSmData > & vexcsd,
                                                             const Gant::Ptr< L3Modules > & l3Modules ) {
   return Gant::make< RoutingStatusHelper >( name, routingStatus, vexcsd, l3Modules );
}

void RoutingStatusHelper::handleRouting( bool enable, bool enable6 ) {
   GANT_TRACE( 2, "RoutingStatusHelper::handleRouting", " enable ", enable, " enable6 ", enable6 );
}

void RoutingStatusHelper::handleRouterMac( const Kynet::EthAddr & address, bool add ) {
   routingStatus()->routerMacIs( add ? address : Kynet::EthAddr::ethAddrZero() );
}

void RoutingStatusHelper::handleVirtualRouterMac( const Kynet::EthAddrWithMask & address, bool add ) {
   routingStatus()->virtualRouterMacIs( add ? address.addr() : Kynet::EthAddr::ethAddrZero() );
}

void RoutingStatusHelper::enableVlanRouting( Kynet::IntfId intfId, U32 vlanId, Hul::RoutingState state ) {
   GANT_ASSERT( vlanId, " intfId ", intfId );
   const auto vlan = static_cast< U16 >( vlanId );
   if ( vlan < 1 || vlan > 4094 ) return;
   const auto & vrs = routingStatus()->vlanRoutingStatus( Bridging::VlanId( vlan ) );
   if ( !vrs ) return;
   vrs->routingStateIs( state );
   vrs->routingStateValidIs( true );
   vrs->genIdInc( 1 );
}

void RoutingStatusHelper::handleL3Intf( Kynet::IntfId intfId, U32 vlanId, U32 mtu, bool create, bool update,
                                        Hul::VrfId vrfId ) {
   GANT_TRACE( 2, "RoutingStatusHelper::handleL3Intf ", intfId, " vlanId ", vlanId, " mtu ", mtu, " create ", create,
               " update ", update, " vrf ", vrfId );
   const Bridging::VlanId vlan( static_cast< U16 >( vlanId ) );
   if ( !create ) {
      vexcsd()->l3IntfDel( intfId );
      routingStatus()->vlanRoutingStatusDel( vlan );
      return;
   }
   auto vrs = routingStatus()->vlanRoutingStatus( vlan );
   if ( !vrs ) {
      GANT_ASSERT( !update, " intfId ", intfId, " vlanId ", vlanId );
      vrs = routingStatus()->vlanRoutingStatusIs( vlan );
   }
   vrs->vrfIdIs( vrfId );
   vrs->vrfIdValidIs( true );
   vrs->mtuIs( mtu );
   if ( update ) {
      if ( const auto & ipOutputMod = l3Modules()->ipOutputMod( intfId ) ) ipOutputMod->setIpMtu( mtu );
      if ( const auto l3Intf = vexcsd()->l3Intf( intfId ) ) l3Intf->ipMtuIs( mtu );
   } else {
      vexcsd()->l3IntfIs( intfId, vrfId, vexcsd()->l2Intf( intfId ), mtu );
   }
   // In this order: who reacts to the generation still sees the former interface.
   vrs->genIdInc( 1 );
   vrs->intfIdIs( intfId );
}

void RoutingStatusHelper::handleTcpMssEgress( Kynet::IntfId intfId, U16 mss ) {
   if ( const auto & l2Intf = vexcsd()->l2Intf( intfId ) ) l2Intf->maxMssEgressIs( mss );
   if ( !vexcsd()->l3Intf( intfId ) ) {
      GANT_TRACE( 2, "RoutingStatusHelper::handleTcpMssEgress ", intfId, " l3Intf not up, ignoring mss" );
      return;
   }
   const auto & ipOutputMod = l3Modules()->ipOutputMod( intfId );
   GANT_ASSERT( ipOutputMod, " intfId ", intfId );
   ipOutputMod->setTcpMssAdjust( mss, true );
}

void RoutingStatusHelper::handleTcpMssIngress( Kynet::IntfId intfId, U16 mss ) {
   if ( const auto & l2Intf = vexcsd()->l2Intf( intfId ) ) l2Intf->maxMssIngressIs( mss );
   if ( !vexcsd()->l3Intf( intfId ) ) {
      GANT_TRACE( 2, "RoutingStatusHelper::handleTcpMssIngress ", intfId, " l3Intf not up, ignoring mss" );
      return;
   }
   const auto & ipInputMod = l3Modules()->ipInputMod( intfId );
   GANT_ASSERT( ipInputMod, " intfId ", intfId );
   ipInputMod->setTcpMssAdjust( mss, true );
}

} // namespace VexL3Unicast
