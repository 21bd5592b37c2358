// The assertion of every build. A condition that only a bug can break stands here; what a user, a file, a socket, the
// kernel or the data plane can get wrong is an error instead.
//
//    GANT_ASSERT( fec->lpmRouteHas( vrfPrefix ), " vrfprefix ", vrfPrefix, " fecKey ", fec->key() );
//
// writes "Failed(", the condition as it stands in the source, ") ", the values and the source unit to the standard
// error stream, then the last lines of the trace ring, and ends the process.
#pragma once

#include "GantStrep.h"

namespace Gant {

[[noreturn]] void assertionFailed( const char * condition, const char * file, int line, const String & context );

} // namespace Gant

#define GANT_ASSERT( condition, ... )                                                                                  \
   do {                                                                                                                \
      if ( !( condition ) ) [[unlikely]]                                                                               \
         Gant::assertionFailed( #condition, __FILE__, __LINE__, Gant::textsOf( __VA_ARGS__ ) );                        \
   } while ( false )

// The same where there is no condition to print, but a text.
#define GANT_FAIL( text, ... ) Gant::assertionFailed( text, __FILE__, __LINE__, Gant::textsOf( __VA_ARGS__ ) )
