// The root of the layer: the machines that bring VRFs, interfaces, adjacencies and routes to the helpers, in order.
//
// Facts come in any order, and the helpers are promised one. So there is a machine for each kind: it keeps what it has
// told, and tells the next when those that it leans on have been told theirs.
#pragma once

#include "HulPackedArgs.h"
#include "HulPending.h"
#include "HulRouteState.h"
#include "HulTypes.h"

#include "GantEntity.h"

#include <limits>
#include <memory>

namespace Arp::Table {
class Status;
}
namespace Bridging {
class Config;
class Status;
} // namespace Bridging
namespace HulHelper {
class Route6SmHelper;
class RouteSmHelper;
class RoutingStatusSmHelper;
class VrfHelper;
} // namespace HulHelper
namespace HulL3Intf {
class Table;
}
namespace Interface {
class AllIntfStatusDir;
class VlanIntfConfigDir;
class VlanIntfStatusDir;
} // namespace Interface
namespace IntfVlanIdSet {
class Table;
}
namespace Ip {
class AllVrfStatusLocal;
class Status;
class VrfCapability;
} // namespace Ip
namespace Ip6 {
class Status;
}
namespace Kyt {
class AttrLogSm;
}
namespace L3 {
class Config;
}
namespace McastCommon {
class StaticMrouteConfigColl;
}
namespace Quorl {
class EntityManager;
}
namespace Routing::Fhrp {
class VirtualRouterMacStatus;
}
namespace Routing::Hardware {
class RouteStatus;
}
namespace Routing6::Hardware {
class RouteStatus;
}
namespace Routing::NexthopGroup {
class Config;
class Status;
} // namespace Routing::NexthopGroup
namespace Tunnel::TunnelTable {
class EvpnVxlanTunnelTable;
}
namespace Vrf::VrfIdMap {
class Status;
}

