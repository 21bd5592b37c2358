#include "GantAssert.h"

#include "GantTrace.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace Gant {

void assertionFailed( const char * condition, const char * file, int line, const String & context ) {
   const auto unit = std::filesystem::path( file ).stem().string();
   std::fprintf( stderr, "Failed(%s) %s [%s:%d]\n", condition, context.c_str(), unit.c_str(), line );
   for ( const auto & blip : traceLines( 50 ) )
      std::fprintf( stderr, "%12.6f %-24s %d %s\n", blip.time, blip.unit, blip.level, blip.text.c_str() );
   std::fflush( stderr );
   std::abort();
}

} // namespace Gant
