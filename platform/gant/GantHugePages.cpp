#include "GantHugePages.h"

#include <cstdlib>
#include <sys/mman.h>

namespace Gant {

void * hugePagesNew( size_t bytes ) {
   const auto rounded = ( bytes + hugePageSize - 1 ) / hugePageSize * hugePageSize;
   auto * const memory = std::aligned_alloc( hugePageSize, rounded );
   if ( memory == nullptr ) throw std::bad_alloc();
   // The kernel may have none: nothing is lost but speed.
   static_cast< void >( ::madvise( memory, rounded, MADV_HUGEPAGE ) );
   return memory;
}

void hugePagesDelete( void * memory ) { std::free( memory ); }

} // namespace Gant
