// The same table in the kernel, by netlink.
#pragma once

#include "BenchScenario.h"

#include <map>
#include <optional>
#include <string>

namespace Bench {

// Does the work in a network namespace of its own, in a process of its own: 256 messages to a call, routes over
// next-hop objects, with everything of the machine left as it is. Nothing where that is not possible, with the reason.
//
// REQUIRES: this process has one thread
std::optional< std::map< Phase, Sample > > measureKernel( const Order & order, const Sizes & sizes,
                                                          std::string & reason );

} // namespace Bench
