// verify: whether the data plane holds what the agent means it to hold.
#pragma once

#include "HostAnswer.h"

namespace Host {

Commands verifyCommands(); // verify

} // namespace Host
