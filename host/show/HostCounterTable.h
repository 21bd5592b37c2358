// The counts of the data plane, as shows read them.
#pragma once

#include "HostAgentView.h"
#include "VexCounterDb.h"

namespace Host {

using CounterTable = Gant::Ptr< const VexModules::MirelCounterDbStatus >;

// The agent's view of the table, or one of our own where the agent has none. Null: it cannot be read.
CounterTable counterTable( const AgentView & session );
// Null where there is no table.
Json valueOf( const CounterTable & table, Vex::CounterId id );

} // namespace Host
