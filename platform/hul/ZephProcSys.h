// Kernel settings.
#pragma once

#include "GantTypes.h"

namespace Zeph {

// Writes the value to a file below /proc/sys. False, with a trace that names the file and the reason, when it cannot.
bool writeProcSys( const Gant::String & path, const Gant::String & value );

} // namespace Zeph
