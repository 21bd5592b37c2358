// Where a route leads, as asked for.
#pragma once

#include "GantValue.h"
#include "KynetAddr.h"
#include "KynetIntfId.h"
#include "MirelFib.h"

#include <vector>

namespace Host {

// One next hop, as asked for. Without an interface it is reached by whichever interface of the VRF has it on a
// subnet; without an address it is whoever a tunnel leads to. `onlink`: its interface is taken to reach it, also on no
// subnet of it.
class Hop {
   GANT_VALUE( "Host::Hop", Hop, ( Kynet::IpGenAddr, addr ), ( Kynet::IntfId, intfId ), ( U16, weight, 1 ),
               ( bool, onlink ) )
   Hop( const Kynet::IpGenAddr & addr, Kynet::IntfId intfId, U16 weight ) : Hop( addr, intfId, weight, false ) {}
   bool addrHas() const { return addr_ != Kynet::IpGenAddr(); }
};

// What a route does with its packets, as asked for.
struct Ways {
   Mirel::RouteType kind = Mirel::RouteType::forward();
   std::vector< Hop > hops{}; // of a `drop` none
   friend bool operator==( const Ways &, const Ways & ) = default;
};

} // namespace Host
