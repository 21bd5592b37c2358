// The named messages of quality of service. The layer that detects their reasons emits them; nothing here does.
#pragma once

#include "GantLog.h"

#include <span>

namespace Vex {

// In the order of their declaration.
std::span< const Gant::LogMessage > qosLogMessages();

} // namespace Vex
