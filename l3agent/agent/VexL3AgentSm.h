// The root of the layer-3 agent. The host makes it, and drives its start in two phases:
//
//   constructed   the arguments are stored, and nothing else exists
//   initialised   initializedIs( true ): state is looked up, tables and helpers stand
//   processing    maybeStartProcessing(): capabilities are published, the FIB and every state machine stand
//
// Phase two needs phase one. Before phase two the data plane is told of IPsec, and of access lists and policies that
// are applied: they stand before the first interface does. All of it runs on the thread of the
// activity loop, which the host runs.
//
// Phase one looks up 19 entities of `em`. Three have to be mounted, of their types, or the process ends with an
// assertion that names the path: the agent writes them. The agent does without any of the others, and without what it
// would read there: whoever wants it mounts it before phase one.
//
//   required   cell/CELLID/acl/status/dp/vex               Acl::StatusDp
//              interface/errdisable/cause/acl              Errdisable::CauseStatus
//              ip/nat/hwCapabilities                       Ip::Nat::HwCapabilities
//   optional   hwEpoch/status                              HwEpoch::Status
//              ip/nat/config, status, hwStatus             Ip::Nat::Config, Status, HwStatus
//              acl/config/cli, acl/config/input            Acl::Input::Config, Gant::Dir
//              acl/intf/config/cli, acl/intf/config/input  Acl::IntfConfig, Gant::Dir
//              acl/paramconfig, acl/hwconfig               Acl::ParamConfig, Gant::Dir
//              arp/monitorednexthop/input/status/vex       Arp::MonitoredNexthop::Input::Status
//              arp/monitorednexthop/vrf/input/status/vex   Arp::MonitoredNexthop::Input::VrfStatusDir
//              bridging/topology/config                    Bridging::Topology::Config
//              lag/input/config/cli                        Lag::Input::Config
//              routing/nexthopgroup/input/cli              Routing::NexthopGroup::ConfigInput
//              routing/nexthopgroup/input/config           Gant::Dir
//
// There is no way back but the destructor; a new agent starts from nothing, and is
// fed again by the layer.
#pragma once

#include "GantAttr.h"
#include "VexL3Mounts.h"

namespace Acl {
class AclConfigAggregatorSm;
class Config;
class IntfConfig;
class ParamConfig;
class StatusDp;
namespace Input {
class Config;
}
} // namespace Acl
namespace Arp::MonitoredNexthop::Input {
class Status;
class VrfStatusDir;
} // namespace Arp::MonitoredNexthop::Input
namespace Bridging {
class Config;
class Status;
class VlanStatusDir;
namespace Topology {
class Config;
}
} // namespace Bridging
namespace Errdisable {
class CauseStatus;
}
namespace Hardware::Capacity::VexL3Unicast {
class CapacitySm;
}
namespace Hul {
class AclSm;
class AdjReviewEvent;
class FilteredVrfLists;
class HulSeqStatusCreatorSm;
class HulTunnelSm;
class IntfStatusSm;
class L2AdjHelper;
class L2AdjRequest;
class L2AdjResponse;
class L3Config;
class L3HostStatus;
class L3Status;
class MonitoredNexthopSm;
class NatSm;
class NextHopMapConfig;
class NextHopMapStatus;
struct PackedArgs;
class QosAclSm;
class ResolvedNexthopGroupStatus;
class RouteResolverSm;
class VrfRootSm;
class WatchedNexthopGroupConfig;
} // namespace Hul
namespace HulCapacity {
class TableCapacity;
}
namespace HulHelper {
class AdjCapabilityHelper;
}
namespace HulL3Intf {
class ConfigSm;
class Table;
} // namespace HulL3Intf
namespace HwEpoch {
class Status;
}
namespace Interface {
class DelayRestartMonitorSm;
class EthIntfStatusDir;
class VlanIntfConfigDir;
class VlanIntfStatusDir;
} // namespace Interface
namespace IntfVlanIdSet {
class ConfigSm;
class Table;
} // namespace IntfVlanIdSet
namespace HulIpsec {
class HulConnectionTableSm;
}
namespace Ip {
class VrfCapability;
namespace Nat {
class Config;
class HwCapabilities;
class HwStatus;
class Status;
} // namespace Nat
} // namespace Ip
namespace Kyt {
class AttrLogSm;
}
namespace Lag::Input {
class Config;
}
namespace MrouteLib {
class StaticNatInfo;
}
namespace PrivateVlanLib {
class LibSm;
class LibState;
} // namespace PrivateVlanLib
namespace Quorl {
class EntityManager;
}
namespace Routing {
namespace KernelMfib {
class StatusColl;
}
namespace Multicast::Fib {
class MbrIntf;
}
namespace NexthopGroup {
class Config;
class ConfigInput;
class Status;
} // namespace NexthopGroup
} // namespace Routing
namespace Tunnel::TunnelTable {
class EvpnVxlanTunnelTable;
}
namespace Vex {
class AclHelper;
class AclSharedData;
class L2L3SharedData;
class ManagementSm;
class NatSharedData;
class QosAclHelper;
class VexCommonSmData;
} // namespace Vex
namespace VexL3Mcast {
class MfaAgent;
}
namespace VexMcast {
class McastVifStatus;
}
namespace VexModules {
class MirelCounterDbStatus;
}
namespace VexVif {
class PortVifStatus;
}
namespace Vxlan {
class BootStatus;
}
namespace Zeph {
class NexthopGroupConfigMergeSm;
class NexthopGroupSm;
} // namespace Zeph

