// First-hop redundancy: the MACs that a router shares with its peers.
#pragma once

#include "GantEntity.h"
#include "GantValue.h"
#include "KynetAddr.h"
#include "KynetIntfId.h"

namespace Routing::Fhrp {

class VirtualRouterMac {
   GANT_VALUE( "Routing::Fhrp::VirtualRouterMac", VirtualRouterMac, ( Kynet::IntfId, intfId ), ( Kynet::EthAddr, mac ) )
};

class VirtualRouterMacStatus : public Gant::Entity {
 public:
   using VrrpVirtualMacs = Gant::OrderedMap< VirtualRouterMac, bool >;
   class Notifiee : public Gant::NotifieeOf< VirtualRouterMacStatus > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onVrrpVirtualMac( const VirtualRouterMac & ) {}
      virtual void onAnygwMac() {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   // Per interface and VRRP MAC (RFC 5798), whether this router is the one that answers to it.
   GANT_WATCHED_MAP( VrrpVirtualMacs, vrrpVirtualMac, onVrrpVirtualMac )
   // The one MAC to which all gateways of a subnet answer; zero: none.
   GANT_WATCHED( Kynet::EthAddrWithMask, anygwMac, onAnygwMac )
};

namespace Hardware {

// What the data plane can do about virtual MACs.
class Status : public Gant::Entity {
 public:
   using Entity::Entity;
   GANT_ATTR( bool, anygwSupported, false )
   GANT_ATTR( bool, vrrpSupported, false )
   GANT_ATTR( U32, vrrpSupportedMaxNum, 0 ) // VRRP groups
   GANT_ATTR( bool, useUniqueGroupIds, false )
};

} // namespace Hardware

} // namespace Routing::Fhrp
