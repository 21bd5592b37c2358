#include "HostLog.h"

#include "GantTrace.h"

#include <algorithm>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

namespace Host {

namespace {

int silences = 0;

void traceToLog( const char * unit, int level, const Gant::String & text ) {
   if ( silences != 0 ) return;
   spdlog::log( level == 0 ? spdlog::level::warn : spdlog::level::info, "{}[{}]: {}", unit, level, text );
}

// The priority in front that the journal reads.
class PriorityFlag : public spdlog::custom_flag_formatter {
 public:
   void format( const spdlog::details::log_msg & message, const std::tm &, spdlog::memory_buf_t & out ) override {
      const char priority = message.level >= spdlog::level::err    ? '3'
                            : message.level == spdlog::level::warn ? '4'
                            : message.level == spdlog::level::info ? '6'
                                                                   : '7';
      const char text[] = { '<', priority, '>' };
      out.append( text, text + sizeof( text ) );
   }
   std::unique_ptr< custom_flag_formatter > clone() const override { return std::make_unique< PriorityFlag >(); }
};

} // namespace

TraceSilence::TraceSilence() { ++silences; }
TraceSilence::~TraceSilence() { --silences; }

void logStart() {
   if ( std::getenv( "JOURNAL_STREAM" ) != nullptr ) {
      auto formatter = std::make_unique< spdlog::pattern_formatter >();
      formatter->add_flag< PriorityFlag >( 'P' ).set_pattern( "%P%v" );
      spdlog::set_default_logger( spdlog::stderr_logger_mt( "vexl3d" ) );
      spdlog::set_formatter( std::move( formatter ) );
   } else {
      spdlog::set_default_logger( spdlog::stderr_color_mt( "vexl3d" ) );
      spdlog::set_pattern( "%Y-%m-%d %H:%M:%S.%e %n %^%l%$: %v" );
   }
   Gant::traceStreamIs( traceToLog );
}

std::vector< std::string > logLevelsAre( const Options & options ) {
   std::vector< std::string > unknown;
   const auto apply = [ & ]( const UnitLevel & level, bool stream ) {
      bool found = false;
      for ( const auto * handle : Gant::TraceHandle::all() ) {
         if ( level.unit != "*" && level.unit != handle->unit() ) continue;
         found = true;
         Gant::TraceHandle::levelIs( handle->unit(), std::max( handle->level(), level.level ),
                                     stream ? level.level : handle->streamLevel() );
      }
      if ( !found ) unknown.push_back( "there is no trace unit \"" + level.unit + "\"" );
   };
   for ( const auto & level : options.trace ) apply( level, false );
   for ( const auto & level : options.log ) apply( level, true );
   return unknown;
}

} // namespace Host
