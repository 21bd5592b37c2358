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

// A last-in-first-out stack of linked members.
template < typename T >
class Stack {
 public:
   Stack() = default;
   Stack( const Stack & ) = delete;
   Stack & operator=( const Stack & ) = delete;
   ~Stack() {
      while ( top_ != nullptr ) pop();
   }
   void push( T value ) {
      top_ = new Member{ value, top_ };
      ++size_;
   }
   // The value on top, or the type's default when the stack is empty.
   T pop() {
      if ( top_ == nullptr ) return T{};
      Member * const member = top_;
      const T value = member->value;
      top_ = member->below;
      --size_;
      delete member;
      return value;
   }
   size_t size() const { return size_; }

 private:
   struct Member {
      T value;
      Member * below;
   };
   Member * top_ = nullptr;
   size_t size_ = 0;
};

} // namespace Gant
