// The numbers under which shared tables know the VRFs.
#pragma once

#include "GantEntity.h"
#include "StateL3.h"

namespace Vrf::VrfIdMap {

class Status : public Gant::Entity {
 public:
   using VrfNames = Gant::OrderedMap< U32, L3::VrfName >;
   class Notifiee : public Gant::NotifieeOf< Status > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onVrfName( const U32 & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( VrfNames, vrfName, onVrfName )
};

} // namespace Vrf::VrfIdMap
