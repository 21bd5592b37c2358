// IPv6 of the interfaces.
#pragma once

#include "GantEntity.h"
#include "GantValue.h"
#include "KynetIntfId.h"

namespace Ip6 {

class IntfStatus {
   GANT_VALUE( "Ip6::IntfStatus", IntfStatus, ( bool, routingEnabled ) )
};

class Status : public Gant::Entity {
 public:
   using IntfStatuses = Gant::OrderedMap< Kynet::IntfId, IntfStatus >;
   class Notifiee : public Gant::NotifieeOf< Status > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onIntfStatus( const Kynet::IntfId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( IntfStatuses, intfStatus, onIntfStatus )
};

} // namespace Ip6