namespace Hul {

class AdjReviewEvent;
class AdjSm;
class FilteredVrfLists;
class HulCommonSmData;
class L2AdjHelper;
class L2AdjRequest;
class L2AdjResponse;
class L3Config;
class L3HostStatus;
class L3Status;
class ResolvedNexthopGroupStatus;
class Route6ReactorConfig;
class RouteReactorConfig;
class WatchedNexthopGroupConfig;

// Owns, and in this order fills:
//
//   RoutingSm         global routing, the router's MACs
//   VrfSm             VRFs
//   L3IntfSm          layer-3 interfaces
//   RoutePathSm       routes of tunnel ends
//   AdjSm             adjacencies
//   RouteSm, Route6Sm routes
//   AddrResolverSm    registered addresses
//
// The machines tell each other by notification of what they have told their helpers, so that the order of HulHelper.h
// holds whatever order the facts come in: what comes is told from the top, what goes is told from the bottom.
//
// The routes that are there at construction are told in the turns of the loop that follow. Everything else is told
// before the constructor, or the write that changes it, returns.
//
// After gantDoZombieReactors( true ) no helper is called any more.
class VrfRootSm : public Gant::StateMachine {
 public:
   // Any entity may be empty and is then as if it were there with nothing in it. REQUIRES: the four helpers,
   // hulL3Status, hulL3IntfTable and hulL2AdjHelper.
   struct Args {
      bool programmingEnabled = true; // false: of a stand-by; it follows nothing and calls nobody
      Gant::Ptr< const Ip::AllVrfStatusLocal > allVrfStatusLocal{};
      Gant::Ptr< HulHelper::VrfHelper > vrfHelper{};
      Gant::Ptr< const Ip::VrfCapability > vrfCapability{};
      Gant::Ptr< HulCommonSmData > vexcsd{};
      Gant::Ptr< const L3Config > hulL3Config{};
      Gant::Ptr< L3Status > hulL3Status{};
      Gant::Ptr< L3HostStatus > hulL3HostStatus{};
      Gant::Ptr< HulL3Intf::Table > hulL3IntfTable{};
      Gant::Ptr< IntfVlanIdSet::Table > intfVlanIdSetTable{};
      Gant::Ptr< const Ip::Status > ipStatus{};
      Gant::Ptr< const Ip6::Status > ip6Status{};
      Gant::Ptr< const Bridging::Config > bridgingConfig{};
      Gant::Ptr< const Bridging::Status > bridgingStatus{};
      Gant::Ptr< const Routing::Fhrp::VirtualRouterMacStatus > virtualMacStatusIn{};
      Gant::Ptr< const Interface::VlanIntfStatusDir > vlanIntfStatusDir{};
      Gant::Ptr< const Interface::VlanIntfConfigDir > vlanIntfConfigDir{};
      Gant::Ptr< const Interface::AllIntfStatusDir > allIntfStatusDir{};
      Gant::Ptr< const PackedArgs > packedArgs{};
      Gant::Ptr< const L3::Config > l3Config{};
      Gant::Ptr< Routing::Hardware::RouteStatus > routingHwRouteStatus{};
      Gant::Ptr< Routing6::Hardware::RouteStatus > routing6HwRouteStatus{};
      Gant::Ptr< Gant::Dir > routingVrfInfoDir{};
      Gant::Ptr< Gant::Dir > routing6VrfInfoDir{};
      Gant::Ptr< FilteredVrfLists > filteredVrfLists{};
      Gant::Ptr< HulHelper::RoutingStatusSmHelper > routingStatusHelper{};
      Gant::Ptr< HulHelper::RouteSmHelper > route4Helper{};
      Gant::Ptr< HulHelper::Route6SmHelper > route6Helper{};
      Gant::Ptr< Routing::NexthopGroup::Status > nexthopGroupStatus{};
      Gant::Ptr< AdjReviewEvent > adjReviewEvent{};
      Gant::Ptr< L2AdjHelper > hulL2AdjHelper{};
      Gant::Ptr< RouteReactorConfig > hulRouteReactorConfig{};
      Gant::Ptr< Route6ReactorConfig > hulRoute6ReactorConfig{};
      Gant::Ptr< WatchedNexthopGroupConfig > watchedNexthopGroupConfig{};
      Gant::Ptr< ResolvedNexthopGroupStatus > resolvedNexthopGroupStatus{};
      Gant::Ptr< Gant::Dir > vrfSeqConfigDir{};
      Gant::Ptr< Gant::Dir > vrfSeqStatusDir{};
      Gant::Ptr< const McastCommon::StaticMrouteConfigColl > staticMrouteConfig{};
      Gant::Ptr< const McastCommon::StaticMrouteConfigColl > staticMroute6Config{};
      Gant::Ptr< Quorl::EntityManager > em{};
      Gant::Ptr< Gant::Dir > hulCliCommandRequestDir{};
      Gant::Ptr< const Arp::Table::Status > arpMirel{};
      Gant::Ptr< const Vrf::VrfIdMap::Status > arpMirelVrfIdMap{};
      Gant::Ptr< Routing::NexthopGroup::Config > nexthopGroupConfig{};
      Gant::Ptr< L2AdjRequest > tunnelL2AdjRequest{};
      Gant::Ptr< L2AdjResponse > tunnelL2AdjResponse{};
      Gant::Ptr< const Tunnel::TunnelTable::EvpnVxlanTunnelTable > evpnVxlanTunnelTable{};
      Gant::Ptr< Kyt::AttrLogSm > attrLogSm{};
   };
   explicit VrfRootSm( Args args );
   ~VrfRootSm() override;
   void hasNotificationActiveIs( bool active ) override;
   void gantDoZombieReactors( bool zombie ) override;

   // Nothing of a stand-by.
   Gant::Ptr< AdjSm > hulAdjSm() const;

   // Has the helpers verify everything that they have been told. Also on request of VerifyData.
   void verify();
   // What has been asked for and cannot be done yet, with the reason. At most `mostRoutes` routes of each family.
   Pendings pending( size_t mostRoutes = std::numeric_limits< size_t >::max() ) const;
   // Whether routes are still to be looked at, in turns to come.
   bool busy() const;
   // Routes of both families that the helpers hold.
   U32 toldRoutes() const;
   // What has become of a route of the FIB.
   RouteState routeState( VrfId vrfId, const Kynet::IpGenPrefix & prefix ) const;
   // The same of the one in the slot of its family's FIB, without the reason.
   RouteProgress routeProgress( Kynet::AddressFamily af, U32 slot ) const;
   RouteCounts routeCounts( Kynet::AddressFamily af ) const;
   // Of one VRF. Of the refused those that the data plane itself refused, and no part of them; routes over refused
   // adjacencies count as programmed.
   RouteCounts routeCounts( Kynet::AddressFamily af, VrfId vrfId ) const;

 private:
   struct Machines;
   struct GantVerifyData;
   Args args_;
   std::unique_ptr< Machines > machines_;
   std::unique_ptr< GantVerifyData > verifyReactor_;
};

} // namespace Hul
