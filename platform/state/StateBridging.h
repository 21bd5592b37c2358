// Bridging: VLANs, their members, the bridge MAC.
#pragma once

#include "GantEntity.h"
#include "GantEnum.h"
#include "GantValue.h"
#include "KynetAddr.h"
#include "KynetIntfId.h"

namespace Bridging {

// 1 to 4094 (IEEE 802.1Q).
class VlanId {
   GANT_RANGED( VlanId, U16, 0, 1, 4094, "VlanId::value < 1 or > 4094 not allowed" )
};

// 0: none.
class VlanIdOrNone {
   GANT_SCALAR( VlanIdOrNone, U16, 0 )
};

class MacVlanPair {
   GANT_VALUE( "Bridging::MacVlanPair", MacVlanPair, ( Kynet::EthAddr, mac ), ( VlanIdOrNone, vlanId ) )
};

// A VLAN and its member interfaces. "Cpu" as a member means that the VLAN has a switched virtual interface.
class VlanConfig : public Gant::Entity {
 public:
   using Intfs = Gant::OrderedSet< Kynet::IntfId >;
   class Notifiee : public Gant::NotifieeOf< VlanConfig > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onIntf( const Kynet::IntfId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   explicit VlanConfig( VlanId vlanId ) : vlanId_( vlanId ) {}
   GANT_CONST( VlanId, vlanId )
   GANT_WATCHED_SET( Intfs, intf, onIntf )
};

class Config : public Gant::Entity {
 public:
   using VlanConfigs = Gant::OrderedMap< VlanId, Gant::Ptr< VlanConfig > >;
   class Notifiee : public Gant::NotifieeOf< Config > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onBridgeMacAddr() {}
      virtual void onVlanConfig( const VlanId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED( Kynet::EthAddr, bridgeMacAddr, onBridgeMacAddr )
   GANT_WATCHED_MAP( VlanConfigs, vlanConfig, onVlanConfig )
};

class Status : public Gant::Entity {
 public:
   using Entity::Entity;
};

GANT_ENUM( TrafficDirection, U8, ( none, 0 ), ( ingressOnly, 1 ), ( egressOnly, 2 ), ( both, 3 ) )

class VlanPortStatus {
   GANT_VALUE( "Bridging::VlanPortStatus", VlanPortStatus, ( TrafficDirection, allowedTrafficDirection ),
               ( bool, tagOnEgress ) )
};

class VlanStatus : public Gant::Entity {
 public:
   using Ports = Gant::OrderedMap< Kynet::IntfId, VlanPortStatus >;
   class Notifiee : public Gant::NotifieeOf< VlanStatus > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onVlanPortStatus( const Kynet::IntfId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   explicit VlanStatus( VlanId vlanId ) : vlanId_( vlanId ) {}
   GANT_CONST( VlanId, vlanId )
   GANT_WATCHED_MAP( Ports, vlanPortStatus, onVlanPortStatus )
};

class VlanStatusDir : public Gant::Entity {
 public:
   using VlanStatuses = Gant::OrderedMap< VlanId, Gant::Ptr< VlanStatus > >;
   class Notifiee : public Gant::NotifieeOf< VlanStatusDir > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onVlanStatus( const VlanId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( VlanStatuses, vlanStatus, onVlanStatus )
};

namespace Topology {
class Config : public Gant::Entity {
 public:
   using Entity::Entity;
};
} // namespace Topology

} // namespace Bridging
