#include "VexL3Keys.h"

#include "GantAssert.h"

namespace VexL3Unicast {

Gant::String NextHopKey::str() const {
   return Gant::textsOf( pktCmd(), ",", vlanId(), ",", intf(), ",", ethAddr(), ",", nhLocalIndex(), ",",
                         tunnelKey().vrfId(), ",", tunnelKey().ipAddr() );
}

NexthopInfoColl::NexthopInfoColl( const Gant::String & ) {
   GANT_FAIL( "No String constructor for NexthopInfoColl - has collection" );
}

} // namespace VexL3Unicast
