// vexdp: the reference data plane, a gRPC server.

#include "DpAddress.h"
#include "DpServer.h"
#include "DpVersion.h"
#include "RuntimeDirectory.h"
#include "RuntimeMemory.h"

#include <CLI/CLI.hpp>
#include <grpc/support/log.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

enum ExitCode { done = 0, failed = 1, usage = 2 };

struct Options {
   std::vector< std::string > listen; // none: in the runtime directory
   bool insecureTcp = false;
   Vexdp::TlsFiles tls;
   std::string counters;
   Vexdp::EngineOptions engine;
   std::string ealWords;
   unsigned mostMegabytes = 0;
   std::string logLevel = "info";
   std::optional< pid_t > parent; // 0: whoever it is
};

// What is wrong with the options together.
std::string wrongTogether( const Options & options ) {
   const bool tcp =
        !std::ranges::all_of( options.listen, []( const auto & a ) { return bool( Vexdp::socketPath( a ) ); } );
   if ( !options.tls.none() && !options.tls.all() ) return "--tls-cert, --tls-key and --tls-ca are given together";
   if ( options.insecureTcp && !options.tls.none() ) return "--insecure-tcp is for listening without TLS";
   if ( tcp && !options.insecureTcp && options.tls.none() )
      return "--listen HOST:PORT takes --tls-cert, --tls-key and --tls-ca, or --insecure-tcp";
   return {};
}

std::string defaultAddress() { return "unix:" + Runtime::directory() + "/vexdp.sock"; }

// Nothing when there is nothing more to do, with the exit code set.
std::optional< Options > parsed( int argc, char ** argv, int & exitCode ) {
   Options options;
   CLI::App app( "The reference data plane: a graph of modules behind gRPC." );
   app.set_version_flag( "--version", std::string( "vexdp " ) + Vexdp::kVersion );
   app.add_option( "--listen", options.listen,
                   "unix:PATH or HOST:PORT to listen on, any number of times; without it " + defaultAddress() )
        ->type_name( "ADDRESS" )
        ->check( []( const std::string & address ) { return Vexdp::badAddress( address ); } );
   app.add_flag( "--insecure-tcp", options.insecureTcp,
                 "listen on HOST:PORT without TLS: whoever reaches it owns the data plane" );
   app.add_option( "--tls-cert", options.tls.certificate, "on HOST:PORT speak TLS: this side's certificate, PEM" )
        ->type_name( "FILE" );
   app.add_option( "--tls-key", options.tls.key, "its key" )->type_name( "FILE" );
   app.add_option( "--tls-ca", options.tls.authority, "who signs the certificates of those who may come" )
        ->type_name( "FILE" );
   app.add_option( "--counters", options.counters,
                   "file to make for the counters, which others may map; without it they stay inside" )
        ->type_name( "FILE" );
   app.add_option( "--max-routes", options.engine.limits.routes, "routes that a FIB holds, all VRFs together" )
        ->type_name( "N" )
        ->capture_default_str()
        ->check( CLI::Range( std::uint32_t( 1 ), Vexdp::Limits::kMostRoutes ) );
   app.add_option( "--max-memory", options.mostMegabytes,
                   "megabytes of this process: when the graphs of a lost session and of the one that follows it take "
                   "more together, the former goes at once; 0: whatever they take" )
        ->type_name( "MB" )
        ->capture_default_str()
        ->check( CLI::Range( 0u, 1u << 24 ) );
   app.add_option( "--workers", options.engine.workers,
                   "threads that move packets: the receive queues of the ports are spread over them" )
        ->type_name( "N" )
        ->capture_default_str()
        ->check( CLI::Range( 1u, Vexdp::kMostWorkers ) );
   app.add_flag( "--busy", options.engine.busy, "workers poll their ports without end, and sleep never" );
   app.add_flag( "--huge", options.engine.eal.hugePages, "packet buffers in huge pages, and devices of the PCI bus" );
   app.add_option( "--memory", options.engine.eal.memory, "megabytes for packet buffers, when there is a port" )
        ->type_name( "MB" )
        ->capture_default_str()
        ->check( CLI::Range( 64u, 65536u ) );
   app.add_option( "--eal", options.ealWords, "further words for DPDK's environment" )->type_name( "WORDS" );
   app.add_option( "--log-level", options.logLevel, "debug, info, warning, error or off" )
        ->type_name( "LEVEL" )
        ->capture_default_str()
        ->check( CLI::IsMember( { "debug", "info", "warning", "error", "off" } ).description( "" ) );
   app.add_option( "--die-with-parent", options.parent,
                   "end when the parent process does; with its process id, also when it is gone already" )
        ->type_name( "[PID]" )
        ->check( CLI::Range( 1, 1 << 22 ).description( "" ) )
        ->expected( 0, 1 );
   try {
      app.parse( argc, argv );
      if ( const auto wrong = wrongTogether( options ); !wrong.empty() ) throw CLI::ValidationError( wrong );
      options.engine.memoryMost = std::size_t( options.mostMegabytes ) << 20;
      options.engine.eal.words = CLI::detail::split_up( options.ealWords );
      return options;
   } catch ( const CLI::ParseError & error ) {
      exitCode = app.exit( error ) == 0 ? done : usage;
      return std::nullopt;
   }
}

