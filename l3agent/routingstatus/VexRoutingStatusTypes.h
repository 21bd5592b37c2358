// The local model of routing facts: which VLANs are routed, in which VRF, with which MTU, and the router's MACs. The
// helper is its only writer.
#pragma once

#include "GantEntity.h"
#include "HulTypes.h"
#include "VexL3Export.h"

namespace VexL3Unicast {

// One routed VLAN. It is valid once genId is not 0 and both valid marks are set.
class VlanRoutingStatus : public Gant::PtrInterface {
 public:
   class Notifiee : public Gant::NotifieeOf< VlanRoutingStatus > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onGenId() {}
   };
   GANT_NOTIFIER( Notifiee )
   explicit VlanRoutingStatus( Bridging::VlanId vlanId ) : vlanId_( vlanId ) {}
   const char * fwkType() const override { return "VexL3Unicast::VlanRoutingStatus"; }

   GANT_CONST( Bridging::VlanId, vlanId )
   GANT_ATTR( Kynet::IntfId, intfId )
   GANT_ATTR( Hul::RoutingState, routingState )
   GANT_ATTR( bool, routingStateValid, false )
   GANT_ATTR( Hul::VrfId, vrfId )
   GANT_ATTR( bool, vrfIdValid, false )
   GANT_ATTR( U32, mtu, 0 ) // IP MTU in bytes
   // The one attribute that is watched: a change without it stays unseen.
   GANT_WATCHED( U64, genId, onGenId, 0 )
   U64 genIdInc( U64 n ) { return genIdIs( genId() + n ); }
};

class RoutingStatus : public Gant::Entity {
 public:
   using VlanRoutingStatuses = Gant::HashMap< Bridging::VlanId, Gant::Ptr< VlanRoutingStatus > >;
   using VrrpMacStates = Gant::HashMap< Bridging::MacVlanPair, U32 >;
   class Notifiee : public Gant::NotifieeOf< RoutingStatus > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onVlanRoutingStatus( const Bridging::VlanId & ) {}
      virtual void onRouterMac() {}
      virtual void onVirtualRouterMac() {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   const char * fwkType() const override { return "VexL3Unicast::RoutingStatus"; }

   const Gant::Ptr< VlanRoutingStatus > & vlanRoutingStatus( Bridging::VlanId vlanId ) const {
      return Gant::valueOf( vlanRoutingStatuses_, vlanId );
   }
   // Makes the entry if there is none.
   Gant::Ptr< VlanRoutingStatus > vlanRoutingStatusIs( Bridging::VlanId vlanId );
   void vlanRoutingStatusDel( Bridging::VlanId vlanId );
   const VlanRoutingStatuses & vlanRoutingStatusIterator() const { return vlanRoutingStatuses_; }

   // Zero: none.
   GANT_WATCHED( Kynet::EthAddr, routerMac, onRouterMac )
   GANT_WATCHED( Kynet::EthAddr, virtualRouterMac, onVirtualRouterMac )
   // Control-MAC indexes. Nothing fills it.
   GANT_MAP( VrrpMacStates, vrrpMacState )

 private:
   VlanRoutingStatuses vlanRoutingStatuses_;
};

VEXL3_EXPORT Gant::Ptr< RoutingStatus > routingStatusFactory( const Gant::Name & name );

} // namespace VexL3Unicast
