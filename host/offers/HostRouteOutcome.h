// What the data plane has made of a route.
#pragma once

#include "KynetAddr.h"

#include <functional>

namespace Host {

enum class RouteOutcome { pending, programmed, refused };

// Of the route that holds in the FIB.
using OutcomeOf = std::function< RouteOutcome( U32 vrfId, const Kynet::IpGenPrefix & prefix ) >;

} // namespace Host
