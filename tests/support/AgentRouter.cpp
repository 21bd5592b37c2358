#include "AgentRouter.h"

#include "StateAcl.h"
#include "StateIpNat.h"
#include "StateSystem.h"

namespace Test {

RouterState::RouterState() {
   em->entityIs( "hwEpoch/status", Gant::make< HwEpoch::Status >() );
   em->entityIs( "ip/nat/hwCapabilities", Gant::make< Ip::Nat::HwCapabilities >() );
   em->entityIs( "cell/1/acl/status/dp/vex", Gant::make< Acl::StatusDp >() );
   em->entityIs( "interface/errdisable/cause/acl", Gant::make< Errdisable::CauseStatus >() );
   intfs->tunnelIntfStatusDirIs( tunnels );
   routingMounts->routeStatusIs( fib );
   routingMounts->route6StatusIs( fib6 );
   routingMounts->unprogrammedRouteStatusIs( Gant::make< Mirel::Fib::UnprogrammedRouteStatus >() );
   routingMounts->unprogrammedRoute6StatusIs( Gant::make< Mirel::Fib6::UnprogrammedRouteStatus >() );
   routingMounts->routingHwStatusIs( Gant::make< Routing::Hardware::Status >() );
   routingMounts->routing6HwStatusIs( Gant::make< Routing6::Hardware::Status >() );
   routingMounts->arpHardwareStatusIs( Gant::make< Arp::Hardware::Status >() );
   routingMounts->ipStatusIs( ipStatus );
   routingMounts->allIntfStatusDirIs( intfs );
   routingMounts->arpMirelIs( arp );
   vrfMounts->allVrfStatusLocalIs( vrfs );
   ipsecMounts->connectionTableIs( connections );
   fhrpMounts->virtualMacStatusInIs( virtualMacs );
   fhrpMounts->fhrpHwStatusIs( Gant::make< Routing::Fhrp::Hardware::Status >() );
   ipsecMounts->ipsecCapabilitiesStatusIs( Gant::make< Ipsec::Capabilities::Status >() );
}

void RouterState::vrf( const char * name, U32 id ) {
   vrfs->vrfStatusIs( L3::VrfName( name ), Ip::VrfStatus( id, true ) );
}

void RouterState::vrfDel( const char * name ) { vrfs->vrfStatusDel( L3::VrfName( name ) ); }

void RouterState::intf( const char * name, const char * vrfName, U32 mtu ) {
   Ip::IntfStatus status;
   status.vrfNameIs( L3::VrfName( vrfName ) );
   status.routingEnabledIs( true );
   status.mtuIs( mtu );
   ipStatus->intfStatusIs( Test::intf( name ), status );
   intfs->intfStatusIs( Test::intf( name ), Interface::IntfStatus( true, true ) );
}

void RouterState::intfDel( const char * name ) {
   intfs->intfStatusDel( Test::intf( name ) );
   ipStatus->intfStatusDel( Test::intf( name ) );
}

void RouterState::neighbor( const char * intfName, const char * address, const char * macAddr ) {
   arp->neighborIs( Arp::NeighborKey( Test::intf( intfName ), Kynet::IpGenAddr( ip( address ) ) ), mac( macAddr ) );
}

void RouterState::neighborDel( const char * intfName, const char * address ) {
   arp->neighborDel( Arp::NeighborKey( Test::intf( intfName ), Kynet::IpGenAddr( ip( address ) ) ) );
}

void RouterState::fec( U64 fecId, const Mirel::Vias & vias ) { fib->fecIs( fecId, vias ); }

void RouterState::route( const char * prefixText, U64 fecId, U32 vrfId ) {
   fib->routeIs( vrfId, prefix( prefixText ), Mirel::Route( Mirel::RouteType::forward(), fecId, 0 ) );
}

void RouterState::routeDel( const char * prefixText, U32 vrfId ) { fib->routeDel( vrfId, prefix( prefixText ) ); }

Mirel::Via viaTo( const char * hop, const char * intfName, U16 weight ) {
   return Mirel::Via( Mirel::RouteType::forward(), Kynet::IpGenAddr( ip( hop ) ), intf( intfName ), weight );
}

RouterAgent::RouterAgent( const RouterState & state ) {
   agent = VexL3Unicast::agentSmFactory(
        1, state.em, state.bridgingConfig, nullptr, nullptr, state.vlanStatusDir, state.routingMounts, nullptr,
        state.vrfMounts, nullptr, nullptr, state.ipsecMounts, nullptr, state.fhrpMounts, nullptr, state.portVifStatus,
        state.mcastVifStatus, nullptr, nullptr, state.seqStatusDir, nullptr, nullptr, nullptr, state.capacityStatus,
        vexcsd, state.aclConfig, nullptr, managementSm );
}

RouterAgent::~RouterAgent() { agent = nullptr; }

void RouterAgent::start() {
   agent->initializedIs( true );
   agent->maybeStartProcessing();
}

Lines RouterAgent::drained() {
   while ( Gant::activityManager()->poll() != 0 ) {
   }
   return take();
}

} // namespace Test
