// The daemon's log on the standard error stream, and the traces that are to be in it.
#pragma once

#include "HostOptions.h"

namespace Host {

// Sets up the log: with times for people, with priorities for the system's journal.
void logStart();

// Levels of the trace units. Gives a text for each unit that does not exist.
std::vector< std::string > logLevelsAre( const Options & options );

// While one lives, no trace comes into the log: what a session that goes takes along is no news. The ring has it.
class TraceSilence {
 public:
   TraceSilence();
   ~TraceSilence();
   TraceSilence( const TraceSilence & ) = delete;
   TraceSilence & operator=( const TraceSilence & ) = delete;
};

} // namespace Host
