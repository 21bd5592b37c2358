// IPv4 of the interfaces, and the VRFs.
#pragma once

#include "GantEntity.h"
#include "GantValue.h"
#include "KynetAddr.h"
#include "KynetIntfId.h"
#include "StateL3.h"

namespace Ip {

// Routing facts of an interface. An interface without an entry is not routed.
class IntfStatus {
   // `mtu` in bytes; an MSS in bytes, 0: TCP's is left alone.
   GANT_VALUE( "Ip::IntfStatus", IntfStatus, ( L3::VrfName, vrfName, "default" ), ( bool, routingEnabled ),
               ( bool, multicastRoutingEnabled ), ( bool, mplsRoutingEnabled ), ( U32, mtu, 1500 ),
               ( U16, tcpMssIngress ), ( U16, tcpMssEgress ) )
};

class IntfAddr {
   // `prefix` keeps the host bits: it is the interface's address and its subnet.
   GANT_VALUE( "Ip::IntfAddr", IntfAddr, ( Kynet::IntfId, intfId ), ( Kynet::Prefix, prefix ) )
};

class Status : public Gant::Entity {
 public:
   using IntfStatuses = Gant::OrderedMap< Kynet::IntfId, IntfStatus >;
   using IntfAddrs = Gant::OrderedSet< IntfAddr >;
   class Notifiee : public Gant::NotifieeOf< Status > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onIntfStatus( const Kynet::IntfId & ) {}
      virtual void onIntfAddr( const IntfAddr & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( IntfStatuses, intfStatus, onIntfStatus )
   GANT_WATCHED_SET( IntfAddrs, intfAddr, onIntfAddr )
};

class VrfStatus {
   // `vrfId` is its number in the FIBs. A VRF that is not active is on its way in or out and holds nothing.
   GANT_VALUE( "Ip::VrfStatus", VrfStatus, ( U32, vrfId ), ( bool, active ) )
};

// The VRFs of this router.
class AllVrfStatusLocal : public Gant::Entity {
 public:
   using VrfStatuses = Gant::OrderedMap< L3::VrfName, VrfStatus >;
   class Notifiee : public Gant::NotifieeOf< AllVrfStatusLocal > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onVrfStatus( const L3::VrfName & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( VrfStatuses, vrfStatus, onVrfStatus )
};

class AllVrfStatusGlobal : public Gant::Entity {
 public:
   using Entity::Entity;
};

// What the data plane can do about VRFs.
class VrfCapability : public Gant::PtrInterface {
 public:
   GANT_ATTR( U32, maxVrfs, 0 )
};

} // namespace Ip
