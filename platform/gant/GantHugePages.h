// Memory for tables that are read at random. A look-up in a table of some ten megabytes misses the cache, and in small
// pages it misses the translation buffer as well, which costs as much again.
#pragma once

#include <cstddef>
#include <new>

namespace Gant {

inline constexpr size_t hugePageSize = size_t( 2 ) << 20;

// Memory at a multiple of hugePageSize, which the kernel is asked to back with huge pages; where it does not, it is
// memory like any other. Throws std::bad_alloc.
void * hugePagesNew( size_t bytes );
void hugePagesDelete( void * memory );

// For containers: large blocks are huge pages, small ones come from the heap.
template < typename T >
class HugePageAllocator {
 public:
   using value_type = T;
   HugePageAllocator() = default;
   template < typename U >
   HugePageAllocator( const HugePageAllocator< U > & ) {}

   T * allocate( size_t n ) {
      return static_cast< T * >( isLarge( n ) ? hugePagesNew( n * sizeof( T ) ) : ::operator new( n * sizeof( T ) ) );
   }
   void deallocate( T * memory, size_t n ) {
      if ( isLarge( n ) )
         hugePagesDelete( memory );
      else
         ::operator delete( memory );
   }
   friend bool operator==( const HugePageAllocator &, const HugePageAllocator & ) { return true; }

 private:
   static bool isLarge( size_t n ) { return n * sizeof( T ) >= hugePageSize; }
};

// Objects of one size, for the thread of the activity loop. What was taken once is kept for the next.
template < size_t size >
class Pool {
 public:
   void * take() {
      if ( free_ == nullptr ) grow();
      auto * const taken = free_;
      free_ = taken->next;
      return taken;
   }
   void give( void * memory ) { free_ = new ( memory ) Free{ free_ }; }

 private:
   struct Free {
      Free * next;
   };
   static constexpr size_t stride = ( size + alignof( Free ) - 1 ) / alignof( Free ) * alignof( Free );

   void grow() {
      auto * const chunk = static_cast< char * >( hugePagesNew( hugePageSize ) );
      for ( size_t at = hugePageSize / stride; at-- > 0; ) give( chunk + at * stride );
   }

   Free * free_ = nullptr;
};

} // namespace Gant
