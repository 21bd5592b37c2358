// The state database: entities by path. Who makes an entity and who looks for it share the path, and nothing else.
#pragma once

#include "GantEntity.h"

#include <string_view>

namespace Quorl {

class EntityManager : public Gant::PtrInterface {
 public:
   using Entities = Gant::OrderedMap< Gant::String, Gant::Ptr< Gant::Entity > >;

   // The name of this router's tree, which also names its attribute log's socket.
   explicit EntityManager( Gant::Name quorlRoot ) : quorlRoot_( std::move( quorlRoot ) ) {}
   GANT_CONST( Gant::Name, quorlRoot )

   // Mounts the entity at the path, in place of what was there; nothing: takes it away. Paths have no slash at either
   // end: "ip/nat/config".
   void entityIs( const Gant::String & path, Gant::Ptr< Gant::Entity > entity );
   // The entity at the path, or nothing when there is none or it is not a T.
   template < typename T >
   Gant::Ptr< T > getEntity( const Gant::String & path ) const {
      return Gant::Ptr< T >( dynamic_cast< T * >( Gant::valueOf( entities_, path ).get() ) );
   }
   const Entities & entityIterator() const { return entities_; }

 private:
   Entities entities_;
};

} // namespace Quorl
