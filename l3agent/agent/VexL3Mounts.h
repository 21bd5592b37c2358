// The state that the host mounts for the agent: nine plain holders of pointers.
//
// The host makes each with its factory, fills what it has, and passes them to agentSmFactory. An attribute that stays
// empty is passed on empty, and so is every attribute of a holder that is missing; RoutingMounts and IpsecMounts the
// agent cannot do without. A pointer to const is read only, the others are written by the agent or by the layers below
// it.
#pragma once

#include "GantAttr.h"
#include "VexL3Export.h"

namespace Arp {
namespace Hardware {
class Status;
}
namespace Table {
class Status;
}
} // namespace Arp
namespace Bfd {
class AppStatus;
class StatusPeer;
} // namespace Bfd
namespace Gant {
class Dir;
}
namespace Hul {
class HulTunnelConfigDir;
class HulTunnelStatusDir;
class Route6ReactorConfig;
class RouteReactorConfig;
} // namespace Hul
namespace Interface {
class AllIntfStatusDir;
class AllIntfStatusLocalDir;
class TunnelIntfHwStatusDir;
class TunnelIntfStatusDir;
class TunnelIntfStatusLocalDir;
} // namespace Interface
namespace Ip {
class AllVrfStatusGlobal;
class AllVrfStatusLocal;
class Status;
} // namespace Ip
namespace Ip6 {
class Status;
}
namespace Ipsec {
namespace Capabilities {
class Status;
}
namespace Ike {
class ConnectionTable;
class Status;
} // namespace Ike
} // namespace Ipsec
namespace Kyt {
class TimerWheel;
}
namespace L3 {
class Config;
}
namespace McastCommon {
class StaticMrouteConfigColl;
}
namespace Mirel {
namespace Fib {
class RouteStatus;
class UnprogrammedRouteStatus;
} // namespace Fib
namespace Fib6 {
class RouteStatus;
class UnprogrammedRouteStatus;
} // namespace Fib6
} // namespace Mirel
namespace Qos {
class AclHwStatus;
class AclSliceHwStatus;
class CounterConfig;
class HwStatus;
class SliceHwStatus;
class Status;
namespace Input {
class Config;
}
} // namespace Qos
namespace Routing {
namespace Fhrp {
class VirtualRouterMacStatus;
namespace Hardware {
class Status;
}
} // namespace Fhrp
namespace Hardware {
class Config;
class DlbConfig;
class NexthopGroupStatus;
class RouteStatus;
class Status;
} // namespace Hardware
namespace Multicast::Fib {
class VrfConfig;
namespace Hardware {
class Status;
}
} // namespace Multicast::Fib
} // namespace Routing
namespace Routing6::Hardware {
class Config;
class RouteStatus;
class Status;
} // namespace Routing6::Hardware
namespace Vrf::VrfIdMap {
class Status;
}
namespace Vxlan {
class VtiStatusDir;
class VxlanHwStatusDir;
} // namespace Vxlan

