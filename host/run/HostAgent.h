// The agent over the state tree.
#pragma once

#include "HostSessionState.h"

namespace Vex {
class VexCommonSmData;
}
namespace VexL3Unicast {
class AgentSm;
}

namespace Host {

// Made with the tree's mounts and entities, and those of the session, for the engine of `vexcsd`. Neither phase has
// run.
Gant::Ptr< VexL3Unicast::AgentSm > agentOver( const StateTree & tree, const SessionState & session,
                                              const Gant::Ptr< Vex::VexCommonSmData > & vexcsd );

} // namespace Host
