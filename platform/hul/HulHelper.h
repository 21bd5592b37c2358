// The helpers: what a data plane supplies, and the layer's state machines call. The virtual operations stand in slot
// order. Those that are not pure have a behaviour that suits a data plane without that facility.
//
// Order of calls, which the layer keeps: a VRF before its interfaces and routes, and these gone before the VRF; an
// interface before an adjacency forwards over it, and no adjacency forwards over it any more before it goes; an
// adjacency before the first route that names it, and its last route gone before the adjacency. What the helper has
// been told of a route is the old information of the route's next change.
#pragma once

#include "HulTypes.h"

namespace Hul {

class HulBaseHelper : public Gant::PtrInterface {
 public:
   explicit HulBaseHelper( Gant::Name name ) : name_( std::move( name ) ) {}
   GANT_CONST( Gant::Name, name )
};

// Which table a route lives in, where a data plane has several.
GANT_ENUM( TableType, U8, ( tableTypeUnknown, 0 ), ( lpmTable, 1 ), ( exactMatchTable, 2 ) )

} // namespace Hul

namespace Urpf {
class UrpfStatus;
}

namespace Routing::Hardware {
class Status;
class RouteStatus;
} // namespace Routing::Hardware

namespace Acl {
class UniqueId;
class Config;
} // namespace Acl

