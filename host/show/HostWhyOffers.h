// Which sources offered a route of a prefix, and which one holds: the one place where `why` learns of sources.
#pragma once

#include "HostAnswer.h"
#include "HostFacts.h"

namespace Host {

// Of the VRF's route of the prefix, a row for each offer, the one that holds first: its source in words, whether it is
// in use, and where it is known its type and ways.
Json offersOf( RouterState & state, U32 vrfId, const Kynet::IpGenPrefix & prefix );

} // namespace Host
