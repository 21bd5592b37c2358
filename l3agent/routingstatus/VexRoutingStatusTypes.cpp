#include "VexRoutingStatusTypes.h"

namespace VexL3Unicast {

Gant::Ptr< VlanRoutingStatus > RoutingStatus::vlanRoutingStatusIs( Bridging::VlanId vlanId ) {
   if ( const auto & present = vlanRoutingStatus( vlanId ) ) return present;
   const auto made = Gant::make< VlanRoutingStatus >( vlanId );
   vlanRoutingStatuses_[ vlanId ] = made;
   notifiees_.tell( &Notifiee::onVlanRoutingStatus, vlanId );
   return made;
}

void RoutingStatus::vlanRoutingStatusDel( Bridging::VlanId vlanId ) {
   if ( vlanRoutingStatuses_.erase( vlanId ) != 0 ) notifiees_.tell( &Notifiee::onVlanRoutingStatus, vlanId );
}

Gant::Ptr< RoutingStatus > routingStatusFactory( const Gant::Name & name ) {
   return Gant::make< RoutingStatus >( name );
}

} // namespace VexL3Unicast
