#include "HostMeters.h"

#include <algorithm>
#include <numeric>

namespace Host {

U64 Times::count() const { return std::accumulate( counts_.begin(), counts_.end(), U64( 0 ) ); }

void LoopMeter::turn( double began, double ended ) {
   const double took = ended - began;
   turns_.add( took );
   if ( took > longest_ ) {
      longest_ = took;
      longestAt_ = ended;
   }
   if ( ended - windowBegan_ >= window ) {
      ofLastWindow_ = ended - windowBegan_ < 2 * window ? ofWindow_ : 0;
      ofWindow_ = 0;
      windowBegan_ = ended;
   }
   ofWindow_ = std::max( ofWindow_, took );
}

double LoopMeter::longestOfLate( double now ) const {
   if ( now - windowBegan_ >= 2 * window ) return 0;
   return now - windowBegan_ >= window ? ofWindow_ : std::max( ofWindow_, ofLastWindow_ );
}

void Convergence::turn( double began, double ended, U64 queued, U64 acknowledged ) {
   if ( queued != queued_ ) {
      queued_ = queued;
      asked_.push_back( { queued, began } );
   }
   if ( acknowledged == acknowledged_ ) return;
   while ( !asked_.empty() && acknowledged_ < acknowledged ) {
      const auto & oldest = asked_.front();
      const auto upTo = std::min( oldest.number, acknowledged );
      times_.add( ended - oldest.time, upTo - acknowledged_ );
      acknowledged_ = upTo;
      if ( upTo == oldest.number ) asked_.pop_front();
   }
   acknowledged_ = acknowledged;
   if ( answered_.size() == answersMost ) thin();
   answered_.push_back( { acknowledged, ended } );
}

// Every second one of the older half goes.
void Convergence::thin() {
   size_t kept = 0;
   for ( size_t at = 0; at < answered_.size(); ++at )
      if ( at >= answersMost / 2 || at % 2 == 1 ) answered_[ kept++ ] = answered_[ at ];
   answered_.resize( kept );
}

void Convergence::sessionEnded() {
   queued_ = acknowledged_ = 0;
   asked_.clear();
   answered_.clear();
}

std::optional< double > Convergence::acknowledgedBy( U32 number ) const {
   const U64 whole = queued_ - static_cast< U32 >( static_cast< U32 >( queued_ ) - number );
   const auto at = std::ranges::lower_bound( answered_, whole, {}, &Mark::number );
   return at == answered_.end() ? std::nullopt : std::optional( at->time );
}

} // namespace Host