namespace HulHelper {

class VrfHelper : public Hul::HulBaseHelper {
 public:
   using HulBaseHelper::HulBaseHelper;
   virtual void createVrf( Hul::VrfId vrf ) = 0;
   // The VRF's interfaces and routes are gone.
   virtual void deleteVrf( Hul::VrfId vrf ) = 0;
   virtual void verifyVrf( Hul::VrfId vrf ) = 0;
};

class RouteSmHelper : public Hul::HulBaseHelper {
 public:
   using HulBaseHelper::HulBaseHelper;
   virtual void handleRouting( bool enable ) = 0;
   virtual void verifyRouting( bool enabled ) = 0;
   // A change of one prefix, with what was told before and what holds now; a routeType of 0 is no route. `sequence` is
   // the VRF's, 0 where there is none. False: the route could not be programmed, and the helper holds nothing of it any
   // more; its next change comes as a new route.
   virtual bool updateRoute( const Kynet::Prefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & oldRouteInfo,
                             const Hul::RouteInfo & newRouteInfo, const U64 & sequence ) = 0;
   // What a restarted data plane still holds of the prefix: nothing.
   virtual Hul::RouteInfo currentRoutingStateForInit( const Kynet::Prefix &, Hul::VrfId ) { return {}; }
   virtual void prepareForVerifyRoute() = 0;
   virtual void cleanupForVerifyRoute() = 0;
   virtual void verifyRoute( const Kynet::Prefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & routeInfo ) = 0;
   virtual void verifyRouteExpansion( const Kynet::Prefix &, Hul::VrfId ) {}
   virtual void verifyNumberOfRouteEntries() {}
   // Routes told so far may be applied together.
   virtual void commitRouteBatch() {}
   // Every route that was there at start has been told.
   virtual void endOfSyncOnInit() {}
   virtual void verifyEndOfSyncOnInit() {}
   virtual void verifyRouteTableType( const Kynet::Prefix &, Hul::VrfId ) {}
   virtual bool protectDefaultRoute() { return false; }
   virtual void verifyPayload() {}
   virtual bool prefixCompressionResourceCheck() { return true; }
   virtual bool hardwareResourceAvailable() { return true; }
   virtual void flushHwProgrammingQueue() {}
};

class Route6SmHelper : public Hul::HulBaseHelper {
 public:
   using HulBaseHelper::HulBaseHelper;
   virtual void handleRouting( bool enable ) = 0;
   virtual void verifyRouting( bool enabled ) = 0;
   // As RouteSmHelper::updateRoute.
   virtual Hul::HulRouteUpdateStatus updateRoute( const Kynet::Ip6Prefix & prefix, Hul::VrfId vrfId,
                                                  const Hul::RouteInfo & oldRouteInfo,
                                                  const Hul::RouteInfo & newRouteInfo, const U64 & sequence ) = 0;
   virtual Hul::RouteInfo currentRoutingStateForInit( const Kynet::Ip6Prefix &, Hul::VrfId ) { return {}; }
   virtual void prepareForVerifyRoute() = 0;
   virtual void cleanupForVerifyRoute() = 0;
   virtual void verifyRoute( const Kynet::Ip6Prefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & routeInfo ) = 0;
   virtual void verifyNumberOfRouteEntries() {}
   virtual void endOfSyncOnInit() {}
   virtual void verifyEndOfSyncOnInit() {}
   virtual void verifyRouteTableType( const Kynet::Ip6Prefix &, Hul::VrfId ) {}
   virtual void flushHwProgrammingQueue() {}
};

class AdjSmHelper : public Hul::HulBaseHelper {
 public:
   using AdjPtr = Gant::Ptr< const Hul::L2Adjacency >;
   using HulBaseHelper::HulBaseHelper;
   virtual Hul::AdjUpdateStatus createAdj( const AdjPtr & adj ) = 0;
   virtual void createDstIntfFec( Kynet::IntfId, Bridging::VlanId ) {}
   virtual Hul::AdjUpdateReturnType updateAdj( const AdjPtr & adj ) = 0;
   virtual void syncAdj( const AdjPtr &, const U64 & ) {}
   // The adjacency's routes are gone.
   virtual void deleteAdj( const AdjPtr & adj ) = 0;
   virtual void deleteDstIntfFec( Kynet::IntfId, Bridging::VlanId ) {}
   virtual void verifyAdj( const AdjPtr & adj ) = 0;
   virtual Pbr::NexthopIndex getNexthopIndexForAdj( const AdjPtr & adj ) const = 0;
   virtual Kynet::IntfId getFirstL2IntfForAdj( const AdjPtr & adj ) const;
   virtual Kynet::IntfId getL3IntfId( U32 ) { return {}; }
   virtual U32 getL2IntfHwId( Kynet::IntfId ) const { return 0; }
   virtual bool adjOptimizeSupported( const AdjPtr &, const U64 & ) { return false; }
   virtual void notifyNonOptimizedTableTypeChange( Hul::TableType ) {}
};

// What a data plane can do about adjacencies, beyond what its status declares.
class AdjCapabilityHelper : public Hul::HulBaseHelper {
 public:
   AdjCapabilityHelper( Gant::Name name, Gant::Ptr< const Routing::Hardware::Status > routingHwStatus,
                        Gant::Ptr< const Routing::Hardware::RouteStatus > routingHwRouteStatus ) :
        HulBaseHelper( std::move( name ) ),
        routingHwStatus_( std::move( routingHwStatus ) ), routingHwRouteStatus_( std::move( routingHwRouteStatus ) ) {}
   GANT_CONST( Gant::Ptr< const Routing::Hardware::Status >, routingHwStatus )
   GANT_CONST( Gant::Ptr< const Routing::Hardware::RouteStatus >, routingHwRouteStatus )
};

class RoutingStatusSmHelper : public Hul::HulBaseHelper {
 public:
   using HulBaseHelper::HulBaseHelper;
   virtual void l3Init( bool ) {}
   virtual void handleRouting( bool enable, bool enable6 ) = 0;
   virtual void handleMplsRouting( bool ) {}
   // A MAC goes from none to a value and back to none, never from one value to another.
   virtual void handleRouterMac( const Kynet::EthAddr & address, bool add ) = 0;
   virtual void handleVirtualRouterMac( const Kynet::EthAddrWithMask & address, bool add ) = 0;
   virtual void programIp6McastCaptureAce( bool ) {}
   virtual void verifyL3() {}
   virtual void handleL3InternalVlan( Kynet::IntfId, U32 ) {}
   // `create` false: the interface goes. `update` true: it is there already and its facts changed.
   virtual void handleL3Intf( Kynet::IntfId intfId, U32 vlanId, U32 mtu, bool create, bool update,
                              Hul::VrfId vrfId ) = 0;
   virtual void handleUrpf( Kynet::IntfId, U32, const Urpf::UrpfStatus &, const Urpf::UrpfStatus & ) {}
   // By value, as the layer calls it. NOLINTNEXTLINE(performance-unnecessary-value-param)
   virtual void handleUrpfException( Kynet::IntfId, U32, Gant::String, const Acl::UniqueId &, bool ) {}
   virtual void aclVersionChanged( const Acl::UniqueId & ) {}
   virtual Gant::Ptr< const Acl::Config > getAclConfig();
   virtual bool overrideUrpfStage2() { return false; }
   virtual void cleanupStaleIntfs( Hul::VrfId ) {}
   virtual void doUrpfHwInitStage1( bool ) {}
   virtual void doUrpfHwInitStage2( bool ) {}
   // After handleL3Intf has created the interface.
   virtual void enableVlanRouting( Kynet::IntfId intfId, U32 vlanId, Hul::RoutingState state ) = 0;
   virtual void verifyL3Intf( Kynet::IntfId, U32, bool, Hul::VrfId, U32 ) {}
   virtual void handleIpAddressState( U32, bool, bool, bool ) {}
   virtual void handlePeerMacRouting( const Kynet::EthAddr &, bool ) {}
   virtual void verifyPeerMacRoutingStatus() {}
   // MSS in bytes; 0: no clamp.
   virtual void handleTcpMssEgress( Kynet::IntfId intfId, U16 mss ) = 0;
   virtual void handleTcpMssIngress( Kynet::IntfId intfId, U16 mss ) = 0;
};

} // namespace HulHelper