namespace VexL3Unicast {

class AdjHelper;
class FecVersionSm;
class IpsecGrpcSm;
class IpsecHelper;
class L3Modules;
class NatHelper;
class NatLoopbackSm;
class NatRouteResolverSm;
class Route4Helper;
class Route6Helper;
class RouteDb;
class RoutingStatus;
class RoutingStatusHelper;
class RoutingStatusSm;
class TunnelConfigDir;
class TunnelDb;
class TunnelStatusDir;
class VexL3Sm;
class VexVrfHelper;
class VexVrrpSm;

// As GANT_OWNED, for an object that the host may want and the agent does not: its setters are there for the host.
#define AGENT_HOSTED( T, name, Name, params )                                                                          \
 public:                                                                                                               \
   const Gant::Ptr< T > & name() const { return name##_; }                                                             \
   Gant::Ptr< T > new##Name params;                                                                                    \
   VEXL3_EXPORT const Gant::Ptr< T > & name##Is params;                                                                \
   VEXL3_EXPORT void name##Del();                                                                                      \
                                                                                                                       \
 private:                                                                                                              \
   Gant::Ptr< T > name##_;                                                                                             \
                                                                                                                       \
 public:

// It owns every state machine, helper and table of the agent, and has no reactor of its own. Attributes stand in the
// order in which the destructor clears those that it owns.
class AgentSm : public Gant::PtrInterface {
 public:
   // As agentSmFactory.
   AgentSm( U16 cellId, const Gant::Ptr< Quorl::EntityManager > & em,
            const Gant::Ptr< const Bridging::Config > & bridgingConfig,
            const Gant::Ptr< const Bridging::Status > & bridgingStatus,
            const Gant::Ptr< const Interface::EthIntfStatusDir > & ethIntfStatusDir,
            const Gant::Ptr< const Bridging::VlanStatusDir > & vlanStatusDir,
            const Gant::Ptr< RoutingMounts > & routingMounts, const Gant::Ptr< McastMounts > & mcastMounts,
            const Gant::Ptr< VrfMounts > & vrfMounts, const Gant::Ptr< BfdMounts > & bfdMounts,
            const Gant::Ptr< TunnelMounts > & tunnelMounts, const Gant::Ptr< IpsecMounts > & ipsecMounts,
            const Gant::Ptr< Ip4TunnelMounts > & ip4TunnelMounts, const Gant::Ptr< FhrpMounts > & fhrpMounts,
            const Gant::Ptr< QosMounts > & qosMounts, const Gant::Ptr< const VexVif::PortVifStatus > & portVifStatus,
            const Gant::Ptr< const VexMcast::McastVifStatus > & mcastVifStatus,
            const Gant::Ptr< Gant::Dir > & hulCliCommandRequestDir, const Gant::Ptr< Gant::Dir > & vrfSeqConfigDir,
            const Gant::Ptr< Gant::Dir > & vrfSeqStatusDir,
            const Gant::Ptr< const Interface::VlanIntfConfigDir > & vlanIntfConfigDir,
            const Gant::Ptr< const Interface::VlanIntfStatusDir > & vlanIntfStatusDir,
            const Gant::Ptr< const Tunnel::TunnelTable::EvpnVxlanTunnelTable > & evpnVxlanTunnelTable,
            const Gant::Ptr< HulCapacity::TableCapacity > & capacityStatus,
            const Gant::Ptr< Vex::VexCommonSmData > & vexcsd, const Gant::Ptr< Acl::Config > & aclConfig,
            const Gant::Ptr< const VexModules::MirelCounterDbStatus > & counterMirel,
            const Gant::Ptr< Vex::ManagementSm > & managementSm );

   // Passed on to every state machine that exists.
   void hasNotificationActiveIs( bool active ) override;
   const char * fwkType() const override { return "VexL3Unicast::AgentSm"; }
   ~AgentSm() override;
   void gantDoZombieReactors( bool zombie ) override;

   GANT_CONST( U16, cellId )
   GANT_CONST( Gant::Ptr< Quorl::EntityManager >, em )
   GANT_CONST( Gant::Ptr< const Bridging::Config >, bridgingConfig )
   GANT_CONST( Gant::Ptr< const Bridging::Status >, bridgingStatus )
   GANT_CONST( Gant::Ptr< const Interface::EthIntfStatusDir >, ethIntfStatusDir )
   GANT_CONST( Gant::Ptr< const Bridging::VlanStatusDir >, vlanStatusDir )
   GANT_CONST( Gant::Ptr< RoutingMounts >, routingMounts )
   GANT_CONST( Gant::Ptr< McastMounts >, mcastMounts )
   GANT_CONST( Gant::Ptr< VrfMounts >, vrfMounts )
   GANT_CONST( Gant::Ptr< BfdMounts >, bfdMounts )
   GANT_CONST( Gant::Ptr< TunnelMounts >, tunnelMounts )
   GANT_CONST( Gant::Ptr< IpsecMounts >, ipsecMounts )
   GANT_CONST( Gant::Ptr< Ip4TunnelMounts >, ip4TunnelMounts )
   GANT_CONST( Gant::Ptr< FhrpMounts >, fhrpMounts )
   GANT_CONST( Gant::Ptr< QosMounts >, qosMounts )
   GANT_CONST( Gant::Ptr< const VexVif::PortVifStatus >, portVifStatus )
   GANT_CONST( Gant::Ptr< const VexMcast::McastVifStatus >, mcastVifStatus )
   GANT_CONST( Gant::Ptr< Gant::Dir >, hulCliCommandRequestDir )
   GANT_CONST( Gant::Ptr< Gant::Dir >, vrfSeqConfigDir )
   GANT_CONST( Gant::Ptr< Gant::Dir >, vrfSeqStatusDir )
   GANT_CONST( Gant::Ptr< const Interface::VlanIntfConfigDir >, vlanIntfConfigDir )
   GANT_CONST( Gant::Ptr< const Interface::VlanIntfStatusDir >, vlanIntfStatusDir )
   GANT_CONST( Gant::Ptr< const Tunnel::TunnelTable::EvpnVxlanTunnelTable >, evpnVxlanTunnelTable )
   GANT_CONST( Gant::Ptr< HulCapacity::TableCapacity >, capacityStatus )
   GANT_CONST( Gant::Ptr< Vex::VexCommonSmData >, vexcsd )
   GANT_CONST( Gant::Ptr< Acl::Config >, aclConfig )
   GANT_CONST( Gant::Ptr< const VexModules::MirelCounterDbStatus >, counterMirel )
   GANT_CONST( Gant::Ptr< Vex::ManagementSm >, managementSm )

   // Runs phase one on every change, also back to false.
   VEXL3_EXPORT void initializedIs( bool initialized );
   bool initialized() const { return initialized_; }
   // Phase two. A repeated call only publishes NAT support again.
   VEXL3_EXPORT void maybeStartProcessing();
   bool processingStarted() const { return processingStarted_; }

   GANT_OWNED( Hul::L2AdjRequest, tunnelL2AdjRequest, TunnelL2AdjRequest, () )
   GANT_OWNED( Hul::L2AdjResponse, tunnelL2AdjResponse, TunnelL2AdjResponse, () )
   // For the host, which names them. A repeated call with the same name keeps the directory.
   AGENT_HOSTED( TunnelConfigDir, vxlanTunnelConfigDir, VxlanTunnelConfigDir, ( const Gant::Name & name ) )
   AGENT_HOSTED( TunnelStatusDir, vxlanTunnelStatusDir, VxlanTunnelStatusDir, ( const Gant::Name & name ) )
   AGENT_HOSTED( TunnelConfigDir, vxlanHerTunnelConfigDir, VxlanHerTunnelConfigDir, ( const Gant::Name & name ) )
   AGENT_HOSTED( TunnelStatusDir, vxlanHerTunnelStatusDir, VxlanHerTunnelStatusDir, ( const Gant::Name & name ) )
   GANT_OWNED( HulL3Intf::Table, hulL3IntfTable, HulL3IntfTable, () )
   GANT_OWNED( HulL3Intf::ConfigSm, hulL3IntfSm, HulL3IntfSm, () )
   GANT_OWNED( IntfVlanIdSet::Table, intfVlanIdSetTable, IntfVlanIdSetTable, () )
   GANT_OWNED( IntfVlanIdSet::ConfigSm, intfVlanIdSetSm, IntfVlanIdSetSm, () )
   GANT_OWNED( PrivateVlanLib::LibState, privateVlanLibState, PrivateVlanLibState, () )
   GANT_OWNED( PrivateVlanLib::LibSm, privateVlanLibSm, PrivateVlanLibSm, () )
   GANT_OWNED( Hul::L3Config, hulL3Config, HulL3Config, () )
   GANT_OWNED( Hul::L3Status, hulL3Status, HulL3Status, () )
   GANT_OWNED( Hul::L3HostStatus, hulL3HostStatus, HulL3HostStatus, () )
   GANT_OWNED( Route4Helper, route4Helper, Route4Helper, () )
   GANT_OWNED( Route6Helper, route6Helper, Route6Helper, () )
   GANT_OWNED( RoutingStatusHelper, routingStatusHelper, RoutingStatusHelper, () )
   GANT_OWNED( AdjHelper, adjHelper, AdjHelper, () )
   GANT_OWNED( Hul::L2AdjHelper, hulL2AdjHelper, HulL2AdjHelper, () )
   GANT_OWNED( Hul::IntfStatusSm, hulIntfStatusSm, HulIntfStatusSm, () )
   GANT_OWNED( Hul::FilteredVrfLists, filteredVrfLists, FilteredVrfLists, () )
   GANT_OWNED( Kyt::AttrLogSm, attrLogSm, AttrLogSm, () )
   GANT_OWNED( Hul::WatchedNexthopGroupConfig, watchedNexthopGroupConfig, WatchedNexthopGroupConfig, () )
   GANT_OWNED( Hul::ResolvedNexthopGroupStatus, resolvedNexthopGroupStatus, ResolvedNexthopGroupStatus, () )
   GANT_OWNED( Hul::PackedArgs, packedArgs, PackedArgs, () )
   GANT_OWNED( Routing::NexthopGroup::Config, nexthopGroupConfig, NexthopGroupConfig, () )
   GANT_ATTR( Gant::Ptr< const Routing::NexthopGroup::ConfigInput >, nexthopGroupCliConfig )
   GANT_ATTR( Gant::Ptr< const Gant::Dir >, nexthopGroupConfigInput )
   GANT_OWNED( Routing::NexthopGroup::Status, nexthopGroupStatus, NexthopGroupStatus, () )
   GANT_OWNED( Zeph::NexthopGroupSm, nexthopGroupSm, NexthopGroupSm, () )
   GANT_OWNED( Zeph::NexthopGroupConfigMergeSm, nexthopGroupConfigMergeSm, NexthopGroupConfigMergeSm, () )
   GANT_OWNED( VexVrfHelper, vrfHelper, VrfHelper, () )
   GANT_OWNED( Hul::HulSeqStatusCreatorSm, hulSeqStatusCreatorSm, HulSeqStatusCreatorSm, () )
   GANT_OWNED( Hul::VrfRootSm, hulVrfRootSm, HulVrfRootSm, () )
   GANT_ATTR( Gant::Ptr< Ip::VrfCapability >, vrfCapability )
   GANT_OWNED( Hul::AdjReviewEvent, adjReviewEvent, AdjReviewEvent, () )
   GANT_OWNED( HulHelper::AdjCapabilityHelper, adjCapHelper, AdjCapHelper, () )
   GANT_ATTR( Gant::Ptr< Arp::MonitoredNexthop::Input::Status >, monitoredNHStatus )
   GANT_ATTR( Gant::Ptr< Arp::MonitoredNexthop::Input::VrfStatusDir >, monitoredNHVrfStatusDir )
   GANT_OWNED( Hul::MonitoredNexthopSm, monitoredNexthopSm, MonitoredNexthopSm, () )
   GANT_OWNED( Hul::RouteResolverSm, hulRouteResolverSm, HulRouteResolverSm, () )
   // For the host, which may have VXLAN tunnels.
   VEXL3_EXPORT const Gant::Ptr< Hul::HulTunnelSm > & hulTunnelSmIs(
        const Gant::Ptr< Gant::Clock > & clock, const Gant::Ptr< Hul::L2AdjHelper > & l2AdjHelper,
        const Gant::Ptr< const Vxlan::BootStatus > & vxlanBootStatus,
        const Gant::Ptr< Interface::DelayRestartMonitorSm > & delayRestartMonitorSm );
   VEXL3_EXPORT void hulTunnelSmDel();
   const Gant::Ptr< Hul::HulTunnelSm > & hulTunnelSm() const { return hulTunnelSm_; }
   GANT_OWNED( RoutingStatus, routingStatus, RoutingStatus, () )
   GANT_OWNED( RoutingStatusSm, routingStatusSm, RoutingStatusSm, () )
   GANT_OWNED( VexVrrpSm, vexVrrpSm, VexVrrpSm, () )
   GANT_ATTR( Gant::Ptr< const Ip::Nat::Config >, natConfig )
   GANT_ATTR( Gant::Ptr< Ip::Nat::Status >, natStatus )
   GANT_ATTR( Gant::Ptr< Ip::Nat::HwStatus >, natHwStatus )
   GANT_ATTR( Gant::Ptr< Ip::Nat::HwCapabilities >, natHwCapabilities )
   GANT_OWNED( MrouteLib::StaticNatInfo, staticNatInfo, StaticNatInfo, () )
   // For the host: what it shares with the other agents of the process.
   VEXL3_EXPORT void l2l3SharedIs( const Gant::Ptr< Vex::L2L3SharedData > & l2l3Shared );
   const Gant::Ptr< Vex::L2L3SharedData > & l2l3Shared() const { return l2l3Shared_; }
   VEXL3_EXPORT void natSharedIs( const Gant::Ptr< Vex::NatSharedData > & natShared );
   const Gant::Ptr< Vex::NatSharedData > & natShared() const { return natShared_; }
   VEXL3_EXPORT void aclSharedIs( const Gant::Ptr< Vex::AclSharedData > & aclShared );
   const Gant::Ptr< Vex::AclSharedData > & aclShared() const { return aclShared_; }
   GANT_ATTR( Gant::Ptr< Acl::StatusDp >, aclStatusDp )
   GANT_ATTR( Gant::Ptr< const Gant::Dir >, aclInputConfig )
   GANT_ATTR( Gant::Ptr< const Acl::Input::Config >, aclCliConfig )
   GANT_OWNED( Acl::AclConfigAggregatorSm, aclConfigAggregatorSm, AclConfigAggregatorSm, () )
   GANT_ATTR( Gant::Ptr< const Acl::ParamConfig >, aclParamConfig )
   GANT_ATTR( Gant::Ptr< const Gant::Dir >, aclIntfConfigDir )
   GANT_ATTR( Gant::Ptr< const Acl::IntfConfig >, aclIntfConfigCli )
   GANT_ATTR( Gant::Ptr< const Gant::Dir >, aclHwConfig )
   GANT_ATTR( Gant::Ptr< Errdisable::CauseStatus >, aclCauseStatus )
   GANT_ATTR( Gant::Ptr< const Lag::Input::Config >, lagInputConfig )
   GANT_OWNED( NatHelper, natHelper, NatHelper, () )
   GANT_OWNED( Hul::NextHopMapConfig, nhMapConfig, NhMapConfig, () )
   GANT_OWNED( Hul::NextHopMapStatus, nhMapStatus, NhMapStatus, () )
   GANT_OWNED( NatRouteResolverSm, natRouteResolverSm, NatRouteResolverSm, () )
   GANT_OWNED( Hul::NatSm, natSm, NatSm, () )
   // For the host, which may have a port for it.
   AGENT_HOSTED( NatLoopbackSm, natLoopbackSm, NatLoopbackSm, () )
   GANT_ATTR( Gant::Ptr< const Bridging::Topology::Config >, bridgingTopoConfig )
   VEXL3_EXPORT void mbrIntfIs( const Gant::Ptr< Routing::Multicast::Fib::MbrIntf > & mbrIntf );
   const Gant::Ptr< Routing::Multicast::Fib::MbrIntf > & mbrIntf() const { return mbrIntf_; }
   GANT_ATTR( Gant::Ptr< const HwEpoch::Status >, hwEpochStatus )
   VEXL3_EXPORT void vifStatusCollIs( const Gant::Ptr< const Routing::KernelMfib::StatusColl > & vifStatusColl );
   const Gant::Ptr< const Routing::KernelMfib::StatusColl > & vifStatusColl() const { return vifStatusColl_; }
   GANT_OWNED( Vex::AclHelper, aclHelper, AclHelper, () )
   GANT_OWNED( Hul::AclSm, aclSm, AclSm, () )
   GANT_OWNED( Vex::QosAclHelper, qosAclHelper, QosAclHelper, () )
   GANT_OWNED( Hul::QosAclSm, qosAclSm, QosAclSm, () )
   // Kept for the host.
   VEXL3_EXPORT void constrainersCreatedIs( bool constrainersCreated );
   bool constrainersCreated() const { return constrainersCreated_; }
   GANT_OWNED( RouteDb, routeDb, RouteDb, () )
   GANT_OWNED( IpsecHelper, ipsecHelper, IpsecHelper, () )
   GANT_OWNED( HulIpsec::HulConnectionTableSm, ipsecConnectionTableSm, IpsecConnectionTableSm, () )
   GANT_OWNED( IpsecGrpcSm, ipsecGrpcSm, IpsecGrpcSm, () )
   GANT_OWNED( FecVersionSm, fecVersionSm, FecVersionSm, () )
   GANT_OWNED( VexL3Mcast::MfaAgent, mfaAgent, MfaAgent, () )
   GANT_OWNED( VexL3Mcast::MfaAgent, mfa6Agent, Mfa6Agent, () )
   GANT_OWNED( L3Modules, l3Modules, L3Modules, () )
   GANT_OWNED( VexL3Sm, l3Sm, L3Sm, () )
   GANT_OWNED( TunnelDb, tunnelDb, TunnelDb, () )
   GANT_OWNED( Hardware::Capacity::VexL3Unicast::CapacitySm, capacitySm, CapacitySm, () )

 private:
   void handleInitialized();
   void lookUpNatAndIntfState();
   void lookUpAclState();
   void createProcessing();
   void initHwCapabilities();

   Gant::Ptr< Hul::HulTunnelSm > hulTunnelSm_;
   Gant::Ptr< Vex::L2L3SharedData > l2l3Shared_;
   Gant::Ptr< Vex::NatSharedData > natShared_;
   Gant::Ptr< Vex::AclSharedData > aclShared_;
   Gant::Ptr< Routing::Multicast::Fib::MbrIntf > mbrIntf_;
   Gant::Ptr< const Routing::KernelMfib::StatusColl > vifStatusColl_;
   bool constrainersCreated_ = false;
   bool processingStarted_ = false;
   bool initialized_ = false;
};

// How many VRFs the agent supports on a machine; the memory in bytes.
U32 maxVrfsOf( bool namespaceDut, U64 physicalMemory );

// A new agent over these. Each is kept and never changes; `cellId` is the number of this cell, from which the path of
// its ACL status is made.
VEXL3_EXPORT Gant::Ptr< AgentSm > agentSmFactory(
     U16 cellId, const Gant::Ptr< Quorl::EntityManager > & em,
     const Gant::Ptr< const Bridging::Config > & bridgingConfig,
     const Gant::Ptr< const Bridging::Status > & bridgingStatus,
     const Gant::Ptr< const Interface::EthIntfStatusDir > & ethIntfStatusDir,
     const Gant::Ptr< const Bridging::VlanStatusDir > & vlanStatusDir, const Gant::Ptr< RoutingMounts > & routingMounts,
     const Gant::Ptr< McastMounts > & mcastMounts, const Gant::Ptr< VrfMounts > & vrfMounts,
     const Gant::Ptr< BfdMounts > & bfdMounts, const Gant::Ptr< TunnelMounts > & tunnelMounts,
     const Gant::Ptr< IpsecMounts > & ipsecMounts, const Gant::Ptr< Ip4TunnelMounts > & ip4TunnelMounts,
     const Gant::Ptr< FhrpMounts > & fhrpMounts, const Gant::Ptr< QosMounts > & qosMounts,
     const Gant::Ptr< const VexVif::PortVifStatus > & portVifStatus,
     const Gant::Ptr< const VexMcast::McastVifStatus > & mcastVifStatus,
     const Gant::Ptr< Gant::Dir > & hulCliCommandRequestDir, const Gant::Ptr< Gant::Dir > & vrfSeqConfigDir,
     const Gant::Ptr< Gant::Dir > & vrfSeqStatusDir,
     const Gant::Ptr< const Interface::VlanIntfConfigDir > & vlanIntfConfigDir,
     const Gant::Ptr< const Interface::VlanIntfStatusDir > & vlanIntfStatusDir,
     const Gant::Ptr< const Tunnel::TunnelTable::EvpnVxlanTunnelTable > & evpnVxlanTunnelTable,
     const Gant::Ptr< HulCapacity::TableCapacity > & capacityStatus, const Gant::Ptr< Vex::VexCommonSmData > & vexcsd,
     const Gant::Ptr< Acl::Config > & aclConfig,
     const Gant::Ptr< const VexModules::MirelCounterDbStatus > & counterMirel,
     const Gant::Ptr< Vex::ManagementSm > & managementSm );

} // namespace VexL3Unicast
