// A batch of requests on its way through the engine.
#pragma once

#include "DpRequests.h"

#include <functional>

namespace Vexdp {

// Names of the actions that change the graph, as reports tell them.
inline constexpr const char * kCreate = "CreateModule";
inline constexpr const char * kDestroy = "DestroyModule";
inline constexpr const char * kConnect = "ConnectModules";
inline constexpr const char * kDisconnect = "DisconnectModules";

// What a request for a module is about. The module isn't there to ask for its class.
Subject subjectOf( const bess::pb::CreateModuleRequest & request );

// Of the refusals in a reply, the first so many have a google.rpc.Status and a text; the others have their code.
inline constexpr int kRefusalsWithStatus = 16;
inline constexpr int kRefusalsWithText = 4096;

// Applies every request in its order, whatever becomes of the others. The reply gets the batch's number, a refusal for
// each request that was refused, and an answer for each that has one: a show's, and the name that a module without one
// got. `between` is called after each command, when it is there.
void applyBatch( Requests & requests, const vex::pb::Batch & batch, vex::pb::BatchReply & reply,
                 const std::function< void() > & between = {} );

} // namespace Vexdp
