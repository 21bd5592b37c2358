#include "QuorlEntityManager.h"

namespace Quorl {

void EntityManager::entityIs( const Gant::String & path, Gant::Ptr< Gant::Entity > entity ) {
   if ( entity )
      entities_.insert_or_assign( path, std::move( entity ) );
   else
      entities_.erase( path );
}

} // namespace Quorl
