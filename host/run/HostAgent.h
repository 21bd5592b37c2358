// The agent over the state tree.
#pragma once

#include "HostStateTree.h"

namespace Vex {
class VexCommonSmData;
}
namespace VexL3Unicast {
class AgentSm;
}

namespace Host {

// Made with the tree's mounts and entities, for the engine of `vexcsd`. Neither phase has run.
Gant::Ptr< VexL3Unicast::AgentSm > agentOver( const StateTree & tree,
                                              const Gant::Ptr< Vex::VexCommonSmData > & vexcsd );

} // namespace Host
