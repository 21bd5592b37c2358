// What the daemon measures of itself while it runs. Written after each turn of the loop, read on the loop; a turn in
// which nothing of note happened costs a few comparisons.
#pragma once

#include "GantTypes.h"

#include <array>
#include <deque>
#include <optional>
#include <vector>

namespace Host {

// How many times there were of each length.
class Times {
 public:
   // Upper bounds of the buckets, in seconds, ascending. Beyond the last one there is a bucket more.
   static constexpr std::array< double, 14 > bounds{ 0.0001, 0.00025, 0.0005, 0.001, 0.0025, 0.005, 0.01,
                                                     0.025,  0.05,    0.1,    0.25,  0.5,    1,     10 };

   void add( double seconds, U64 times = 1 ) {
      size_t bucket = 0;
      while ( bucket < bounds.size() && seconds > bounds[ bucket ] ) ++bucket;
      counts_[ bucket ] += times;
      sum_ += seconds * static_cast< double >( times );
   }
   // By bucket, not cumulative.
   const std::array< U64, bounds.size() + 1 > & counts() const { return counts_; }
   double sum() const { return sum_; } // seconds
   U64 count() const;

 private:
   std::array< U64, bounds.size() + 1 > counts_{};
   double sum_ = 0;
};

// The turns of the loop: while one lasts, nobody is answered.
class LoopMeter {
 public:
   // Seconds of the activity clock.
   void turn( double began, double ended );

   const Times & turns() const { return turns_; }
   double longest() const { return longest_; }     // seconds, since the start
   double longestAt() const { return longestAt_; } // its end, of the activity clock
   // Of the minute that runs and the one before.
   double longestOfLate( double now ) const;

 private:
   static constexpr double window = 60; // seconds
   Times turns_;
   double longest_ = 0;
   double longestAt_ = 0;
   double windowBegan_ = 0;
   double ofWindow_ = 0;
   double ofLastWindow_ = 0;
};

// When the data plane acknowledged what it was told, and how long that took: from the begin of the turn in which a
// request was made, which is that in which its cause came, to the turn in which its answer is known.
//
// Requests are known by their numbers in the session. Of long ago, only some moments are kept.
class Convergence {
 public:
   // After a turn, of the running session: how many requests it had queued and how many were acknowledged by then.
   void turn( double began, double ended, U64 queued, U64 acknowledged );
   // There is no session.
   void sessionEnded();

   // Each request once.
   const Times & times() const { return times_; }
   // By when, of the activity clock, the request of this number, or of these lower bits of one, was acknowledged.
   // Nothing: it has not been.
   std::optional< double > acknowledgedBy( U32 number ) const;

 private:
   struct Mark {
      U64 number; // the last of its requests
      double time;
   };
   static constexpr size_t answersMost = 4096;

   void thin();

   Times times_;
   U64 queued_ = 0;
   U64 acknowledged_ = 0;
   std::deque< Mark > asked_;     // turns that queued requests which are not acknowledged
   std::vector< Mark > answered_; // turns in which some were
};

class Meters {
 public:
   LoopMeter loop;
   Convergence convergence;
};

} // namespace Host
