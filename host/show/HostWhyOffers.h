// Which sources offered a route of a prefix, and which one holds: the one place where `why` learns of sources.
#pragma once

#include "HostAnswer.h"
#include "HostFacts.h"

namespace Host {

struct OfferFacts {
   std::string source; // in words
   bool inUse = false;
   Ways ways; // as they were asked for
};

// Of the VRF's route of the prefix, the one in use first.
std::vector< OfferFacts > offersOf( const RouterState & state, U32 vrfId, const Kynet::IpGenPrefix & prefix );

// The ways of a route as members of a row.
Json inJson( const Ways & ways );

} // namespace Host
