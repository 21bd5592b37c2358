// The shows, one source for each group. A show is made in many turns of the loop, and the agent changes between them:
// it keeps keys, and looks the object up when its row is due. A new one is a source of its own with a function here,
// and a line in HostCommands.cpp.
#pragma once

#include "HostAnswer.h"

namespace Host {

Commands fibShows();        // fib
Commands routeShows();      // routes, pending
Commands sourceShows();     // sources, and source
Commands adjacencyShows();  // nexthops, adjacencies
Commands interfaceShows();  // interfaces, neighbors, tunnels, vrfs
Commands portShows();       // ports, workers
Commands dropShows();       // drops, gates
Commands ipsecShows();      // ipsec connections, ipsec sas, ipsec flows
Commands aclShows();        // access-lists, policy-map, control-plane
Commands bridgingShows();   // vrrp, vlans, nat
Commands platformShows();   // capabilities, capacity, walks
Commands graphShows();      // modules, graph
Commands summaryShows();    // summary, status, version
Commands counterShows();    // counters
Commands requestShows();    // errors, queue
Commands loopShows();       // loop
Commands traceShows();      // trace, trace level
Commands packetCommands();  // trace packet
Commands captureCommands(); // capture, trace live
Commands whyCommands();     // why

} // namespace Host
