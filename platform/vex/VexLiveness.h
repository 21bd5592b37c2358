// Whether the other side of a session is still there.
#pragma once

#include "GantTypes.h"

namespace Vex {

// A peer is lost that has been silent for the limit, or has owed an answer for as long. One that answers heartbeats
// beside its work is given ten times that for an answer: it may have much to do.
//
// What counts is the time in which this process listened: a turn that comes late counts as two, however late it is. So
// a time in which this process did not run is nobody's silence.
class Liveness {
 public:
   // In seconds; 0: nobody is ever lost.
   explicit Liveness( double limit ) : limit_( limit ) {}

   // Seconds between two turns; 0: there is nothing to look at.
   double period() const { return limit_ / 10; }

   // Anything came.
   void heard() { silent_ = 0; }
   // Something of what is owed came.
   void answered() { silent_ = owing_ = 0; }
   // Whether it answers heartbeats beside its work.
   void vouchedIs( bool vouched ) { vouched_ = vouched; }

   // A turn at the time, in seconds. Why the peer is lost; empty: it is not.
   Gant::String turn( double now, bool owes );

 private:
   static constexpr double patience = 10; // with one that vouches for itself

   const double limit_;
   double last_ = -1;  // the turn before
   double silent_ = 0; // seconds
   double owing_ = 0;  // the same
   bool vouched_ = false;
};

} // namespace Vex
