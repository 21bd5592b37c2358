#include "BenchTargets.h"

#include "BenchDaemon.h"

#include <fmt/format.h>

namespace Bench {

namespace {

void printTarget( const std::string & what, double limit, bool atLeast, std::optional< double > measured,
                  const char * unit ) {
   if ( !measured ) {
      fmt::print( "{:<66}{:>9} {:>9}\n", what, "-", "not measured" );
      return;
   }
   const bool kept = atLeast ? *measured >= limit : *measured <= limit;
   fmt::print( "{:<66}{:>9.1f} {}{:>7.1f} {:<14}{}\n", what, *measured, atLeast ? ">=" : "<=", limit, unit,
               kept ? "kept" : "MISSED" );
}

std::optional< double > quotient( std::optional< double > a, std::optional< double > b ) {
   return a && b ? std::optional( *a / *b ) : std::nullopt;
}

std::optional< double > times( std::optional< double > a, double factor ) {
   return a ? std::optional( *a * factor ) : std::nullopt;
}

} // namespace

void printTargets( const Report & report ) {
   const auto key = []( Phase phase, Way way ) { return Key{ phase, false, way }; };
   fmt::print( "\n{:<66}{:>9}  {:>8}\n", "targets, shuffled, medians", "measured", "limit" );
   const struct {
      Phase phase;
      const char * name;
   } works[] = { { Phase::add, "add" }, { Phase::change, "change" }, { Phase::del, "delete" } };
   for ( const auto & [ phase, name ] : works ) {
      const auto mine = report.each( key( phase, Way::endToEnd ) );
      printTarget( fmt::format( "{} all routes, end to end, speed of the kernel's", name ), 2, true,
                   quotient( report.each( key( phase, Way::kernel ) ), mine ), "times" );
      printTarget( fmt::format( "{} all routes, end to end, time of the floor's", name ), 2, false,
                   quotient( mine, report.each( key( phase, Way::floor ) ) ), "times" );
   }
   const auto changes = key( Phase::adjacencies, Way::endToEnd );
   printTarget( fmt::format( "{} adjacency changes of 4 next hops, acknowledged", report.operations( changes ) ), 500,
                false, times( report.each( changes ), double( report.operations( changes ) ) * 1e3 ), "ms" );
   for ( const auto way : { Way::endToEnd, Way::fed } ) {
      const auto * const name = way == Way::fed ? "fed" : "end to end";
      printTarget( fmt::format( "one adjacency's change alone, {}, median", name ), 300, false,
                   times( report.alone( key( Phase::loneAdjacency, way ) ), 1e6 ), "us" );
      printTarget( fmt::format( "one route's change alone, {}, median", name ), 300, false,
                   times( report.alone( key( Phase::loneRoute, way ) ), 1e6 ), "us" );
   }
   printTarget( "the library's own memory", 160, false, report.figure( libraryMemory( false ) ), "bytes a route" );
   printTarget( "the whole daemon's memory, resident", 400, false, report.figure( daemonMemory ), "bytes a route" );
   printTarget( "the daemon's data plane killed, everything back and verified", 5000, false,
                report.figure( daemonVerified ), "ms" );
   printTarget( "data plane killed, everything back and verified", 5000, false, report.figure( recoveryVerified ),
                "ms" );
}

} // namespace Bench
