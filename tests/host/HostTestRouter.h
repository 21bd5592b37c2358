// A hosted router in small: descriptions and changes come in as text, and what the FIB or the data plane gets of them
// comes out as lines.
#pragma once

#include "Engine.h"
#include "HostDaemon.h"
#include "HostPortSm.h"
#include "HostSessionState.h"
#include "HostSources.h"
#include "Process.h"
#include "VexL3AgentSm.h"

namespace Test {

// A router's state, and the files that it is told by.
class HostedState {
 public:
   HostedState();

   // Each gives what was wrong, as "FILE:LINE: reason" without the directory; the files stay for the next load.
   Lines describe( const std::string & yaml );
   Lines routeFile( const std::string & text );
   // "add route {prefix: ...}": the refusal, empty when it is done.
   std::string change( const std::string & text );

   // "10.0.1.0/24 attached Ethernet1 (connected)": the routes of all VRFs, sorted. Empty words: of every teller.
   Lines routes( const std::string & teller = {} ) const;
   size_t fecs() { return state.routes4().fecs().fecs(); }

   Host::RouterState state;
   Directory directory;

 private:
   Lines load();

   Host::Sources sources_;
   Lines errors_;
};

// The same with an agent over a recording data plane.
class HostedRouter : public HostedState, public Engine {
 public:
   void start();
   ~HostedRouter();
   // Runs the loop until nothing is left to do, and gives the lines since the last time.
   Lines drained();

   std::unique_ptr< Host::SessionState > session;
   Gant::Ptr< Host::PortSm > ports;
   Gant::Ptr< VexL3Unicast::AgentSm > agent;
};

// Two interfaces in the default VRF with a neighbour each.
extern const char * const twoPorts;

} // namespace Test
