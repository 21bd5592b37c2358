// show sources: who tells the router what, and how it is. source: what a user asks of them.

#include "HostDaemonControl.h"
#include "HostRouterState.h"
#include "HostShows.h"

namespace Host {

namespace {

Json rowOf( const SourceTable & sources, Teller teller ) {
   Json row{ { "source", nameOfTeller( teller ) } };
   const auto * const source = sources.source( teller );
   U64 refused = 0;
   if ( source != nullptr ) {
      const auto facts = source->facts();
      row[ "connected" ] = facts.connected;
      if ( facts.since != 0 ) row[ "since" ] = facts.since;
      if ( !facts.peer.empty() ) row[ "peer" ] = facts.peer;
      row[ "messages" ] = facts.messages;
      row[ "bytes" ] = facts.bytes;
      row[ "nextHops" ] = facts.nextHops;
      row[ "answered" ] = facts.answered;
      row[ "pausedSeconds" ] = facts.pausedSeconds;
      row[ "losses" ] = facts.losses;
      if ( !facts.lastLoss.empty() ) row[ "lastLoss" ] = facts.lastLoss;
      if ( !facts.error.empty() ) row[ "error" ] = facts.error;
      auto reasons = Json::array();
      for ( const auto & refusal : source->refusals() ) {
         refused += refusal.count;
         reasons.push_back(
              { { "reason", refusal.reason }, { "count", refusal.count }, { "example", refusal.example } } );
      }
      if ( !reasons.empty() ) row[ "refusals" ] = std::move( reasons );
   }
   row[ "routes" ] = sources.routes( teller );
   row[ "stale" ] = sources.stale( teller );
   row[ "refused" ] = refused;
   const auto state = sources.state( teller );
   if ( source != nullptr || state != SourceTable::State::settled ) row[ "sweep" ] = nameOf( state );
   if ( const auto in = sources.sweepsIn( teller ); in != 0 ) row[ "sweepsInSeconds" ] = in;
   return row;
}

std::unique_ptr< Answer > sources( const Asked & asked ) {
   const auto & table = asked.daemon.state().sources();
   return atOnce( [ &table ]( Output & out ) {
      for ( U8 number = 1; number < tellers; ++number ) out.row( rowOf( table, Teller( number ) ) );
   } );
}

std::unique_ptr< Answer > source( const Asked & asked ) {
   const auto name = asked.question.text( "source" ), operation = asked.question.text( "operation" );
   const auto teller = tellerNamed( name );
   if ( teller == Teller::none_ ) throw CommandError( ErrorCode::notFound, "there is no source \"" + name + "\"" );
   auto & table = asked.daemon.state().sources();
   std::string why;
   if ( operation == "resync" )
      why = table.resync( teller );
   else if ( operation == "sweep" )
      why = table.sweep( teller );
   else if ( operation == "hold" )
      why = table.hold( teller );
   else
      throw CommandError( ErrorCode::usage, "\"" + operation + "\" is not resync, sweep or hold" );
   if ( !why.empty() ) throw CommandError( ErrorCode::refused, "source " + name + ": " + why );
   return atOnce( []( Output & ) {} );
}

} // namespace

Commands sourceShows() {
   return { { "show sources", {}, sources },
            { "source",
              { { "source", Parameter::Kind::text, true }, { "operation", Parameter::Kind::text, true } },
              source } };
}

} // namespace Host
