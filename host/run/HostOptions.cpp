#include "HostOptions.h"

#include "HostMetrics.h"
#include "RuntimeDirectory.h"

#include <charconv>
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <unistd.h>

namespace Host {

namespace {

// "UNIT=LEVEL". The reason when it is not.
std::string parseUnitLevel( const std::string & text, UnitLevel & level ) {
   const auto equals = text.rfind( '=' );
   if ( equals == 0 || equals == std::string::npos ) return "\"" + text + "\" is not UNIT=LEVEL";
   level.unit = text.substr( 0, equals );
   const char * const end = text.data() + text.size();
   const auto [ at, error ] = std::from_chars( text.data() + equals + 1, end, level.level );
   if ( error != std::errc() || at != end || level.level < 0 || level.level > 9 )
      return "the level of \"" + text + "\" is not a number from 0 to 9";
   return {};
}

std::string checkUnitLevel( const std::string & text ) {
   UnitLevel level;
   return parseUnitLevel( text, level );
}

std::vector< UnitLevel > unitLevels( const std::vector< std::string > & texts ) {
   std::vector< UnitLevel > levels( texts.size() );
   for ( size_t at = 0; at < texts.size(); ++at ) parseUnitLevel( texts[ at ], levels[ at ] );
   return levels;
}

std::string checkDataPlane( const std::string & text ) {
   if ( text == "embedded" || ( text.starts_with( "unix:" ) && text.size() > 5 ) ) return {};
   const auto colon = text.rfind( ':' );
   const bool hostAndPort = colon != std::string::npos && colon != 0 && colon + 1 != text.size() &&
                            text.find_first_not_of( "0123456789", colon + 1 ) == std::string::npos;
   return hostAndPort ? "" : "\"" + text + "\" is not embedded, unix:PATH or HOST:PORT";
}

bool isTcp( const std::string & dataPlane ) { return dataPlane != "embedded" && !dataPlane.starts_with( "unix:" ); }

// What is wrong with the options together.
std::string wrongTogether( const Supervisor::Config & config ) {
   const bool insecure = config.insecureTcp;
   const auto & tls = config.tls;
   if ( !tls.none() && !tls.all() ) return "--tls-cert, --tls-key and --tls-ca are given together";
   if ( insecure && !tls.none() ) return "--insecure-tcp is for a connection without TLS";
   if ( isTcp( config.dataPlane ) && !insecure && tls.none() )
      return "--dataplane HOST:PORT takes --tls-cert, --tls-key and --tls-ca, or --insecure-tcp";
   if ( !isTcp( config.dataPlane ) && ( insecure || !tls.none() ) )
      return "--insecure-tcp and TLS are for --dataplane HOST:PORT";
   return {};
}

} // namespace

std::string Options::keysRefused() const {
   if ( !isTcp( dataPlane.dataPlane ) || !dataPlane.tls.none() ) return {};
   return "no key leaves this machine: the data plane at " + dataPlane.dataPlane + " is reached without TLS";
}

std::string defaultSocket() { return Runtime::directory() + "/vexl3d.sock"; }

std::optional< Options > parsedOptions( int argc, char ** argv, int & exitCode ) {
   Options options;
   options.socket = defaultSocket();
   std::vector< std::string > log, trace;
   std::string fpm = "127.0.0.1:2620";
   CLI::App app( "The daemon around the layer-3 agent: tells it the router's state, and keeps its data plane." );
   app.set_version_flag( "--version", "vexl3d " VEXL3_VERSION );
   app.add_option( "-c,--config", options.sources.description, "the router description, YAML" )->type_name( "FILE" );
   app.add_option( "-r,--routes", options.sources.routes, "a plain route file, in place of the description's" )
        ->type_name( "FILE" );
   app.add_option( "-d,--dataplane", options.dataPlane.dataPlane, "embedded, unix:PATH or HOST:PORT" )
        ->type_name( "WHERE" )
        ->capture_default_str()
        ->check( checkDataPlane );
   app.add_flag( "--insecure-tcp", options.dataPlane.insecureTcp,
                 "to HOST:PORT without TLS: whoever is on the way reads and changes everything, so no keys" );
   auto & tls = options.dataPlane.tls;
   app.add_option( "--tls-cert", tls.certificate, "to HOST:PORT by TLS: this side's certificate, PEM" )
        ->type_name( "FILE" )
        ->check( CLI::ExistingFile.description( "" ) );
   app.add_option( "--tls-key", tls.key, "its key" )->type_name( "FILE" )->check( CLI::ExistingFile.description( "" ) );
   app.add_option( "--tls-ca", tls.authority, "who signs the data plane's" )
        ->type_name( "FILE" )
        ->check( CLI::ExistingFile.description( "" ) );
   app.add_option( "--dataplane-timeout", options.dataPlane.silenceMost,
                   "seconds of silence after which the data plane is lost; 0: it never is" )
        ->type_name( "SECONDS" )
        ->capture_default_str()
        ->check( CLI::Range( 0.0, 3600.0 ).description( "" ) )
        ->check( []( const std::string & text ) {
           const double seconds = std::atof( text.c_str() );
           return seconds > 0 && seconds < 0.1 ? "under 0.1 s a peer that works looks like one that is gone" : "";
        } );
   app.add_option(
           "--in-step-limit", options.dataPlane.inStepMost,
           "seconds for which a data plane that lives on forwards as before, while the kernel and a routing suite tell "
           "what they have; 0: until the files are read" )
        ->type_name( "SECONDS" )
        ->capture_default_str()
        ->check( CLI::Range( 0.0, 86400.0 ).description( "" ) );
   app.add_option( "--dataplane-program", options.dataPlane.program,
                   "the program of an embedded data plane, in place of the vexdp beside this one" )
        ->type_name( "FILE" );
   app.add_option( "--dataplane-log", options.dataPlane.dataPlaneLog, "what an embedded data plane logs" )
        ->type_name( "LEVEL" )
        ->capture_default_str()
        ->check( CLI::IsMember( { "debug", "info", "warning", "error", "off" } ) );
   app.add_flag( "--takeover", options.dataPlane.takeOver,
                 "take the data plane from another daemon that has it, which stands by then" );
   app.add_option( "--max-routes", options.dataPlane.maxRoutes, "routes that an embedded data plane holds" )
        ->type_name( "N" )
        ->capture_default_str()
        ->check( CLI::Range( 1u, ( 1u << 23 ) - 1 ) );
   app.add_option( "--workers", options.dataPlane.workers, "threads of an embedded data plane that move packets" )
        ->type_name( "N" )
        ->capture_default_str()
        ->check( CLI::Range( 1u, 64u ) );
   app.add_option( "-s,--socket", options.socket, "the command socket" )->type_name( "PATH" )->capture_default_str();
   app.add_option( "--metrics", options.metrics, "serve metrics for Prometheus at this address, under /metrics" )
        ->type_name( "ADDRESS:PORT" )
        ->check( wrongMetricsAddress );
   app.add_option( "--fpm", fpm, "where FRR's zebra connects to tell its routes (-M dplane_fpm_nl); off: nowhere" )
        ->type_name( "ADDRESS:PORT|off" )
        ->capture_default_str()
        ->check( []( const std::string & text ) {
           FpmServer::Config config;
           return parseFpm( text, config );
        } );
   app.add_option( "--source-quiet", options.sourceQuiet,
                   "seconds in which a source that was lost and is back tells nothing new, after which what it has not "
                   "told again is removed" )
        ->type_name( "SECONDS" )
        ->capture_default_str()
        ->check( CLI::Range( 0.0, 86400.0 ).description( "" ) );
   app.add_option(
           "--receive-buffer", options.fpm.receiveBuffer,
           "what waits in the system before it is read, of FPM and of the kernel's notifications; without it the "
           "system's choice and 4 MB" )
        ->type_name( "BYTES" )
        ->check( CLI::Range( 2048, 1 << 30 ).description( "" ) );
   app.add_option( "--log", log, "log the traces of a unit up to a level from 0 to 9; * is every unit" )
        ->type_name( "UNIT=LEVEL" )
        ->check( checkUnitLevel );
   app.add_option( "--trace", trace, "keep the traces of a unit up to a level from 0 to 9 in the ring" )
        ->type_name( "UNIT=LEVEL" )
        ->check( checkUnitLevel );
   app.add_flag( "--check-config", options.checkConfig, "read the sources, say what is wrong in them, and end" );
   app.footer( "Exit codes: 0 done, 1 a source is wrong (--check-config) or the daemon cannot run, 2 a wrong line." );
   try {
      app.parse( argc, argv );
      if ( const auto wrong = wrongTogether( options.dataPlane ); !wrong.empty() ) throw CLI::ValidationError( wrong );
   } catch ( const CLI::ParseError & error ) {
      exitCode = app.exit( error ) == 0 ? 0 : 2;
      return std::nullopt;
   }
   parseFpm( fpm, options.fpm );
   options.log = unitLevels( log );
   options.trace = unitLevels( trace );
   return options;
}

} // namespace Host
