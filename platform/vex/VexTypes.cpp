#include "VexTypes.h"

#include <cstdlib>
#include <unistd.h>

namespace Vex {

bool isNamespaceDut() {
   const char * const value = std::getenv( "VEX_NAMESPACE_DUT" );
   return value != nullptr && *value != '\0';
}

U64 getSystemPhysMemSize() {
   return static_cast< U64 >( sysconf( _SC_PHYS_PAGES ) ) * static_cast< U64 >( sysconf( _SC_PAGESIZE ) );
}

} // namespace Vex
