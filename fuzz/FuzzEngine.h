// A data plane that is made anew for each input.
#pragma once

#include "DpEngine.h"
#include "FuzzInput.h"

#include <google/protobuf/stubs/logging.h>

namespace Fuzz {

// The table is large and is cleared by its engine's reset.
inline Vexdp::CounterTable & counters() {
   // Of texts that are no UTF-8 it would tell at each input.
   static const auto told = google::protobuf::SetLogHandler( nullptr );
   static_cast< void >( told );
   static Vexdp::CounterTable table;
   return table;
}

class Plane {
 public:
   Plane() : engine( counters(), { { 4096 } } ) {}
   // All that is held is told.
   ~Plane() {
      std::unique_ptr< Vexdp::Dump > dump;
      if ( engine.dump( {}, dump ).ok() ) dump->tell( []( const auto & ) { return true; } );
      engine.reset();
   }
   Vexdp::Engine engine;
};

} // namespace Fuzz
