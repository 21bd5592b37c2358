// The module classes that there are.
//
// A class knows packets, gates, counters and the messages of its commands, and nothing of sessions and gRPC: it is
// tried out with packets and commands alone. What several classes share of a protocol has a source of its own here.
#pragma once

#include "DpModuleClass.h"

#include <span>
#include <string_view>

namespace Vexdp {

// In the order of their names.
std::span< const ModuleClass * const > moduleClasses();
// Null when there is none of the name.
const ModuleClass * findModuleClass( std::string_view name );

} // namespace Vexdp
