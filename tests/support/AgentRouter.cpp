#include "AgentRouter.h"

#include "StateAcl.h"
#include "StateIpNat.h"
#include "StateSystem.h"

namespace Test {

RouterState::RouterState() {
   em->entityIs( "ip/nat/hwCapabilities", Gant::make< Ip::Nat::HwCapabilities >() );
   em->entityIs( "cell/1/acl/status/dp/vex", Gant::make< Acl::StatusDp >() );
   em->entityIs( "interface/errdisable/cause/acl", Gant::make< Errdisable::CauseStatus >() );
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
