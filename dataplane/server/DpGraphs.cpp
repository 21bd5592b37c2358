#include "DpGraphs.h"

#include <malloc.h>

#include <utility>

namespace Vexdp {

// A graph that is being freed is still on its side of the wires.
void Graphs::begin() {
   awaitFreed();
   second_ = made( Side( kSides - 1 - live_->graph.side() ) );
}

void Graphs::drop() {
   if ( second_ ) free( std::move( second_ ) );
}

std::unique_ptr< Graphs::Told > Graphs::follow() { return std::exchange( live_, std::move( second_ ) ); }

void Graphs::free( std::unique_ptr< Told > gone ) {
   awaitFreed();
   freeing_ = std::thread( [ gone = std::move( gone ) ]() mutable {
      gone.reset();
      malloc_trim( 0 );
   } );
}

void Graphs::clear() {
   drop();
   live_->graph.clear();
}

} // namespace Vexdp
