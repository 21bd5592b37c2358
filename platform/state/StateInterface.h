// Interfaces: whether they are there, up, and of which kind. The entities of this folder say what is, and do nothing.
#pragma once

#include "GantEntity.h"
#include "GantEnum.h"
#include "GantValue.h"
#include "KynetAddr.h"
#include "KynetIntfId.h"
#include "StateBridging.h"
#include "StateL3.h"

namespace Interface {

// What all interfaces have in common.
class IntfStatus {
   GANT_VALUE( "Interface::IntfStatus", IntfStatus, ( bool, adminUp ), ( bool, operUp ) )
};

class EthIntfStatus {
   GANT_VALUE( "Interface::EthIntfStatus", EthIntfStatus, ( Kynet::EthAddr, macAddr ), ( U32, speedMbps ) )
};

GANT_ENUM( TunnelMode, U8, ( gre, 0 ), ( greOverIpsec, 1 ), ( ipsec, 2 ) )

// A tunnel's ends lie in its underlay VRF; `ttl` 0 copies the inner packet's.
class TunnelIntfStatus {
   GANT_VALUE( "Interface::TunnelIntfStatus", TunnelIntfStatus, ( TunnelMode, mode ), ( Kynet::IpAddr, srcAddr ),
               ( Kynet::IpAddr, dstAddr ), ( L3::VrfName, underlayVrf, "default" ), ( U8, ttl ), ( U8, tos ),
               ( U32, key ) )
};

class TunnelIntfStatusDir : public Gant::Entity {
 public:
   using IntfStatuses = Gant::OrderedMap< Kynet::IntfId, TunnelIntfStatus >;
   class Notifiee : public Gant::NotifieeOf< TunnelIntfStatusDir > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onIntfStatus( const Kynet::IntfId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( IntfStatuses, intfStatus, onIntfStatus )
};

// Every interface that exists, of any kind. An interface enters when whatever its kind needs is in place, and leaves
// first.
class AllIntfStatusDir : public Gant::Entity {
 public:
   using IntfStatuses = Gant::OrderedMap< Kynet::IntfId, IntfStatus >;
   class Notifiee : public Gant::NotifieeOf< AllIntfStatusDir > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onIntfStatus( const Kynet::IntfId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( IntfStatuses, intfStatus, onIntfStatus )
   // Where the tunnels among them have their ends. Set once, before anybody watches.
   GANT_ATTR( Gant::Ptr< const TunnelIntfStatusDir >, tunnelIntfStatusDir )
};

class EthIntfStatusDir : public Gant::Entity {
 public:
   using IntfStatuses = Gant::OrderedMap< Kynet::IntfId, EthIntfStatus >;
   class Notifiee : public Gant::NotifieeOf< EthIntfStatusDir > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onIntfStatus( const Kynet::IntfId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( IntfStatuses, intfStatus, onIntfStatus )
};

// The VLAN interfaces that exist, with their VLANs.
class VlanIntfStatusDir : public Gant::Entity {
 public:
   using IntfStatuses = Gant::OrderedMap< Kynet::IntfId, Bridging::VlanIdOrNone >;
   class Notifiee : public Gant::NotifieeOf< VlanIntfStatusDir > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onIntfStatus( const Kynet::IntfId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( IntfStatuses, intfStatus, onIntfStatus )
};

class VlanIntfConfigDir : public Gant::Entity {
 public:
   using Entity::Entity;
};

class AllIntfStatusLocalDir : public Gant::Entity {
 public:
   using Entity::Entity;
};

// Which tunnels the data plane terminates.
class TunnelIntfHwStatusDir : public Gant::Entity {
 public:
   using Entity::Entity;
};

class TunnelIntfStatusLocalDir : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Interface
