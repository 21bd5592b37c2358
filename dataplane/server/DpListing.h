// What the control API tells of classes, modules and gates.
#pragma once

#include "DpGraph.h"

#include "bess/control.pb.h"
#include "vex/engine.pb.h"

namespace Vexdp {

void listClasses( bess::pb::ListMclassResponse & response );
// ENOENT: there is no class of the name.
Outcome describeClass( const std::string & name, bess::pb::GetMclassInfoResponse & response );

void listModules( const Graph & graph, bess::pb::ListModulesResponse & response );
// Its connected gates, with what passed them. ENOENT: there is no module of the name.
Outcome describeModule( const Graph & graph, const std::string & name, bess::pb::GetModuleInfoResponse & response );

// Each gate that is connected, by module.
void listGates( const Graph & graph, vex::pb::GatesReply & reply );

// Those that lost packets, by name, with their reasons.
void listDrops( const Graph & graph, vex::pb::DropsReply & reply );

} // namespace Vexdp
