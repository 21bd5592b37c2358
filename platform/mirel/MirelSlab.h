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
// taken is the record's own business. When few are left, the chunks behind the last one that is taken are given back.
template < typename T >
class Slab {
 public:
   // Beyond the highest place that is taken.
   U32 size() const { return records_.size(); }
   U32 taken() const { return size() - static_cast< U32 >( free_.size() ); }
   // A default-made record.
   U32 take() {
      if ( free_.empty() ) {
         records_.grow( size() + 1 );
         fewAt_ = size() / 4;
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
      if ( taken() <= fewAt_ && records_.chunks() > 1 ) shrink();
   }
   T & operator[]( U32 at ) { return records_[ at ]; }
   const T & operator[]( U32 at ) const { return records_[ at ]; }

 private:
   // Looks at every free place: so it is tried again when only half as many are taken.
   void shrink() {
      fewAt_ = taken() / 2;
      std::vector< U32 > freeIn( records_.chunks() );
      for ( const auto at : free_ ) ++freeIn[ at / chunkSize ];
      U32 end = size();
      while ( end != 0 ) {
         const U32 begin = ( end - 1 ) / chunkSize * chunkSize;
         if ( freeIn[ begin / chunkSize ] != end - begin ) break;
         end = begin;
      }
      if ( end == size() ) return;
      std::erase_if( free_, [ end ]( U32 at ) { return at >= end; } );
      free_.shrink_to_fit();
      records_.shrink( end );
   }

   static constexpr U32 chunkSize = ChunkArray< T >::chunkSize;
   ChunkArray< T > records_;
   std::vector< U32 > free_;
   U32 fewAt_ = 0;
};

} // namespace Mirel
