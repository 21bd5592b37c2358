#include "GantHugePages.h"

#include <sys/mman.h>

namespace Gant {

static size_t whole( size_t bytes ) { return ( bytes + hugePageSize - 1 ) / hugePageSize * hugePageSize; }

// Of their own, so that the heap beside them does not keep what they give back.
void * hugePagesNew( size_t bytes ) {
   const auto wanted = whole( bytes ), mapped = wanted + hugePageSize;
   auto * const memory = ::mmap( nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0 );
   if ( memory == MAP_FAILED ) throw std::bad_alloc();
   auto * const begin = static_cast< char * >( memory );
   const auto before =
        whole( reinterpret_cast< std::uintptr_t >( begin ) ) - reinterpret_cast< std::uintptr_t >( begin );
   if ( before != 0 ) ::munmap( begin, before );
   ::munmap( begin + before + wanted, hugePageSize - before );
   // The kernel may have none: nothing is lost but speed.
   static_cast< void >( ::madvise( begin + before, wanted, MADV_HUGEPAGE ) );
   return begin + before;
}

void hugePagesDelete( void * memory, size_t bytes ) { ::munmap( memory, whole( bytes ) ); }

} // namespace Gant
