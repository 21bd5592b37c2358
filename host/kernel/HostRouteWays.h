// Next hops as netlink words them, as ways of the router.
#pragma once

#include "HostRouteMessage.h"
#include "HostRouterState.h"

#include <functional>

namespace Host {

// The interface whose device in the kernel has the index.
using IntfAtIndex = std::function< std::optional< Kynet::IntfId >( U32 index ) >;

struct NetlinkWays {
   Ways ways{};
   std::optional< U32 > vrfId{}; // of the interfaces
   const char * wrong = nullptr; // why no route can have them; null: one can
};

// Hops over other devices, and those that the kernel calls dead, are left out while others are there.
NetlinkWays waysOf( const RouterState & state, const IntfAtIndex & intfAt, const std::vector< NetlinkHop > & hops,
                    Kynet::AddressFamily af );
// Blackhole, unreachable, prohibit: the router drops.
bool dropsPackets( U8 routeType );

} // namespace Host
