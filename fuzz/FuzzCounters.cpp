// Counter files: the bytes are the file, whose counts are read.
#include "FuzzInput.h"
#include "VexCounterDb.h"

int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   const Fuzz::File file( data, size );
   const auto counters = Gant::make< VexModules::MirelCounterDbStatus >( "counters" );
   const auto error = counters->map( file.path() );
   if ( error.empty() != counters->mapped() ) std::abort();
   for ( const U32 id : { 0u, 1u, 511u, ( 1u << 20 ) - 1, ~0u } ) {
      const VexModules::MirelCounterId counter( id );
      counters->restarted( counter );
      if ( counters->mirelCount( counter ).count().value() != 0 ) std::abort();
   }
   return 0;
}
