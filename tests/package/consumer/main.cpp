// The smallest host: mounts some state, makes an agent, and asks it who it is.
#include <MirelFib.h>
#include <QuorlEntityManager.h>
#include <StateBridging.h>
#include <VexCommonSmData.h>
#include <VexGrpcChannel.h>
#include <VexL3AgentSm.h>

#include <cstdio>

int main() {
   const auto em = Gant::make< Quorl::EntityManager >( "consumer" );
   const auto routingMounts = VexL3Unicast::routingMountsFactory();
   routingMounts->routeStatusIs( Gant::make< Mirel::Fib::RouteStatus >() );
   const auto agent = VexL3Unicast::agentSmFactory(
        7, em, Gant::make< Bridging::Config >( "bridging/config" ), nullptr, nullptr, nullptr, routingMounts,
        VexL3Unicast::mcastMountsFactory(), VexL3Unicast::vrfMountsFactory(), VexL3Unicast::bfdMountsFactory(),
        VexL3Unicast::tunnelMountsFactory(), VexL3Unicast::ipsecMountsFactory(), VexL3Unicast::ip4TunnelMountsFactory(),
        VexL3Unicast::fhrpMountsFactory(), VexL3Unicast::qosMountsFactory(), nullptr, nullptr, nullptr, nullptr,
        nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr );
   std::printf( "%s, cell %u\n", agent->initialized() ? "initialized" : "constructed", unsigned( agent->cellId() ) );
   return agent->routingMounts() == routingMounts ? 0 : 1;
}
