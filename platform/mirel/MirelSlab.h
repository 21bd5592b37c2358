// Records by number. They live in chunks, so that a record keeps its place and growing copies nothing, and a walk over
// the numbers survives whatever is added and removed meanwhile.
#pragma once

#include "GantTypes.h"

#include <memory>
#include <vector>

namespace Mirel {

// An array that only grows.
template < typename T >
class ChunkArray {
 public:
   static constexpr U32 chunkBits = 12;
   static constexpr U32 chunkSize = 1u << chunkBits;

   U32 size() const { return size_; }
   // New records are default-made. A smaller size changes nothing.
   void grow( U32 size ) {
      while ( chunks_.size() * chunkSize < size ) chunks_.push_back( std::make_unique< T[] >( chunkSize ) );
      if ( size > size_ ) size_ = size;
   }
   // `at` below size().
   T & operator[]( U32 at ) { return chunks_[ at >> chunkBits ][ at & ( chunkSize - 1 ) ]; }
   const T & operator[]( U32 at ) const { return chunks_[ at >> chunkBits ][ at & ( chunkSize - 1 ) ]; }

 private:
   std::vector< std::unique_ptr< T[] > > chunks_;
   U32 size_ = 0;
};

// An array with places that are taken and given back; the place given back last is taken first. Whether a place is
// taken is the record's own business.
template < typename T >
class Slab {
 public:
   // One beyond the highest place that was ever taken.
   U32 size() const { return records_.size(); }
   U32 taken() const { return size() - static_cast< U32 >( free_.size() ); }
   // A default-made record.
   U32 take() {
      if ( free_.empty() ) {
         records_.grow( size() + 1 );
         return size() - 1;
      }
      const auto at = free_.back();
      free_.pop_back();
      return at;
   }
   // `at` is taken.
   void give( U32 at ) {
      records_[ at ] = T{};
      free_.push_back( at );
   }
   T & operator[]( U32 at ) { return records_[ at ]; }
   const T & operator[]( U32 at ) const { return records_[ at ]; }

 private:
   ChunkArray< T > records_;
   std::vector< U32 > free_;
};

} // namespace Mirel
