// add, replace, del, reload: what the router is told.
#pragma once

#include "HostAnswer.h"

namespace Host {

Commands changeCommands(); // add, replace, del, reload

} // namespace Host
