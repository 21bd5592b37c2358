// The ways of a route as packets meet them: each with its interface, its neighbour, and why packets by it would be
// lost.
#pragma once

#include "HostAnswer.h"
#include "HostFacts.h"

namespace Host {

// A route of the state that holds an address.
struct HeldRoute {
   Kynet::Prefix prefix;
   Mirel::Route route;
};

// The longest match in the VRF; nothing: there is none.
std::optional< HeldRoute > heldRoute( const RouterState & state, U32 vrfId, Kynet::IpAddr address );

// A row for each way of the route by which packets to the address go, or would go. A row of a way that loses them has
// the member "lost", which says why.
Json waysTo( DaemonControl & daemon, U32 vrfId, Kynet::IpAddr address, const HeldRoute & held );

} // namespace Host
