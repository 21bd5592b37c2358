// What graphs stand in, and what stays when one follows another: the wires to the outside, and what modules remember
// beyond their own life.
#pragma once

#include "DpWire.h"

#include <map>
#include <memory>
#include <typeindex>

namespace Vexdp {

// Changed by one thread at a time; the worker does not use it, but what it has got from it.
class Surroundings {
 public:
   Wires & wires() { return wires_; }

   // What modules of a class remember: the one T of this data plane.
   template < class T >
   T & kept() {
      auto & held = kept_[ std::type_index( typeid( T ) ) ];
      if ( !held ) held = std::make_shared< T >();
      return *static_cast< T * >( held.get() );
   }

 private:
   Wires wires_;
   std::map< std::type_index, std::shared_ptr< void > > kept_;
};

} // namespace Vexdp
