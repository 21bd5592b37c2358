// The agent in a host of the benchmark's: state, the engine over a channel, and the loop.
#pragma once

#include "AgentRouter.h"
#include "HulTypes.h"

#include <functional>

namespace Bench {

constexpr U32 adjacencies = 64;
constexpr U32 hopsPerAdjacency = 4;
// The adjacency beside them that all routes are moved to.
constexpr U32 commonAdjacency = adjacencies;

// Four routed interfaces, and on them the neighbours of 65 adjacencies. Each adjacency has two sets of four next hops,
// so that it can change all four.
class RouterState : public Test::RouterState {
 public:
   RouterState();
};
// Of the adjacency, with its first or its `other` next hops.
Mirel::Vias viasOf( U32 adjacency, bool other );
Hul::NextHopCollection nextHopsOf( U32 adjacency, bool other );

// An agent over a state and a channel, in processing.
class Router {
 public:
   Router( const RouterState & state, const Gant::Ptr< Vex::Channel > & channel );
   Router( const Router & ) = delete;
   Router & operator=( const Router & ) = delete;
   ~Router();

   const Gant::Ptr< Vex::Channel > channel;
   Gant::Ptr< Vex::VexCommonSmData > vexcsd;
   Gant::Ptr< VexL3Unicast::AgentSm > agent;
};

// Runs the loop until nothing is left to do and, on a channel to a data plane, everything queued is acknowledged.
// `work`, when there is one, runs once a turn until it returns false. Throws when the session is lost or a request is
// refused.
void runUntilSettled( Vex::Channel & channel, const std::function< bool() > & work = {} );

} // namespace Bench
