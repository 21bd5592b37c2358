#include "DpRefusal.h"

#include <algorithm>
#include <cerrno>

namespace Vexdp {

Outcome requireFields( std::initializer_list< Field > fields ) {
   for ( const auto & field : fields )
      if ( !field.present ) return refuse( EINVAL, "{} is missing", field.name );
   return {};
}

Outcome macFrom( const char * field, const std::string & bytes, MacAddr & mac ) {
   if ( bytes.size() != mac.bytes.size() )
      return refuse( EINVAL, "{} has {} bytes instead of {}", field, bytes.size(), mac.bytes.size() );
   std::copy( bytes.begin(), bytes.end(), mac.bytes.begin() );
   return {};
}

std::string bytesOf( const MacAddr & mac ) { return { mac.bytes.begin(), mac.bytes.end() }; }

Outcome requireAtMost( const char * field, std::uint64_t value, std::uint64_t limit ) {
   if ( value <= limit ) return {};
   return refuse( ERANGE, "{} {} is out of range, at most {}", field, value, limit );
}

Outcome requireGate( const char * field, GateId gate, GateId ogates ) {
   if ( gate == kNoGate || gate < ogates ) return {};
   return refuse( ERANGE, "{} {} is out of range, the module has {} output gates", field, gate, ogates );
}

} // namespace Vexdp
