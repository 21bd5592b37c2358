// The daemon's command line.
#pragma once

#include "HostFpmServer.h"
#include "HostSources.h"
#include "HostSupervisor.h"

#include <optional>
#include <string>
#include <vector>

namespace Host {

// Of one trace unit, "*" for all.
struct UnitLevel {
   std::string unit;
   int level = 0; // 0 to 9
};

struct Options {
   SourceFiles sources;
   Supervisor::Config dataPlane;
   std::string socket;
   std::string metrics; // ADDRESS:PORT; empty: there are none
   FpmServer::Config fpm;
   double sourceQuiet = SourceTable::quietByDefault; // seconds
   std::vector< UnitLevel > log;                     // what of the traces goes to the log
   std::vector< UnitLevel > trace;                   // what of them goes to the ring
   bool checkConfig = false;

   // Why the router is told no IPsec connections: their keys would be read on their way. Empty: it is.
   std::string keysRefused() const;
};

// Nothing when there is nothing more to do, with the exit code set: 0 after --help or --version, 2 for a wrong line.
std::optional< Options > parsedOptions( int argc, char ** argv, int & exitCode );

// Where the command socket is unless it is told: in the directory of the service manager, of the system for root, or
// of the user.
std::string defaultSocket();

} // namespace Host
