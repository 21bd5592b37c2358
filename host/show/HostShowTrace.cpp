// show trace: the newest lines of the ring. trace level: how much a unit writes there. They need no data plane.

#include "GantActivity.h"
#include "GantTrace.h"
#include "HostShows.h"

#include <algorithm>
#include <set>

namespace Host {

namespace {

void requireUnit( const std::string & unit ) {
   for ( const auto * handle : Gant::TraceHandle::all() )
      if ( unit == handle->unit() ) return;
   throw CommandError( ErrorCode::notFound, "there is no trace unit \"" + unit + "\"" );
}

std::unique_ptr< Answer > trace( const Asked & asked ) {
   const auto unit = asked.question.text( "unit" );
   const auto most = std::min< U64 >( asked.question.number( "most", 200 ), 100000 );
   if ( !unit.empty() ) requireUnit( unit );
   return atOnce( [ unit, most ]( Output & out ) {
      const auto now = Gant::activityManager()->now();
      for ( const auto & line : Gant::traceLines( most, unit ) )
         out.row( { { "secondsAgo", now - line.time },
                    { "unit", line.unit },
                    { "level", line.level },
                    { "text", line.text } } );
   } );
}

// Several handles of a unit are set together: one row is enough.
std::unique_ptr< Answer > units( const Asked & ) {
   return atOnce( []( Output & out ) {
      std::map< std::string, const Gant::TraceHandle * > units;
      for ( const auto * handle : Gant::TraceHandle::all() ) units[ handle->unit() ] = handle;
      for ( const auto & [ unit, handle ] : units )
         out.row( { { "unit", unit }, { "level", handle->level() }, { "streamLevel", handle->streamLevel() } } );
   } );
}

int levelOf( const Question & question, const char * member, U64 otherwise ) {
   const auto level = question.number( member, otherwise );
   if ( level > U64( Gant::traceLevelMax ) )
      throw CommandError( ErrorCode::usage, "a trace level is 0 to " + std::to_string( Gant::traceLevelMax ) );
   return static_cast< int >( level );
}

std::unique_ptr< Answer > traceLevel( const Asked & asked ) {
   const auto unit = asked.question.text( "unit" );
   const int level = levelOf( asked.question, "level", 0 );
   const int streamLevel = levelOf( asked.question, "streamLevel", Gant::traceStreamLevelDefault );
   if ( !Gant::TraceHandle::levelIs( unit, level, streamLevel ) ) requireUnit( unit );
   return atOnce( []( Output & ) {} );
}

} // namespace

Commands traceShows() {
   return { { "show trace", { { "unit" }, { "most", Parameter::Kind::number } }, trace },
            { "show trace-units", {}, units },
            { "trace level",
              { { "unit", Parameter::Kind::text, true },
                { "level", Parameter::Kind::number, true },
                { "streamLevel", Parameter::Kind::number } },
              traceLevel } };
}

} // namespace Host
