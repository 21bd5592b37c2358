// Screens of what passes, one after the other, until it is interrupted.
#pragma once

#include "CtlTable.h"

#include <map>
#include <optional>

namespace Ctl {

// Rates of answers that come one after the other, each to the one before.
class Rates {
 public:
   // A member that counts, and the member that its rate goes into.
   struct Counter {
      std::string of, rate;
      double factor = 1;
   };
   // `key`: the members that say which row it is.
   Rates( std::vector< std::string > key, std::vector< Counter > counters ) :
        key_( std::move( key ) ), counters_( std::move( counters ) ) {}

   // Adds each row's rates, and puts the busiest first. `time`: of the answer, in seconds. False: it is the first one,
   // and there are none yet. What counts less than before counts from 0 again.
   bool add( std::vector< Json > & rows, double time );

 private:
   using Counts = std::map< std::string, std::vector< double > >; // of a row, by its key

   const std::vector< std::string > key_;
   const std::vector< Counter > counters_;
   Counts counts_;
   std::optional< double > time_;
};

// What can be monitored.
struct Monitored {
   std::string name, help;
   Json request;
   Columns columns;
   std::optional< Rates > rates; // none: the rows have them
};
std::vector< Monitored > monitored();

struct MonitorOptions {
   std::uint64_t count = 0; // screens; 0: until ^C
   double every = 1;        // seconds
   bool json = false;       // a line each
};

// Asks again and again, and writes to the standard output. Returns the exit code: done at the count, at ^C and when
// nobody reads any more. While the daemon has no data plane that is what the screens say, and the exit code after the
// last of them.
int monitor( Monitored what, const Server & server, const MonitorOptions & options );

} // namespace Ctl
