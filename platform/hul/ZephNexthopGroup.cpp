#include "ZephNexthopGroup.h"

#include "QuorlEntityManager.h"
#include "StateRouting.h"

namespace Zeph {

Gant::Ptr< Routing::NexthopGroup::EntryStatus > NexthopGroupSm::mirelMountNhgStatus(
     const Gant::Ptr< Quorl::EntityManager > & em, bool writer ) {
   using Routing::NexthopGroup::EntryStatus;
   const Gant::String path = "routing/nexthopgroup/entry/status";
   if ( !em ) return {};
   auto status = em->getEntity< EntryStatus >( path );
   if ( !status && writer ) {
      status = Gant::make< EntryStatus >( "status" );
      em->entityIs( path, status );
   }
   return status;
}

} // namespace Zeph
