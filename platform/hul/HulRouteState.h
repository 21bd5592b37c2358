// What has become of a route.
#pragma once

#include "GantEnum.h"
#include "GantTypes.h"

namespace Hul {

GANT_ENUM( RouteProgress, U8, ( pending, 0 ), // it waits for something, or the data plane has not answered
           ( programmed, 1 ), ( refused, 2 ) )

struct RouteState {
   RouteProgress progress;
   Gant::String reason; // empty of one that is programmed
   U32 command = 0;     // the lower bits of its last command's number (HulProgress.h), or of its refused one's; 0: none
};

// Of one family. Each route of the FIB is under way, programmed or refused, as its RouteState says, or it waits.
struct RouteCounts {
   U32 underWay = 0; // told, and not answered
   U32 programmed = 0;
   U32 refused = 0;
   U32 noRoom = 0;       // of the refused, for want of room
   U32 overRefused = 0;  // of the refused, which the data plane took, but not their next hops
   U32 overDisabled = 0; // taken, and they wait for their interfaces
   U32 taken() const { return programmed + overRefused + overDisabled; }
};

} // namespace Hul
