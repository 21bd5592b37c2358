// Finds the place of a record by its key's hash. It keeps the hashes, so that it grows and shrinks without a look at
// the records, and a look-up touches as a rule one line of the index and one record.
#pragma once

#include "GantHugePages.h"
#include "GantTypes.h"

#include <vector>

namespace Mirel {

class HashIndex {
 public:
   static constexpr U32 none = ~U32( 0 );

   size_t bytes() const { return buckets_.capacity() * sizeof( Bucket ); }

   // The place of the record with the hash for which `is( place )` holds, or `none`.
   template < typename Is >
   U32 find( U32 hash, const Is & is ) const {
      if ( buckets_.empty() ) return none;
      for ( U32 at = hash & mask();; at = ( at + 1 ) & mask() ) {
         const auto & bucket = buckets_[ at ];
         if ( bucket.place == none ) return none;
         if ( bucket.hash == hash && is( bucket.place ) ) return bucket.place;
      }
   }
   // The record is not there yet.
   void add( U32 hash, U32 place );
   // The record is there.
   void remove( U32 hash, U32 place );

 private:
   struct Bucket {
      U32 hash = 0;
      U32 place = none;
   };
   U32 mask() const { return static_cast< U32 >( buckets_.size() ) - 1; }
   void put( const Bucket & bucket );
   void resize( size_t buckets );

   using Buckets = std::vector< Bucket, Gant::HugePageAllocator< Bucket > >;
   Buckets buckets_; // a power of two of them, at most three quarters in use
   size_t used_ = 0;
};

} // namespace Mirel
