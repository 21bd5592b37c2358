// The seeded hash into which a value's fields go one after the other.
#pragma once

#include "GantHash.h"

namespace Kyt {

class HashMix {
 public:
   explicit constexpr HashMix( U64 seed ) : hash_( seed ) {}
   template < typename T >
   HashMix & mix( const T & value ) {
      hash_.mix( value );
      return *this;
   }
   constexpr size_t value() const { return hash_.value(); }

 private:
   Gant::Hash hash_;
};

} // namespace Kyt
