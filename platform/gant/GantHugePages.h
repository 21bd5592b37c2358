// Memory for tables that are read at random. A look-up in a table of some ten megabytes misses the cache, and in small
// pages it misses the translation buffer as well, which costs as much again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

namespace Gant {

inline constexpr size_t hugePageSize = size_t( 2 ) << 20;

// Memory at a multiple of hugePageSize, which the kernel is asked to back with huge pages; where it does not, it is
// memory like any other. Throws std::bad_alloc.
void * hugePagesNew( size_t bytes );
void hugePagesDelete( void * memory, size_t bytes );

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
         hugePagesDelete( memory, n * sizeof( T ) );
      else
         ::operator delete( memory );
   }
   friend bool operator==( const HugePageAllocator &, const HugePageAllocator & ) { return true; }

 private:
   static bool isLarge( size_t n ) { return n * sizeof( T ) >= hugePageSize; }
};

// Objects of one size, for the thread of the activity loop, in chunks of a huge page. A chunk of which nothing is taken
// is given back when there is another one with room.
template < size_t size >
class Pool {
 public:
   void * take() {
      if ( open_ == nullptr ) openIs( grow() );
      auto & chunk = *open_;
      auto * const taken = chunk.free;
      chunk.free = taken->next;
      ++chunk.taken;
      if ( chunk.free == nullptr ) close( chunk );
      return taken;
   }
   void give( void * memory ) {
      auto & chunk =
           *reinterpret_cast< Chunk * >( reinterpret_cast< std::uintptr_t >( memory ) & ~( hugePageSize - 1 ) );
      const bool full = chunk.free == nullptr;
      chunk.free = new ( memory ) Free{ chunk.free };
      if ( full ) openIs( &chunk );
      if ( --chunk.taken != 0 || ( chunk.before == nullptr && chunk.after == nullptr ) ) return;
      close( chunk );
      hugePagesDelete( &chunk, hugePageSize );
   }

 private:
   struct Free {
      Free * next;
   };
   // At the beginning of its page.
   struct Chunk {
      Free * free = nullptr;
      size_t taken = 0;
      Chunk * before = nullptr; // among those with room
      Chunk * after = nullptr;
   };
   static constexpr size_t stride = ( size + alignof( Free ) - 1 ) / alignof( Free ) * alignof( Free );

   static Chunk * grow() {
      auto * const memory = static_cast< char * >( hugePagesNew( hugePageSize ) );
      auto * const chunk = new ( memory ) Chunk();
      for ( size_t at = ( hugePageSize - sizeof( Chunk ) ) / stride; at-- > 0; )
         chunk->free = new ( memory + sizeof( Chunk ) + at * stride ) Free{ chunk->free };
      return chunk;
   }
   void openIs( Chunk * chunk ) {
      chunk->before = nullptr;
      chunk->after = open_;
      if ( open_ != nullptr ) open_->before = chunk;
      open_ = chunk;
   }
   void close( Chunk & chunk ) {
      ( chunk.before == nullptr ? open_ : chunk.before->after ) = chunk.after;
      if ( chunk.after != nullptr ) chunk.after->before = chunk.before;
      chunk.before = chunk.after = nullptr;
   }

   Chunk * open_ = nullptr; // the first one with room
};

} // namespace Gant
