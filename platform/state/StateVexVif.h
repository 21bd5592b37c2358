// The engine's virtual interfaces: what its modules know ports and flood sets by.
#pragma once

#include "GantEntity.h"
#include "GantValue.h"
#include "KynetIntfId.h"
#include "StateBridging.h"

namespace VexVif {

// All ones: none.
class VifId {
   GANT_SCALAR( VifId, U32, U32( -1 ) )
};

// Names a request to the allocator of virtual interfaces. The cookie is the asker's.
class VifAllocRequestId {
   GANT_VALUE( "VexVif::VifAllocRequestId", VifAllocRequestId, ( U64, id ), ( U64, cookie ) )
};

// What a virtual interface leads to, packed by who asks for it.
class TargetId {
   GANT_SCALAR( TargetId, U64, 0 )
};

class PortVifStatus : public Gant::Entity {
 public:
   using PortVifs = Gant::OrderedMap< Kynet::IntfId, VifId >;
   class Notifiee : public Gant::NotifieeOf< PortVifStatus > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onIntfToPortVifMap( const Kynet::IntfId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( PortVifs, intfToPortVifMap, onIntfToPortVifMap )
};

} // namespace VexVif

namespace VexVifRequester {

// The virtual interfaces of one owner, in order.
class VifCollection {
 public:
   using Vifs = Gant::OrderedSet< VexVif::VifId >;
   GANT_SET( Vifs, vif )
   friend bool operator==( const VifCollection & a, const VifCollection & b ) { return a.vif_ == b.vif_; }
   friend auto operator<=>( const VifCollection & a, const VifCollection & b ) { return a.vif_ <=> b.vif_; }
   size_t hash() const {
      Gant::Hash hash;
      for ( const auto & vif : vif_ ) hash << vif;
      return hash.value();
   }
};

} // namespace VexVifRequester

namespace VexSdk {

class VexDeviceId {
   GANT_SCALAR( VexDeviceId, U8, 0 )
};

} // namespace VexSdk

namespace VexMcast {

class McastVifStatus : public Gant::Entity {
 public:
   using EgressVifs = Gant::OrderedMap< Bridging::VlanId, VexVif::VifId >;
   class Notifiee : public Gant::NotifieeOf< McastVifStatus > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onVlanFloodsetEgressVif( const Bridging::VlanId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( EgressVifs, vlanFloodsetEgressVif, onVlanFloodsetEgressVif )
};

} // namespace VexMcast
