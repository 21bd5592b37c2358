// What the data plane has made of a route.
#pragma once

#include "KynetAddr.h"

#include <functional>

namespace Host {

enum class RouteOutcome { pending, programmed, refused };

// Of the route in the slot of the FIB of the family.
using OutcomeOf = std::function< RouteOutcome( Kynet::AddressFamily::Value af, U32 slot ) >;

} // namespace Host
