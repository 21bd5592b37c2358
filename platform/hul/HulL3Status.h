// The status of the layer: VRFs with their ids and sequence numbers, the adjacencies, the interface tables.
#pragma once

#include "HulL3Intf.h"
#include "HulTypes.h"

namespace IntfVlanIdSet {
class Table;
}

namespace Hul {

// Sequence numbers of a VRF's routes: the last one whose change has reached the helper.
class VrfL3Status : public Gant::Entity {
 public:
   class Notifiee : public Gant::NotifieeOf< VrfL3Status > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onSequenceProgrammed() {}
      virtual void onSequence6Programmed() {}
   };
   GANT_NOTIFIER( Notifiee )
   VrfL3Status( const L3::VrfName & vrfName, VrfId vrfId ) : Entity( vrfName.value() ), vrfId_( vrfId ) {}
   GANT_CONST( VrfId, vrfId )
   GANT_WATCHED( U64, sequenceProgrammed, onSequenceProgrammed )
   GANT_WATCHED( U64, sequence6Programmed, onSequence6Programmed )
};

// What a registered address resolves to (HulRouteReactor.h): its neighbour's interface and MAC, empty while unresolved.
class ResolvedAddr {
   GANT_VALUE( "Hul::ResolvedAddr", ResolvedAddr, ( Kynet::IntfId, intfId ), ( Kynet::EthAddr, mac ) )
};

// Settings of the layer.
class L3Config : public Gant::PtrInterface {};

// The status of the router's own stack as the layer sees it.
class L3HostStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

class L3Status : public Gant::Entity {
 public:
   using VrfL3Statuses = Gant::HashMap< L3::VrfName, Gant::Ptr< VrfL3Status > >;
   using VrfNames = Gant::HashMap< VrfId, L3::VrfName >;
   using Adjacencies = Gant::HashMap< L2AdjKey, Gant::Ptr< L2Adjacency > >;
   using ResolvedAddrs = Gant::OrderedMap< VrfAndIpAddr, ResolvedAddr >;
   using RoutingStates = Gant::OrderedMap< Kynet::IntfId, RoutingState >;
   class Notifiee : public Gant::NotifieeOf< L3Status > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onSuspendIp6RouteUpdates() {}
      virtual void onResolvedAddr( const VrfAndIpAddr & ) {}
      virtual void onIntfRoutingState( const Kynet::IntfId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;

   // By name, with the id inside; `vrfName` is the inverse. Both are written by VrfRootSm, before the VRF's helper is
   // called.
   GANT_MAP( VrfL3Statuses, vrfL3Status )
   // The empty name for an unknown id.
   GANT_MAP( VrfNames, vrfName )
   // Of the VRF with the name; the default-made id for an unknown name, as it comes.
   VrfId vrfId( const L3::VrfName & name ) const {
      const auto & status = vrfL3Status( name );
      return status ? status->vrfId() : VrfId();
   }
   // Set by a helper that wants no IPv6 routes: those that it has are taken back, and it is told no more.
   GANT_WATCHED( bool, suspendIp6RouteUpdates, onSuspendIp6RouteUpdates, false )
   GANT_MAP( Adjacencies, l2AdjList )
   GANT_WATCHED_MAP( ResolvedAddrs, resolvedAddr, onResolvedAddr )
   // The interfaces that the helper has been told of.
   GANT_WATCHED_MAP( RoutingStates, intfRoutingState, onIntfRoutingState )
   GANT_ATTR( Gant::Ptr< HulL3Intf::Table >, hulL3IntfTable )
   GANT_ATTR( Gant::Ptr< IntfVlanIdSet::Table >, intfVlanIdSetTable )
};

} // namespace Hul
