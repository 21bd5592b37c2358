// Descriptions: the bytes are the file, which is read and applied twice.
#include "FuzzRouter.h"

int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   const Fuzz::File file( data, size );
   Fuzz::Router router;
   for ( int times = 0; times < 2; ++times )
      if ( const auto description = Host::Description::read( file.path(), router.errors ) )
         description->apply( router.state, router.errors );
   for ( const auto & error : router.errors.errors() )
      if ( error.stringValue().size() > 4096 ) std::abort();
   return 0;
}
