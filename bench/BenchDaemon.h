// The daemon with the whole table, as a process.
#pragma once

#include "BenchReport.h"
#include "BenchScenario.h"

namespace Bench {

inline constexpr const char * daemonMemory = "daemon resident";
inline constexpr const char * daemonVerified = "daemon, from its data plane's kill until verified";

// Starts the vexl3d that lies beside this program over a route file of the prefixes, kills its data plane, and waits
// until everything is back. What the data plane holds is read and compared, before and after. Throws when it fails.
void measureDaemon( const Order & order, Report & report );

} // namespace Bench