namespace VexL3Unicast {

class RoutingMounts : public Gant::PtrInterface {
 public:
   GANT_ATTR( Gant::Ptr< const L3::Config >, l3Config )
   GANT_ATTR( Gant::Ptr< const Mirel::Fib::RouteStatus >, routeStatus )
   GANT_ATTR( Gant::Ptr< Mirel::Fib::UnprogrammedRouteStatus >, unprogrammedRouteStatus )
   GANT_ATTR( Gant::Ptr< Routing::Hardware::Config >, routingHwConfig )
   GANT_ATTR( Gant::Ptr< Routing::Hardware::Status >, routingHwStatus )
   GANT_ATTR( Gant::Ptr< Routing::Hardware::DlbConfig >, routingHwDlbConfig )
   GANT_ATTR( Gant::Ptr< Routing::Hardware::RouteStatus >, routingHwRouteStatus )
   GANT_ATTR( Gant::Ptr< const Mirel::Fib6::RouteStatus >, route6Status )
   GANT_ATTR( Gant::Ptr< Mirel::Fib6::UnprogrammedRouteStatus >, unprogrammedRoute6Status )
   GANT_ATTR( Gant::Ptr< const Routing6::Hardware::Config >, routing6HwConfig )
   GANT_ATTR( Gant::Ptr< Routing6::Hardware::Status >, routing6HwStatus )
   GANT_ATTR( Gant::Ptr< Routing::Hardware::NexthopGroupStatus >, routingHwNexthopGroupStatus )
   GANT_ATTR( Gant::Ptr< Routing6::Hardware::RouteStatus >, routing6HwRouteStatus )
   GANT_ATTR( Gant::Ptr< const Ip::Status >, ipStatus )
   GANT_ATTR( Gant::Ptr< const Ip6::Status >, ip6Status )
   GANT_ATTR( Gant::Ptr< const Interface::AllIntfStatusDir >, allIntfStatusDir )
   GANT_ATTR( Gant::Ptr< Arp::Hardware::Status >, arpHardwareStatus )
   GANT_ATTR( Gant::Ptr< const Arp::Table::Status >, arpMirel )
   GANT_ATTR( Gant::Ptr< const Vrf::VrfIdMap::Status >, arpMirelVrfIdMap )
   GANT_ATTR( Gant::Ptr< Hul::RouteReactorConfig >, hulRouteReactorConfig )
   GANT_ATTR( Gant::Ptr< Hul::Route6ReactorConfig >, hulRoute6ReactorConfig )
};

class McastMounts : public Gant::PtrInterface {
 public:
   GANT_ATTR( Gant::Ptr< const McastCommon::StaticMrouteConfigColl >, staticMrouteConfig )
   GANT_ATTR( Gant::Ptr< const McastCommon::StaticMrouteConfigColl >, staticMroute6Config )
   GANT_ATTR( Gant::Ptr< const Routing::Multicast::Fib::VrfConfig >, mfibVrfConfig )
   GANT_ATTR( Gant::Ptr< Routing::Multicast::Fib::Hardware::Status >, mfibHwStatus )
};

class VrfMounts : public Gant::PtrInterface {
 public:
   GANT_ATTR( Gant::Ptr< const Ip::AllVrfStatusGlobal >, allVrfStatusGlobal )
   GANT_ATTR( Gant::Ptr< const Ip::AllVrfStatusLocal >, allVrfStatusLocal )
   GANT_ATTR( Gant::Ptr< Gant::Dir >, routingVrfInfoDir )
   GANT_ATTR( Gant::Ptr< Gant::Dir >, routing6VrfInfoDir )
};

class BfdMounts : public Gant::PtrInterface {
 public:
   VEXL3_EXPORT ~BfdMounts() override;
   GANT_ATTR( Gant::Ptr< const Bfd::StatusPeer >, bfdAllPeerStatusDir )
   // Made here. One of the same name stays.
   VEXL3_EXPORT const Gant::Ptr< Bfd::AppStatus > & bfdAllPeerStatusIs( const Gant::Name & name );
   VEXL3_EXPORT void bfdAllPeerStatusDel();
   const Gant::Ptr< Bfd::AppStatus > & bfdAllPeerStatus() const { return bfdAllPeerStatus_; }
   GANT_ATTR( Gant::Ptr< const Interface::AllIntfStatusLocalDir >, allIntfStatusLocalDir )

