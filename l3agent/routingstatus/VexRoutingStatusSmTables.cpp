// The tables of a switching design. This data plane has none of them: each operation leaves its trace.
#include "GantAssert.h"
#include "GantTrace.h"
#include "VexRoutingStatusSm.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexRoutingStatusSm" );

namespace {

Gant::String stateText( const Gant::Ptr< VlanRoutingStatus > & vrs ) {
   if ( !vrs ) return " routingState null vrfId null";
   return Gant::textsOf( " routingState ", vrs->routingState(), " vrfId ", vrs->vrfId() );
}

} // namespace

void RoutingStatusSm::doMaybeProgramBd( Bridging::VlanId vlanId ) {
   GANT_TRACE( 3, "RoutingStatusSm::doMaybeProgramBd", " vlanId ", vlanId );
}

void RoutingStatusSm::doMaybeProgramEgressBd( Bridging::VlanId vlanId ) {
   const auto & vrs = routingStatus()->vlanRoutingStatus( vlanId );
   if ( !vrs )
      GANT_TRACE( 3, "RoutingStatusSm::doMaybeProgramEgressBd ", vlanId, " No vlan routing status exists" );
   else if ( vrs->genId() == 0 || !vrs->routingStateValid() || !vrs->vrfIdValid() )
      GANT_TRACE( 3, "RoutingStatusSm::doMaybeProgramEgressBd ", vlanId, " Vlan routing status not valid yet" );
}

void RoutingStatusSm::doMaybeProgramFdb( const Kynet::EthAddr & mac, Bridging::VlanId vlanId, bool isAnygwMac,
                                         bool add ) {
   GANT_TRACE( 3, "RoutingStatusSm::doMaybeProgramFdb", " rmac ", mac, " vlanId ", vlanId, " isAnygwMac ", isAnygwMac,
               " add ", add );
}

void RoutingStatusSm::doProgramSingleFdbEntry( U32 deviceId, Bridging::VlanId vlanId, const Kynet::EthAddr & mac,
                                               bool isAnygwMac, bool add, bool isRouterMac ) {
   GANT_TRACE( 3, "RoutingStatusSm::doProgramSingleFdbEntry", " deviceId ", deviceId, " vlanId ", vlanId, " mac ", mac,
               " isAnygwMac ", isAnygwMac, " add ", add, " isRouterMac ", isRouterMac );
}

void RoutingStatusSm::doProgramBdEntry( U32 deviceId, Bridging::VlanId vlanId,
                                        const Gant::Ptr< VlanRoutingStatus > & vrs ) {
   GANT_TRACE( 3, "RoutingStatusSm::doProgramBdEntry", " deviceId ", deviceId, " vlanId ", vlanId, stateText( vrs ) );
   GANT_TRACE( 3, "RoutingStatusSm::doProgramBdEntry ", "Routing status has been written to BD Id ", vlanId );
}

void RoutingStatusSm::doProgramEgressBdEntry( U32 deviceId, Bridging::VlanId vlanId,
                                              const Gant::Ptr< VlanRoutingStatus > & vrs ) {
   GANT_ASSERT( vrs, " vlanId ", vlanId );
   GANT_TRACE( 3, "RoutingStatusSm::doProgramEgressBdEntry", " deviceId ", deviceId, " vlanId ", vlanId,
               stateText( vrs ) );
   GANT_TRACE( 3, "RoutingStatusSm::doProgramEgressBdEntry ", "Routing status has been written to Egress BD Id ",
               vlanId );
}

void RoutingStatusSm::doProgramEgressRMacHigh40Bits( const Kynet::EthAddr & mac ) {
   GANT_TRACE( 3, "RoutingStatusSm::doProgramEgressRMacHigh40Bits", " mac ", mac );
}

void RoutingStatusSm::doProgramMacInCtrlMacTbl( const Kynet::EthAddr & mac, Bridging::VlanIdOrNone vlanId, U32 index,
                                                bool add ) {
   GANT_TRACE( 3, "RoutingStatusSm::doProgramMacInCtrlMacTbl", " mac ", mac, " vlanId ", vlanId, " index ", index,
               " add ", add );
}

void RoutingStatusSm::doSetL3EcmpHashPolynomial() { GANT_TRACE( 3, "RoutingStatusSm::doSetL3EcmpHashPolynomial" ); }

void RoutingStatusSm::verifyFdbEntry( const Kynet::EthAddr & mac, Bridging::VlanId vlanId, FdbEntryType entryType,
                                      bool ) {
   GANT_TRACE( 3, "RoutingStatusSm::verifyFdbEntry", " mac ", mac, " vlanId ", vlanId, " entryType ", entryType );
}

void RoutingStatusSm::verifyCtrlMacEntry( const Kynet::EthAddr & mac, Bridging::VlanIdOrNone vlanId, U32 index ) {
   GANT_TRACE( 3, "RoutingStatusSm::verifyCtrlMacEntry", " mac ", mac, " vlanId ", vlanId, " index ", index );
}

void RoutingStatusSm::verifyBdEntry( Bridging::VlanId vlanId ) {
   GANT_TRACE( 3, "RoutingStatusSm::verifyBdEntry", " vlanId ", vlanId );
   routingStatus()->vlanRoutingStatus( vlanId );
}

} // namespace VexL3Unicast
