#include "DpWire.h"

namespace Vexdp {

std::shared_ptr< Wire > Wires::of( std::string_view intfname ) {
   const auto at = wires_.find( intfname );
   if ( at != wires_.end() )
      if ( auto wire = at->second.lock() ) return wire;
   std::erase_if( wires_, []( const auto & entry ) { return entry.second.expired(); } );
   auto wire = std::make_shared< Wire >();
   wires_.emplace( intfname, wire );
   return wire;
}

} // namespace Vexdp
