#include "MirelHashIndex.h"

#include <utility>

namespace Mirel {

namespace {
constexpr size_t least = 16;
} // namespace

void HashIndex::add( U32 hash, U32 place ) {
   if ( ( used_ + 1 ) * 4 > buckets_.size() * 3 ) resize( buckets_.empty() ? least : buckets_.size() * 2 );
   put( { hash, place } );
   ++used_;
}

void HashIndex::put( const Bucket & bucket ) {
   U32 at = bucket.hash & mask();
   while ( buckets_[ at ].place != none ) at = ( at + 1 ) & mask();
   buckets_[ at ] = bucket;
}

void HashIndex::remove( U32 hash, U32 place ) {
   U32 gap = hash & mask();
   while ( buckets_[ gap ].place != place ) gap = ( gap + 1 ) & mask();
   // Whoever stands behind the gap, and would be looked for from the gap or from before it, moves up.
   for ( U32 at = ( gap + 1 ) & mask(); buckets_[ at ].place != none; at = ( at + 1 ) & mask() ) {
      const U32 home = buckets_[ at ].hash & mask();
      if ( ( ( at - home ) & mask() ) < ( ( at - gap ) & mask() ) ) continue;
      buckets_[ gap ] = buckets_[ at ];
      gap = at;
   }
   buckets_[ gap ] = Bucket();
   --used_;
   if ( buckets_.size() > least && used_ * 8 < buckets_.size() ) resize( buckets_.size() / 2 );
}

void HashIndex::resize( size_t buckets ) {
   const auto old = std::exchange( buckets_, Buckets( buckets ) );
   for ( const auto & bucket : old )
      if ( bucket.place != none ) put( bucket );
}

} // namespace Mirel
