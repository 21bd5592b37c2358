#include "CtlMonitor.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstring>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <iostream>
#include <sstream>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

namespace Ctl {

bool Rates::add( std::vector< Json > & rows, double time ) {
   const auto before = std::exchange( time_, time );
   const auto seconds = before ? time - *before : 0;
   const auto old = std::exchange( counts_, {} );
   for ( auto & row : rows ) {
      std::string key;
      for ( const auto & name : key_ ) key += member( row, name.c_str() ) + '\n';
      const auto was = old.find( key );
      auto & counts = counts_[ key ];
      for ( size_t at = 0; at < counters_.size(); ++at ) {
         const auto & [ of, rate, factor ] = counters_[ at ];
         const auto now = row.value( of, 0.0 );
         counts.push_back( now );
         const auto base = was == old.end() || was->second[ at ] > now ? 0 : was->second[ at ];
         row[ rate ] = seconds > 0 ? ( now - base ) * factor / seconds : 0.0;
      }
   }
   const auto busier = [ this ]( const Json & one, const Json & other ) {
      return one.at( counters_.front().rate ) > other.at( counters_.front().rate );
   };
   std::ranges::stable_sort( rows, busier );
   return before.has_value();
}

namespace {

Column perSecondColumn( std::string title, std::string name ) {
   return shown(
        std::move( title ), std::move( name ),
        []( const Json & value ) { return grouped( std::uint64_t( std::llround( value.get< double >() ) ) ); },
        Column::Align::right );
}

// One answer, taken whole.
struct Taken : Answer {
   void row( const Json & row ) override { rows.push_back( row ); }
   void end( const Json & end ) override { this->end_ = end; }
   void failed( const Error & error ) override { this->error = error; }

   std::vector< Json > rows;
   Json end_;
   std::optional< Error > error;
};

double secondsNow() {
   return std::chrono::duration< double >( std::chrono::system_clock::now().time_since_epoch() ).count();
}

struct Terminal {
   size_t width = 0, height = 0; // 0: the output goes to none
};
Terminal terminal() {
   winsize size{};
   if ( ioctl( STDOUT_FILENO, TIOCGWINSZ, &size ) != 0 ) return {};
   return { size.ws_col, size.ws_row };
}

std::string lineOf( const Monitored & what, const Taken & taken, double time ) {
   Json line{ { "monitor", what.name }, { "time", time }, { "rows", taken.rows } };
   if ( taken.error ) line[ "error" ] = { { "code", taken.error->code }, { "message", taken.error->message } };
   return line.dump( -1, ' ', false, Json::error_handler_t::replace ) + '\n';
}

std::string screenOf( const Monitored & what, const Taken & taken, double time ) {
   constexpr size_t beside = 4; // lines that are no rows
   const auto [ width, height ] = terminal();
   std::ostringstream out;
   out << fmt::format( "{}  {:%H:%M:%S}\n\n", what.name, fmt::localtime( std::time_t( time ) ) );
   if ( taken.error ) {
      out << inWords( taken.error->message ) << '\n';
   } else if ( taken.rows.empty() ) {
      out << "None\n";
   } else {
      Table table( what.columns, out, width );
      const auto most = height > beside ? height - beside : taken.rows.size();
      for ( size_t at = 0; at < std::min( most, taken.rows.size() ); ++at ) table.row( taken.rows[ at ] );
      table.end();
   }
   auto text = out.str();
   if ( width == 0 ) return text + '\n';
   // Over the screen before, without a moment at which it is empty.
   std::string screen = "\x1b[H";
   for ( const char c : text ) screen += c == '\n' ? std::string( "\x1b[K\n" ) : std::string( 1, c );
   return screen + "\x1b[J";
}

// 0, or the error.
int write( std::string_view text ) {
   while ( !text.empty() ) {
      const auto written = ::write( STDOUT_FILENO, text.data(), text.size() );
      if ( written < 0 && errno == EINTR ) continue;
      if ( written < 0 ) return errno;
      text.remove_prefix( static_cast< size_t >( written ) );
   }
   return 0;
}

// Nothing waits to be written: each screen goes out by one call.
extern "C" void interrupted( int ) { _exit( ExitCode::done ); }

} // namespace

std::vector< Monitored > monitored() {
   return {
        { "ports",
          "packets and bits a second of each port",
          { { "command", "show ports" } },
          { text( "Port", "port" ), text( "Device", "device" ), text( "State", "state" ),
            perSecondColumn( "Packets/s in", "packetsPerSecondIn" ), perSecondColumn( "Bits/s in", "bitsPerSecondIn" ),
            count( "Drops in", "dropsIn" ), perSecondColumn( "Packets/s out", "packetsPerSecondOut" ),
            perSecondColumn( "Bits/s out", "bitsPerSecondOut" ), count( "Drops out", "dropsOut" ),
            text( "Reason", "reason" ) },
          {} },
        { "modules",
          "packets that leave each module by each gate, the busiest first",
          { { "command", "show gates" } },
          { text( "Module", "module" ), text( "Class", "class" ), number( "Gate", "gate" ), text( "To", "to" ),
            perSecondColumn( "Packets/s", "packetsPerSecond" ), perSecondColumn( "Bits/s", "bitsPerSecond" ),
            count( "Packets", "packets" ) },
          Rates( { "module", "gate", "to" }, { { "packets", "packetsPerSecond" }, { "bytes", "bitsPerSecond", 8 } } ) },
        { "drops",
          "packets that are lost, by module and reason, the most frequent first",
          { { "command", "show drops" }, { "once", true } },
          { text( "Module", "module" ), text( "Reason", "reason" ), perSecondColumn( "Packets/s", "packetsPerSecond" ),
            count( "Packets", "packets" ) },
          Rates( { "module", "reason" }, { { "packets", "packetsPerSecond" } } ) } };
}

int monitor( Monitored what, const Server & server, const MonitorOptions & options ) {
   std::signal( SIGINT, interrupted );
   std::signal( SIGPIPE, SIG_IGN );
   auto next = std::chrono::steady_clock::now();
   const auto every =
        std::chrono::duration_cast< std::chrono::nanoseconds >( std::chrono::duration< double >( options.every ) );
   int exitCode = ExitCode::done;
   for ( std::uint64_t shown = 0; options.count == 0 || shown < options.count; ) {
      std::this_thread::sleep_until( next );
      next = std::max( next + every, std::chrono::steady_clock::now() );
      Taken taken;
      ask( server, what.request, taken );
      const bool ends = taken.error && taken.error->code != "unavailable";
      const auto time = secondsNow();
      if ( !taken.error && what.rates && !what.rates->add( taken.rows, taken.end_.value( "timestamp", time ) ) )
         continue;
      exitCode = taken.error ? taken.error->exitCode() : ExitCode::done;
      if ( ends ) std::cerr << "vexctl: " << inWords( taken.error->message ) << '\n';
      if ( !ends || options.json ) {
         const int error = write( options.json ? lineOf( what, taken, time ) : screenOf( what, taken, time ) );
         if ( error == EPIPE ) return ExitCode::done;
         if ( error != 0 ) {
            std::cerr << "vexctl: the output could not be written: " << std::strerror( error ) << '\n';
            return ExitCode::refused;
         }
      }
      if ( ends ) break;
      ++shown;
   }
   return exitCode;
}

} // namespace Ctl
