// Numbers of a data plane's tunnel and next-hop tables.
#pragma once

#include "GantValue.h"

namespace Hul {

// The kind of an encapsulation, in 4 bits.
class TunnelType {
   GANT_SCALAR( TunnelType, U8, 0 )
};

// Time to live of the outer header, in hops.
class TunnelTtl {
   GANT_SCALAR( TunnelTtl, U8, 0 )
};

// A row of the tunnel table; all ones: none.
class HulTunnelId {
   GANT_SCALAR( HulTunnelId, U16, U16( -1 ) )
};

// An entry of the next-hop table.
class HulNextHopId {
   GANT_SCALAR( HulNextHopId, U32, U32( -1 ) )
   static constexpr HulNextHopId invalidNextHopId() { return HulNextHopId(); }
};

} // namespace Hul
