// Entities: named objects of the state tree, and directories of them.
#pragma once

#include "GantAttr.h"

namespace Gant {

class Entity : public PtrInterface {
 public:
   explicit Entity( Name name = {} ) : name_( std::move( name ) ) {}
   const char * fwkType() const override { return "Gant::Entity"; }
   GANT_CONST( Name, name )
};

// Entities by name.
class Dir : public Entity {
 public:
   using Entities = OrderedMap< Name, Ptr< Entity > >;

   class Notifiee : public NotifieeOf< Dir > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onEntity( const Name & ) {}
   };
   GANT_NOTIFIER( Notifiee )

   using Entity::Entity;
   const char * fwkType() const override { return "Gant::Dir"; }
   GANT_WATCHED_MAP( Entities, entity, onEntity )
};

} // namespace Gant
