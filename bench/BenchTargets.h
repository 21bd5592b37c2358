// Where the whole must stand, and where it stands.
#pragma once

#include "BenchReport.h"

namespace Bench {

// The names of figures that a target is about.
inline std::string libraryMemory( bool sorted ) { return sorted ? "library, sorted" : "library, shuffled"; }
inline constexpr const char * recoveryAcknowledged = "data plane killed, from its restart until acknowledged";
inline constexpr const char * recoveryVerified = "data plane killed, from its restart until verified";

// One line a target: what is measured, the limit, the median, and whether it is kept. Of shuffled prefixes.
void printTargets( const Report & report );

} // namespace Bench
