// A whole router under test: the state that a host fills, the engine over a recording data plane, and the agent.
#pragma once

#include "Engine.h"
#include "HulCapacity.h"
#include "HulVrfRootSm.h"
#include "QuorlEntityManager.h"
#include "StateIpsec.h"
#include "StateRouting.h"
#include "StateVexVif.h"
#include "VexL3AgentSm.h"
#include "VexManagementSm.h"

namespace Test {

// Everything that survives an agent.
class RouterState : public RouterFacts {
 public:
   RouterState();

   Gant::Ptr< Quorl::EntityManager > em = Gant::make< Quorl::EntityManager >( "vexl3" );
   Gant::Ptr< Bridging::Config > bridgingConfig = Gant::make< Bridging::Config >( "bridging/config" );
   Gant::Ptr< Ipsec::Ike::ConnectionTable > connections = Gant::make< Ipsec::Ike::ConnectionTable >();
   Gant::Ptr< Gant::Dir > seqStatusDir = Gant::make< Gant::Dir >();
   Gant::Ptr< Bridging::VlanStatusDir > vlanStatusDir = Gant::make< Bridging::VlanStatusDir >();
   Gant::Ptr< VexVif::PortVifStatus > portVifStatus = Gant::make< VexVif::PortVifStatus >();
   Gant::Ptr< VexMcast::McastVifStatus > mcastVifStatus = Gant::make< VexMcast::McastVifStatus >();
   Gant::Ptr< HulCapacity::TableCapacity > capacityStatus = Gant::make< HulCapacity::TableCapacity >();
   Gant::Ptr< Routing::Fhrp::VirtualRouterMacStatus > virtualMacs =
        Gant::make< Routing::Fhrp::VirtualRouterMacStatus >();
   Gant::Ptr< Acl::Config > aclConfig; // none: no access lists
   Gant::Ptr< VexL3Unicast::RoutingMounts > routingMounts = VexL3Unicast::routingMountsFactory();
   Gant::Ptr< VexL3Unicast::VrfMounts > vrfMounts = VexL3Unicast::vrfMountsFactory();
   Gant::Ptr< VexL3Unicast::IpsecMounts > ipsecMounts = VexL3Unicast::ipsecMountsFactory();
   Gant::Ptr< VexL3Unicast::FhrpMounts > fhrpMounts = VexL3Unicast::fhrpMountsFactory();
};

// An agent over a state.
class RouterAgent : public Engine {
 public:
   explicit RouterAgent( const RouterState & state );
   ~RouterAgent();
   void start();
   // Runs the loop until nothing is left to do, and gives the lines since the last time.
   Lines drained();

   Gant::Ptr< Vex::ManagementSm > managementSm = Gant::make< Vex::ManagementSm >();
   Gant::Ptr< VexL3Unicast::AgentSm > agent;
};

} // namespace Test
