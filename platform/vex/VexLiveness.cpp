#include "VexLiveness.h"

#include <algorithm>

namespace Vex {

Gant::String Liveness::turn( double now, bool owes ) {
   const double listened = last_ < 0 ? 0 : std::min( now - last_, 2 * period() );
   last_ = now;
   silent_ += listened;
   owing_ = owes ? owing_ + listened : 0;
   const double owingMost = vouched_ ? patience * limit_ : limit_;
   if ( silent_ >= limit_ ) return Gant::format( "the data plane has been silent for %g s", limit_ );
   if ( owing_ >= owingMost ) return Gant::format( "the data plane has owed an answer for %g s", owingMost );
   return {};
}

} // namespace Vex
