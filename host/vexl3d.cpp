// vexl3d: the process that hosts the layer-3 agent.

#include "HostDaemon.h"
#include "HostLog.h"
#include "RuntimeMemory.h"

#include <csignal>
#include <iostream>
#include <spdlog/spdlog.h>

namespace {

enum ExitCode { done = 0, failed = 1, usage = 2 };

// Without a data plane: the state takes the sources or says what is wrong in them.
int checkConfig( const Host::Options & options ) {
   Host::RouterState state;
   state.keysRefusedIs( options.keysRefused() );
   Host::Sources sources( state, options.sources,
                          []( const auto & error ) { std::cerr << error.stringValue() << "\n"; } );
   sources.load();
   while ( sources.step( 1 << 20 ) ) {
   }
   const auto errors = sources.errors().count();
   const auto told = sources.errors().errors().size();
   if ( errors > told ) std::cerr << "and " << errors - told << " more\n";
   return errors == 0 ? done : failed;
}

int serve( const Host::Options & options ) {
   Host::logStart();
   for ( const auto & text : Host::logLevelsAre( options ) ) spdlog::warn( "{}", text );
   // A client that went is told by the write that fails.
   std::signal( SIGPIPE, SIG_IGN );
   Host::Daemon daemon( options );
   return daemon.run() ? done : failed;
}

} // namespace

int main( int argc, char ** argv ) {
   Runtime::endWithoutMemory( "vexl3d" );
   int exitCode = done;
   const auto options = Host::parsedOptions( argc, argv, exitCode );
   if ( !options ) return exitCode;
   return options->checkConfig ? checkConfig( *options ) : serve( *options );
}
