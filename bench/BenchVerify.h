// Whether the data plane holds the table, asked of the data plane.
#pragma once

#include "BenchScenario.h"

namespace Bench {

// Reads everything that the data plane holds, and compares: exactly these routes, those of one adjacency over one FEC
// of four next hops. `adjacencyOf` says which adjacency the route at a position has; empty, any will do. Throws on the
// first difference.
void verify( const std::string & address, const Order & order, const std::vector< U8 > & adjacencyOf );

} // namespace Bench
