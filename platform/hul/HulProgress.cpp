#include "HulProgress.h"

#include <cstring>

namespace Hul {

Gant::String Progress::reason( U32 number, S32 code ) const {
   for ( auto at = refused_.rbegin(); at != refused_.rend(); ++at )
      if ( static_cast< U32 >( at->number ) == number ) return at->text;
   const char * const words = strerrordesc_np( code );
   return words == nullptr ? "error " + std::to_string( code ) : words;
}

void Progress::refusedIs( U64 number, S32 code, std::string_view text ) {
   if ( refused_.size() == refusedKept ) refused_.pop_front();
   refused_.push_back( { number, code, Gant::String( text ) } );
   // A copy: whoever hears of it may have more refused.
   const auto refused = refused_.back();
   notifiees_.tell( &Notifiee::onRefused, refused );
}

void Progress::acknowledgedIs( U64 number ) {
   if ( number == acknowledged_ ) return;
   acknowledged_ = number;
   notifiees_.tell( &Notifiee::onAcknowledged );
}

} // namespace Hul
