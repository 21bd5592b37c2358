// What is known of an interface's ports.
#pragma once

#include "HostAgentView.h"

namespace Host {

// Adds the interface's device and its device in the kernel to the row, with their states.
void portFacts( const AgentView & session, Kynet::IntfId intfId, Json & row );

} // namespace Host
