// show loop: how long the turns of the loop were, and how long the data plane took to acknowledge.

#include "GantActivity.h"
#include "HostMeters.h"
#include "HostShows.h"

namespace Host {

namespace {

Json inBuckets( const Times & times ) {
   auto buckets = Json::array();
   for ( size_t at = 0; at < times.counts().size(); ++at ) {
      if ( times.counts()[ at ] == 0 ) continue;
      Json bucket{ { "count", times.counts()[ at ] } };
      if ( at < Times::bounds.size() ) bucket[ "upToSeconds" ] = Times::bounds[ at ];
      buckets.push_back( std::move( bucket ) );
   }
   return buckets;
}

std::unique_ptr< Answer > loop( const Asked & asked ) {
   return atOnce( [ &daemon = asked.daemon ]( Output & out ) {
      const auto * const meters = daemon.meters();
      if ( meters == nullptr ) throw CommandError( ErrorCode::unavailable, "this daemon measures nothing of itself" );
      const auto now = Gant::activityManager()->now();
      const auto & turns = meters->loop.turns();
      const auto & answers = meters->convergence.times();
      Json row{ { "turns", turns.count() },
                { "busySeconds", turns.sum() },
                { "longestTurnSeconds", meters->loop.longest() },
                { "longestTurnSecondsAgo", now - meters->loop.longestAt() },
                { "longestTurnOfLateSeconds", meters->loop.longestOfLate( now ) },
                { "turnLengths", inBuckets( turns ) },
                { "requestsAcknowledged", answers.count() } };
      if ( answers.count() != 0 ) {
         row[ "meanAcknowledgementSeconds" ] = answers.sum() / static_cast< double >( answers.count() );
         row[ "acknowledgementTimes" ] = inBuckets( answers );
      }
      out.row( row );
   } );
}

} // namespace

Commands loopShows() { return { { "show loop", {}, loop } }; }

} // namespace Host
