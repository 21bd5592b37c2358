// Overwriting of secrets that are not needed any more, in a way that no compiler leaves out.
#pragma once

#include <cstring>
#include <memory>
#include <string>
#include <sys/prctl.h>

namespace Gant {

// From now on no core of this process is dumped, and no other process of its user reads its memory.
inline void keepFromDumps() { prctl( PR_SET_DUMPABLE, 0 ); }

inline void cleanse( void * bytes, size_t size ) { explicit_bzero( bytes, size ); }

// The string is empty afterwards.
template < typename Allocator >
void cleanse( std::basic_string< char, std::char_traits< char >, Allocator > & bytes ) {
   cleanse( bytes.data(), bytes.size() );
   bytes.clear();
}

// Overwrites what it gives back.
template < typename T >
class CleansingAllocator {
 public:
   using value_type = T;
   CleansingAllocator() = default;
   template < typename U >
   explicit CleansingAllocator( const CleansingAllocator< U > & ) {}
   T * allocate( size_t n ) { return std::allocator< T >().allocate( n ); }
   void deallocate( T * at, size_t n ) {
      cleanse( at, n * sizeof( T ) );
      std::allocator< T >().deallocate( at, n );
   }
   friend bool operator==( const CleansingAllocator &, const CleansingAllocator & ) { return true; }
};

// Bytes among which may be secrets: no copy stays behind when they grow or go.
using CleansedString = std::basic_string< char, std::char_traits< char >, CleansingAllocator< char > >;

} // namespace Gant
