// Flat hash containers for the tables that hold a router's routes. Not for public headers.
#pragma once

#include "GantCollection.h"
#include "GantHugePages.h"

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>
#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>
#include <absl/container/inlined_vector.h>
#include <algorithm>

namespace Gant {

template < typename K, typename V >
using FlatMap = absl::flat_hash_map< K, V, Hasher, std::equal_to< K >, HugePageAllocator< std::pair< const K, V > > >;
template < typename K >
using FlatSet = absl::flat_hash_set< K, Hasher, std::equal_to< K >, HugePageAllocator< K > >;
template < typename K, typename Less = std::less< K > >
using BtreeSet = absl::btree_set< K, Less >;
template < typename K, typename V >
using BtreeMap = absl::btree_map< K, V >;

// A sorted set that holds its first `inlined` members in place.
template < typename K, size_t inlined >
class SmallSet {
 public:
   using key_type = K;
   using const_iterator = typename absl::InlinedVector< K, inlined >::const_iterator;

   const_iterator begin() const { return members_.begin(); }
   const_iterator end() const { return members_.end(); }
   size_t size() const { return members_.size(); }
   const_iterator find( const K & key ) const {
      const auto at = std::lower_bound( members_.begin(), members_.end(), key );
      return at != members_.end() && *at == key ? at : members_.end();
   }
   void insert( const K & key ) {
      const auto at = std::lower_bound( members_.begin(), members_.end(), key );
      if ( at == members_.end() || *at != key ) members_.insert( at, key );
   }
   void erase( const K & key ) {
      const auto at = find( key );
      if ( at != members_.end() ) members_.erase( at );
   }
   void clear() { members_.clear(); }
   friend bool operator==( const SmallSet & a, const SmallSet & b ) { return a.members_ == b.members_; }

 private:
   absl::InlinedVector< K, inlined > members_;
};

} // namespace Gant
