// A rate and a burst (RFC 2697, section 3, with one colour).
#pragma once

#include <algorithm>

namespace Vexdp {

class TokenBucket {
 public:
   // Tokens a second, and the most that are kept; full at first.
   TokenBucket( double rate, double burst ) : rate_( rate ), burst_( burst ), tokens_( burst ) {}

   // One token, at that time in seconds. False: there is none. A clock that is set back costs no more than what is
   // kept. Those who take from it by turns may be late: no time fills it twice.
   bool take( double now ) {
      if ( now > filled_ ) tokens_ = std::min( burst_, tokens_ + ( now - filled_ ) * rate_ );
      if ( now > filled_ || ( filled_ - now ) * rate_ > burst_ ) filled_ = now;
      if ( tokens_ < 1 ) return false;
      tokens_ -= 1;
      return true;
   }

 private:
   double rate_;
   double burst_;
   double tokens_;
   double filled_ = 0;
};

} // namespace Vexdp
