#include "HulProgress.h"

#include <cstring>

namespace Hul {

Gant::String Progress::reason( U32 number, S32 code ) const {
   if ( !refused_.empty() ) {
      const auto newest = refused_.back().number;
      const auto whole = newest - static_cast< U32 >( static_cast< U32 >( newest ) - number );
      const auto at = std::ranges::lower_bound( refused_, whole, {}, &RefusedCommand::number );
      if ( at != refused_.end() && at->number == whole ) return at->text;
   }
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
