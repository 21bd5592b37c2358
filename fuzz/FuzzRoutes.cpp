// Route files: the bytes up to the first 0 are the file, those behind it the file that takes its place.
#include "FuzzRouter.h"

#include <algorithm>

int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   Fuzz::Router router;
   const auto * const end = data + size;
   const auto * const middle = std::find( data, end, 0 );
   const auto read = [ & ]( const std::uint8_t * from, const std::uint8_t * to ) {
      const Fuzz::File file( from, static_cast< std::size_t >( to - from ) );
      Host::RouteFileConfig config;
      config.path = file.path();
      Host::Hop hop;
      Host::parseHop( "10.0.1.2", hop );
      config.groups = { { { hop }, 1 } };
      Host::RouteFile routes( router.state, config, router.errors );
      while ( routes.step( 16 ) ) {
      }
   };
   read( data, middle );
   if ( middle != end ) read( middle + 1, end );
   return 0;
}
