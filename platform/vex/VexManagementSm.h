// The engine's management of flows that are not routed: which packets of the device's own go where.
#pragma once

#include "GantPtr.h"

namespace Vex {

class ManagementSm : public Gant::PtrInterface {};

} // namespace Vex
