#include "GantTypes.h"

#include <cstdarg>
#include <cstdio>

namespace Gant {

String format( const char * fmt, ... ) {
   va_list args;
   va_start( args, fmt );
   va_list again;
   va_copy( again, args );
   String out( static_cast< size_t >( std::vsnprintf( nullptr, 0, fmt, args ) ), '\0' );
   std::vsnprintf( out.data(), out.size() + 1, fmt, again );
   va_end( again );
   va_end( args );
   return out;
}

} // namespace Gant
