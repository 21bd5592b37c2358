// What the layer has been asked for and cannot do yet.
#pragma once

#include "GantTypes.h"

#include <vector>

namespace Hul {

struct Pending {
   Gant::String object; // "route 10.0.0.0/8 in VRF 3"
   Gant::String reason; // what it waits for: "FEC 7 does not exist"
   friend bool operator==( const Pending &, const Pending & ) = default;
};

using Pendings = std::vector< Pending >;

} // namespace Hul
