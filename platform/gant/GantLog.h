// Log messages with a name: what an operator may read, find in the documentation and act upon.
#pragma once

#include "GantTypes.h"

namespace Gant {

enum class LogSeverity : U8 { error = 3, warning = 4 };

// As a recommended action: there is nothing to do.
inline constexpr const char * NoActionRequired = "No action is required.";

struct LogMessage {
   const char * name;
   LogSeverity severity;
   const char * format; // printf's
   const char * explanation;
   const char * recommendedAction;
   // The least seconds between two of the same arguments, and by which that grows with each.
   U32 interval = 1;
   U32 growth = 2;
};

} // namespace Gant
