// Routing: what the data plane can do, next-hop groups, multicast. The FIBs are in MirelFib.h.
#pragma once

#include "GantEntity.h"
#include "GantValue.h"
#include "StateIp.h"

namespace Routing::Hardware {

class Config : public Gant::Entity {
 public:
   using Entity::Entity;
};

class DlbConfig : public Gant::Entity {
 public:
   using Entity::Entity;
};

// A kind of tunnel that can be an interface, by its mode number.
class StaticInterfaceTunnelSupport {
   GANT_VALUE( "Routing::Hardware::StaticInterfaceTunnelSupport", StaticInterfaceTunnelSupport, ( U32, tunnelMode ) )
};

// The data plane's capabilities. Written by the agent once, before routes are told.
class Status : public Gant::Entity {
 public:
   using StaticInterfaceTunnelSupports = Gant::OrderedSet< StaticInterfaceTunnelSupport >;
   explicit Status( Gant::Name name = {} ) :
        Entity( std::move( name ) ), vrfCapability_( Gant::make< Ip::VrfCapability >() ) {}
   GANT_CONST( Gant::Ptr< Ip::VrfCapability >, vrfCapability )
   GANT_ATTR( bool, routingSupported, false )
   GANT_ATTR( U32, maxEcmp, 0 ) // next hops of a route
   GANT_ATTR( bool, vrfRoutingSupported, false )
   GANT_ATTR( bool, ucmpSupported, false )
   GANT_ATTR( bool, staticTunIntfPlatformKernelDevice, false )
   GANT_ATTR( bool, staticTunIntfPlatformCounterSupported, false )
   GANT_ATTR( bool, multicastRoutingSupported, false )
   GANT_ATTR( bool, hwMulticastStarGSupported, false )
   GANT_ATTR( bool, kernelForwardingSupported, false )
   GANT_ATTR( bool, fibAckSupported, false )
   GANT_ATTR( U32, maxHierarchicalFecChainLength, 0 )
   GANT_SET( StaticInterfaceTunnelSupports, staticInterfaceTunnelSupport )
   GANT_ATTR( bool, staticTunIntfPlatformCapabilityDeclared, false )
};

class RouteStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

class NexthopGroupStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Routing::Hardware

namespace Routing6::Hardware {

class Config : public Gant::Entity {
 public:
   using Entity::Entity;
};

class Status : public Gant::Entity {
 public:
   using Entity::Entity;
   GANT_ATTR( bool, routingSupported, false )
   GANT_ATTR( bool, vrfRoutingSupported, false )
   GANT_ATTR( U32, maxEcmp, 0 )
   GANT_ATTR( bool, ecmpSupported, false )
   GANT_ATTR( bool, ucmpSupported, false )
   GANT_ATTR( bool, multicastRoutingSupported, false )
};

class RouteStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Routing6::Hardware

namespace Routing::NexthopGroup {

class Config : public Gant::Entity {
 public:
   using Entity::Entity;
};

class ConfigInput : public Gant::Entity {
 public:
   using Entity::Entity;
};

class Status : public Gant::Entity {
 public:
   using Entity::Entity;
};

// What next-hop groups resolve to, shared with other processes.
class EntryStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Routing::NexthopGroup

namespace Routing::Multicast::Fib {

class VrfConfig : public Gant::Entity {
 public:
   using Entity::Entity;
};

class MbrIntf : public Gant::Entity {
 public:
   using Entity::Entity;
};

namespace Hardware {

class Status : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Hardware

} // namespace Routing::Multicast::Fib

namespace Routing::KernelMfib {

class StatusColl : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Routing::KernelMfib

namespace McastCommon {

class StaticMrouteConfigColl : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace McastCommon
