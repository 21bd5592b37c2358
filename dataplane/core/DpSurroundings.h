// What graphs stand in, and what stays when one follows another: the wires to the outside, and what modules remember
// beyond their own life.
#pragma once

#include "DpPerWorker.h"
#include "DpWire.h"

#include <map>
#include <memory>
#include <typeindex>

namespace Vexdp {

// Changed by one thread at a time; workers do not use it, but what they have got from it.
class Surroundings {
 public:
   // REQUIRES: workers is from 1 to kMostWorkers
   explicit Surroundings( unsigned workers = 1 ) : workers_( workers ) {}

   // The most that there may be, which is how many of each count a module has.
   unsigned workers() const { return workers_; }
   Wires & wires() { return wires_; }

   // What modules of a class remember: the one T of this data plane.
   template < class T >
   T & kept() {
      auto & held = kept_[ std::type_index( typeid( T ) ) ];
      if ( !held ) held = std::make_shared< T >();
      return *static_cast< T * >( held.get() );
   }

 private:
   const unsigned workers_;
   Wires wires_;
   std::map< std::type_index, std::shared_ptr< void > > kept_;
};

} // namespace Vexdp
