// The containers behind collection attributes. Hash maps are for look-up; ordered ones where the order is told or
// shown.
#pragma once

#include "GantHash.h"

#include <map>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Gant {

template < typename K, typename V >
using HashMap = std::unordered_map< K, V, Hasher >;
template < typename K >
using HashSet = std::unordered_set< K, Hasher >;
template < typename K, typename V >
using OrderedMap = std::map< K, V >;
template < typename K >
using OrderedSet = std::set< K >;

// The keys as they are now, for a walk that changes the collection.
template < typename Collection >
auto keysOf( const Collection & collection ) {
   std::vector< typename Collection::key_type > keys;
   keys.reserve( collection.size() );
   for ( const auto & entry : collection ) {
      if constexpr ( requires { entry.first; } )
         keys.push_back( entry.first );
      else
         keys.push_back( entry );
   }
   return keys;
}

// The value of a key, or the value type's default.
template < typename Map >
const typename Map::mapped_type & valueOf( const Map & map, const typename Map::key_type & key ) {
   static const typename Map::mapped_type none{};
   const auto at = map.find( key );
   return at == map.end() ? none : at->second;
}

// A last-in-first-out stack. What it was filled with lies at the bottom as a range: it takes no room.
template < typename T >
class Stack {
 public:
   Stack() = default;
   Stack( const Stack & ) = delete;
   Stack & operator=( const Stack & ) = delete;
   // As if `last` down to `first` had been pushed. On an empty stack.
   void fill( T first, T last ) {
      first_ = first;
      end_ = size_t( last ) + 1;
   }
   void push( T value ) { pushed_.push_back( value ); }
   // The value on top, or the type's default when the stack is empty.
   T pop() {
      if ( pushed_.empty() ) return first_ < end_ ? static_cast< T >( first_++ ) : T{};
      const T value = pushed_.back();
      pushed_.pop_back();
      return value;
   }
   size_t size() const { return pushed_.size() + ( end_ - first_ ); }

 private:
   std::vector< T > pushed_;
   size_t first_ = 0; // and up to `end_`: below all that was pushed
   size_t end_ = 0;
};

} // namespace Gant
