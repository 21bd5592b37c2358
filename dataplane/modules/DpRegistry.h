// The module classes that there are.
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
