// What a routing suite sends by FPM: the first byte is the size of the pieces that the rest comes in.
#include "FuzzRouter.h"
#include "HostFpmRoutes.h"

#include <algorithm>

int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   if ( size == 0 ) return 0;
   Fuzz::Router router;
   Host::FpmRoutes routes( router.state, []( U32 index ) -> std::optional< Kynet::IntfId > {
      if ( index == 0 || index > 2 ) return std::nullopt;
      return Kynet::IntfId::fromString( "Ethernet" + std::to_string( index ) );
   } );
   Host::FpmStream stream( [ & ]( const auto & messages ) { return routes.frame( messages ); } );
   const std::size_t piece = data[ 0 ] == 0 ? size : data[ 0 ];
   for ( std::size_t at = 1; at < size; at += piece ) {
      const auto count = std::min( piece, size - at );
      std::memcpy( stream.room( count ), data + at, count );
      if ( !stream.take( count ).empty() ) break;
      routes.settle();
   }
   router.state.sources().lost( Host::Teller::fpm() );
   routes.lost();
   return 0;
}
