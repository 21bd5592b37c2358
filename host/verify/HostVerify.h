// verify: whether the data plane holds what the agent means it to hold.
//
// A room of its own beside the shows: a show looks at one object a step, a comparison needs a picture of all of them at
// one moment. So it waits until nothing is under way, and begins again when the agent has changed meanwhile.
#pragma once

#include "HostAnswer.h"

namespace Host {

Commands verifyCommands(); // verify

} // namespace Host
