// From the vias of a FEC to its ways out: what is known of a via before the neighbour is resolved. Not for public
// headers.
#pragma once

#include "HulTypes.h"
#include "MirelFib.h"

#include <functional>

namespace Hul {

// A neighbour by which an address is reached, with its share of the packets.
struct Path {
   Kynet::IntfId intfId;
   Kynet::IpGenAddr hop;
   U32 weight = 1;
   friend bool operator==( const Path &, const Path & ) = default;
};
using Paths = std::vector< Path >;

struct Way {
   NextHopEntryType type; // `forward`: as far as the neighbour is resolved and the interfaces are usable
   Kynet::IntfId intfId;  // through a tunnel, the underlay's
   Kynet::IpGenAddr hop;  // of a `forward`
   Kynet::IntfId tunnelIntfId;
   U32 multiplicity = 1;
   U32 via = 0; // position in the FEC
   friend bool operator==( const Way &, const Way & ) = default;
};
using Ways = std::vector< Way >;

// Members that divide among them what a group of them gets.
struct ShareGroup {
   U32 members;
   U32 weight; // of the group among the groups
};

// Brings the shares of all groups, one group's after the other's, to one measure: a group gets `weight` parts of all,
// divided among its members in the ratio of their shares, in the smallest whole numbers. Where these would pass 32
// bits, the ratio is approximate.
void spread( const std::vector< ShareGroup > & groups, std::vector< U32 > & shares );

// The ways of the vias. `pathsOf` gives the neighbours by which a tunnel interface reaches its other end: none while
// there is no route to it.
Ways waysOf( const Mirel::Vias & vias, const std::function< const Paths &( Kynet::IntfId tunnelIntfId ) > & pathsOf );

} // namespace Hul
