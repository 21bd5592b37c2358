// Records by number. They live in chunks, so that a record keeps its place and growing copies nothing, and a walk over
// the numbers survives whatever is added and removed meanwhile.
#pragma once

#include "GantTypes.h"

#include <memory>
#include <vector>

namespace Mirel {

// An array that grows at its end, and whose end is given back on request.
template < typename T >
class ChunkArray {
 public:
   static constexpr U32 chunkBits = 12;
   static constexpr U32 chunkSize = 1u << chunkBits;

   U32 size() const { return size_; }
   size_t chunks() const { return chunks_.size(); }
   // New records are default-made. A smaller size changes nothing.
   void grow( U32 size ) {
      while ( chunks_.size() * chunkSize < size ) chunks_.push_back( std::make_unique< T[] >( chunkSize ) );
      if ( size > size_ ) size_ = size;
   }
   // Gives back the chunks behind those that hold `size` records.
   void shrink( U32 size ) {
      const size_t kept = ( size_t( size ) + chunkSize - 1 ) / chunkSize;
      if ( kept >= chunks_.size() ) return;
      chunks_.resize( kept );
      chunks_.shrink_to_fit();
      size_ = static_cast< U32 >( kept * chunkSize );
   }
   // `at` below size().
   T & operator[]( U32 at ) { return chunks_[ at >> chunkBits ][ at & ( chunkSize - 1 ) ]; }
   const T & operator[]( U32 at ) const { return chunks_[ at >> chunkBits ][ at & ( chunkSize - 1 ) ]; }

 private:
   std::vector< std::unique_ptr< T[] > > chunks_;
   U32 size_ = 0;
};

// An array with places that are taken and given back; the place given back last is taken first. Whether a place is
// taken is the record's own business. Chunks at the end in which nothing is taken are given back, but for one.
template < typename T >
class Slab {
 public:
   // Beyond the highest place that is taken.
   U32 size() const { return records_.size(); }
   U32 taken() const { return taken_; }
   // A default-made record.
   U32 take() {
      while ( !free_.empty() && free_.back() >= size() ) free_.pop_back();
      const bool grows = free_.empty();
      const auto at = grows ? size() : free_.back();
      if ( grows )
         records_.grow( at + 1 );
      else
         free_.pop_back();
      if ( takenIn_.size() <= at / chunkSize ) takenIn_.resize( at / chunkSize + 1 );
      ++takenIn_[ at / chunkSize ];
      ++taken_;
      return at;
   }
   // `at` is taken.
   void give( U32 at ) {
      records_[ at ] = T{};
      free_.push_back( at );
      --taken_;
      if ( --takenIn_[ at / chunkSize ] == 0 ) shrink();
   }
   T & operator[]( U32 at ) { return records_[ at ]; }
   const T & operator[]( U32 at ) const { return records_[ at ]; }

 private:
   void shrink() {
      auto kept = takenIn_.size();
      while ( kept != 0 && takenIn_[ kept - 1 ] == 0 ) --kept;
      if ( ++kept >= takenIn_.size() ) return;
      takenIn_.resize( kept );
      records_.shrink( static_cast< U32 >( kept ) * chunkSize );
      if ( free_.size() < 2 * size_t( size() ) ) return;
      std::erase_if( free_, [ this ]( U32 place ) { return place >= size(); } );
      free_.shrink_to_fit();
   }

   static constexpr U32 chunkSize = ChunkArray< T >::chunkSize;
   ChunkArray< T > records_;
   std::vector< U32 > takenIn_; // each chunk
   std::vector< U32 > free_;    // and places beyond the end
   U32 taken_ = 0;
};

} // namespace Mirel