 private:
   Gant::Ptr< Bfd::AppStatus > newBfdAllPeerStatus( const Gant::Name & name );
   Gant::Ptr< Bfd::AppStatus > bfdAllPeerStatus_;
};

class TunnelMounts : public Gant::PtrInterface {
 public:
   GANT_ATTR( Gant::Ptr< Hul::HulTunnelConfigDir >, hulTunnelConfigDir )
   GANT_ATTR( Gant::Ptr< Hul::HulTunnelStatusDir >, hulTunnelStatusDir )
   GANT_ATTR( Gant::Ptr< const Vxlan::VtiStatusDir >, vtiStatusDir )
   GANT_ATTR( Gant::Ptr< Vxlan::VxlanHwStatusDir >, vxlanHwStatusDir )
};

class IpsecMounts : public Gant::PtrInterface {
 public:
   GANT_ATTR( Gant::Ptr< Ipsec::Ike::Status >, ipsecStatus )
   GANT_ATTR( Gant::Ptr< Ipsec::Ike::ConnectionTable >, connectionTable )
   GANT_ATTR( Gant::Ptr< Ipsec::Capabilities::Status >, ipsecCapabilitiesStatus )
};

class Ip4TunnelMounts : public Gant::PtrInterface {
 public:
   GANT_ATTR( Gant::Ptr< const Interface::TunnelIntfStatusDir >, tunnelIntfStatusDir )
   GANT_ATTR( Gant::Ptr< Interface::TunnelIntfHwStatusDir >, hwTunnelTerminationStatus )
   GANT_ATTR( Gant::Ptr< Interface::TunnelIntfStatusLocalDir >, tunnelIntfStatusLocalDir )
};

class FhrpMounts : public Gant::PtrInterface {
 public:
   GANT_ATTR( Gant::Ptr< const Routing::Fhrp::VirtualRouterMacStatus >, virtualMacStatusIn )
   GANT_ATTR( Gant::Ptr< Routing::Fhrp::Hardware::Status >, fhrpHwStatus )
};

class QosMounts : public Gant::PtrInterface {
 public:
   VEXL3_EXPORT ~QosMounts() override;
   // Always "VexQos", whatever is set.
   VEXL3_EXPORT Gant::String qosName() const;
   void qosNameIs( const Gant::String & ) {}
   // Made here: `tickMsecs` in milliseconds, the rest as Kyt::TimerWheel takes it. One with the same five values stays.
   VEXL3_EXPORT const Gant::Ptr< Kyt::TimerWheel > & clockIs( const Gant::Ptr< Gant::Clock > & systemClock,
                                                              U32 tickMsecs, U32 initialMaxTicks, bool preserveOrder,
                                                              U32 defaultBucketSize );
   VEXL3_EXPORT void clockDel();
   const Gant::Ptr< Kyt::TimerWheel > & clock() const { return clock_; }
   GANT_ATTR( Gant::Ptr< const Qos::Status >, qosStatus )
   GANT_ATTR( Gant::Ptr< Qos::HwStatus >, qosHwStatus )
   GANT_ATTR( Gant::Ptr< Gant::Dir >, qosSliceHwStatusDir )
   GANT_ATTR( Gant::Ptr< Qos::SliceHwStatus >, qosSliceHwStatus )
   GANT_ATTR( Gant::Ptr< Qos::Input::Config >, qosPdpHwCfg )
   GANT_ATTR( Gant::Ptr< Qos::AclHwStatus >, qosAclHwStatus )
   GANT_ATTR( Gant::Ptr< Qos::AclSliceHwStatus >, qosAclSliceHwStatus )
   GANT_ATTR( Gant::Ptr< const Qos::CounterConfig >, qosCliCounterConfig )
   GANT_ATTR( Gant::Ptr< const Gant::Dir >, qosCounterConfigDir )

 private:
   Gant::Ptr< Kyt::TimerWheel > newClock( const Gant::Ptr< Gant::Clock > & systemClock, U32 tickMsecs,
                                          U32 initialMaxTicks, bool preserveOrder, U32 defaultBucketSize );
   Gant::Ptr< Kyt::TimerWheel > clock_;
};

VEXL3_EXPORT Gant::Ptr< RoutingMounts > routingMountsFactory();
VEXL3_EXPORT Gant::Ptr< McastMounts > mcastMountsFactory();
VEXL3_EXPORT Gant::Ptr< VrfMounts > vrfMountsFactory();
VEXL3_EXPORT Gant::Ptr< BfdMounts > bfdMountsFactory();
VEXL3_EXPORT Gant::Ptr< TunnelMounts > tunnelMountsFactory();
VEXL3_EXPORT Gant::Ptr< IpsecMounts > ipsecMountsFactory();
VEXL3_EXPORT Gant::Ptr< Ip4TunnelMounts > ip4TunnelMountsFactory();
VEXL3_EXPORT Gant::Ptr< FhrpMounts > fhrpMountsFactory();
VEXL3_EXPORT Gant::Ptr< QosMounts > qosMountsFactory();

} // namespace VexL3Unicast
