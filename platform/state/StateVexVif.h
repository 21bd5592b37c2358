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