void logAt( const std::string & level ) {
   spdlog::set_default_logger( spdlog::stderr_color_mt( "vexdp" ) );
   spdlog::set_pattern( "%Y-%m-%d %H:%M:%S.%e %n %^%l%$: %v" );
   spdlog::set_level( spdlog::level::from_str( level ) );
   // What gRPC finds wrong is told by the call that fails, or by the constructor of the server.
   gpr_set_log_function( []( gpr_log_func_args * args ) { spdlog::debug( "grpc: {}", args->message ); } );
}

// The signal comes with the end of the thread that started this process. A parent that is gone before it is asked for
// is not seen by it.
bool parentLives( pid_t parent, pid_t atStart ) {
   prctl( PR_SET_PDEATHSIG, SIGTERM );
   const pid_t now = getppid();
   return parent == 0 ? now == atStart && now != 1 : now == parent;
}

// Before any thread is made, so that all of them leave the signals to the one that waits.
sigset_t blockedSignals() {
   sigset_t signals;
   sigemptyset( &signals );
   sigaddset( &signals, SIGTERM );
   sigaddset( &signals, SIGINT );
   pthread_sigmask( SIG_BLOCK, &signals, nullptr );
   return signals;
}

// The signal that ends it, and who sent it. Meanwhile the counter file is made as soon as there is room, and memory is
// given back.
siginfo_t waited( const sigset_t & signals, Vexdp::Engine & engine ) {
   constexpr timespec kForRoom{ 1, 0 }, kForMemory{ 20, 0 };
   Runtime::Trimmer trimmer;
   auto reason = engine.shareCounters();
   if ( !reason.empty() ) spdlog::warn( "{}: counting goes on without it", reason );
   while ( true ) {
      siginfo_t signal{};
      if ( sigtimedwait( &signals, &signal, reason.empty() ? &kForMemory : &kForRoom ) > 0 ) return signal;
      if ( reason.empty() ) {
         trimmer.look();
         continue;
      }
      reason = engine.shareCounters();
      if ( reason.empty() ) spdlog::info( "counter file {}: there is room", engine.counters().path() );
   }
}

// Where to listen, when nobody says it: nobody else can have been there first.
std::vector< std::string > defaultAddresses() {
   if ( const auto why = Runtime::prepare( Runtime::directory() ); !why.empty() ) throw std::runtime_error( why );
   return { defaultAddress() };
}

int serve( const Options & options, const sigset_t & signals ) {
   try {
      const auto workers = options.engine.workers;
      const auto counters = options.counters.empty()
                                 ? std::make_unique< Vexdp::CounterTable >( workers )
                                 : std::make_unique< Vexdp::CounterTable >( options.counters, workers );
      Vexdp::Engine engine( *counters, options.engine );
      const Vexdp::Server server( engine, options.listen.empty() ? defaultAddresses() : options.listen, options.tls );
      for ( const auto & address : server.addresses() ) spdlog::info( "listening on {}", address );
      const auto signal = waited( signals, engine );
      spdlog::info( "ending on {} of process {}", signal.si_signo == SIGINT ? "SIGINT" : "SIGTERM", signal.si_pid );
      return done;
   } catch ( const std::exception & error ) {
      std::cerr << "vexdp: " << error.what() << "\n";
      return failed;
   }
}

} // namespace

int main( int argc, char ** argv ) {
   Runtime::endWithoutMemory( "vexdp" );
   const pid_t parentAtStart = getppid();
   int exitCode = done;
   const auto options = parsed( argc, argv, exitCode );
   if ( !options ) return exitCode;
   logAt( options->logLevel );
   const auto signals = blockedSignals();
   // A log that nobody reads any more is no reason to end.
   signal( SIGPIPE, SIG_IGN );
   // A file over the limit of its size is one that there is no room for.
   signal( SIGXFSZ, SIG_IGN );
   if ( options->parent && !parentLives( *options->parent, parentAtStart ) ) {
      std::cerr << "vexdp: the parent process is gone\n";
      return failed;
   }
   return serve( *options, signals );
}
