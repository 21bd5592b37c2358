// A whole router under test: the state that a host fills, the engine over a recording data plane, and the agent.
#pragma once

#include "Engine.h"
#include "HulCapacity.h"
#include "HulVrfRootSm.h"
#include "MirelFib.h"
#include "QuorlEntityManager.h"
#include "StateArp.h"
#include "StateFhrp.h"
#include "StateInterface.h"
#include "StateIp.h"
#include "StateIpsec.h"
#include "StateRouting.h"
#include "StateVexVif.h"
#include "VexL3AgentSm.h"
#include "VexManagementSm.h"

namespace Test {

// Everything that survives an agent.
class RouterState {
 public:
   RouterState();

   void vrf( const char * name, U32 id );
   void vrfDel( const char * name );
   // Routed and up.
   void intf( const char * name, const char * vrfName = "default", U32 mtu = 1500 );
   void intfDel( const char * name );
   void neighbor( const char * intfName, const char * address, const char * macAddr );
   void neighborDel( const char * intfName, const char * address );
   void fec( U64 fecId, const Mirel::Vias & vias );
   void route( const char * prefixText, U64 fecId, U32 vrfId = 0 );
   void routeDel( const char * prefixText, U32 vrfId = 0 );

   Gant::Ptr< Quorl::EntityManager > em = Gant::make< Quorl::EntityManager >( "vexl3" );
   Gant::Ptr< Bridging::Config > bridgingConfig = Gant::make< Bridging::Config >( "bridging/config" );
   Gant::Ptr< Ip::AllVrfStatusLocal > vrfs = Gant::make< Ip::AllVrfStatusLocal >();
   Gant::Ptr< Ip::Status > ipStatus = Gant::make< Ip::Status >();
   Gant::Ptr< Interface::AllIntfStatusDir > intfs = Gant::make< Interface::AllIntfStatusDir >();
   Gant::Ptr< Interface::TunnelIntfStatusDir > tunnels = Gant::make< Interface::TunnelIntfStatusDir >();
   Gant::Ptr< Arp::Table::Status > arp = Gant::make< Arp::Table::Status >();
   Gant::Ptr< Ipsec::Ike::ConnectionTable > connections = Gant::make< Ipsec::Ike::ConnectionTable >();
   Gant::Ptr< Mirel::Fib::RouteStatus > fib = Gant::make< Mirel::Fib::RouteStatus >();
   Gant::Ptr< Mirel::Fib6::RouteStatus > fib6 = Gant::make< Mirel::Fib6::RouteStatus >();
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

Mirel::Via viaTo( const char * hop, const char * intfName, U16 weight = 1 );

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
