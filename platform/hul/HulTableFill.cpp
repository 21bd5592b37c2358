#include "HulTableFill.h"

#include "GantTrace.h"

#include <utility>

namespace Hul {

static Gant::TraceHandle traceHandle( "HulRouteSm" );

// Parts of a hundred: from which a table is nearly full, and below which it is not any more.
static constexpr U64 nearlyFull = 90, notNearlyFull = 85;

void TableFill::update( const Counts & counts ) {
   if ( counts.noRoom != 0 ) {
      if ( std::exchange( state_, State::full ) != State::full )
         GANT_TRACE( 0, "the data plane's table of ", af_, " routes is full with ", counts.held,
                     " routes: those that it has no room for wait" );
      return;
   }
   // What is under way may find no room either.
   if ( counts.underWay != 0 && state_ == State::full ) return;
   const auto parts = counts.most == 0 ? 0 : counts.held * 100 / counts.most;
   if ( state_ == State::full ) GANT_TRACE( 0, "the data plane's table of ", af_, " routes has room again" );
   if ( state_ == State::some && parts >= nearlyFull )
      GANT_TRACE( 0, "the data plane's table of ", af_, " routes is filled to ", parts, " %: ", counts.held, " of ",
                  counts.most );
   const bool stays = state_ != State::some && parts >= notNearlyFull;
   state_ = parts >= nearlyFull || stays ? State::nearlyFull : State::some;
}

} // namespace Hul
