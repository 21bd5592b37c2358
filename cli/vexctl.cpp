// vexctl: asks and changes a running vexl3d.

#include "CtlAgentText.h"
#include "CtlChanges.h"
#include "CtlMonitor.h"
#include "CtlShows.h"
#include "NearestWord.h"
#include "RuntimeDirectory.h"

#include <cerrno>
#include <charconv>
#include <CLI/CLI.hpp>
#include <cstring>
#include <iostream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

using namespace Ctl;

// Where a daemon listens unless it is told. The first that is there, in a directory that no stranger writes to.
std::string defaultSocket() {
   const auto socketIn = []( const std::string & place ) { return place + "/vexl3d.sock"; };
   const auto places = Runtime::directories();
   for ( const auto & place : places )
      if ( Runtime::distrusted( place ).empty() && access( socketIn( place ).c_str(), F_OK ) == 0 )
         return socketIn( place );
   return socketIn( places.front() );
}

struct Options {
   bool json = false;
   Server server{ defaultSocket(), {} };
};

// Keeps the end of an answer that passes through.
class Remembering : public Answer {
 public:
   explicit Remembering( Answer & to ) : to_( to ) {}
   void row( const Json & row ) override { to_.row( row ); }
   void end( const Json & end ) override {
      end_ = end;
      to_.end( end );
   }
   void failed( const Error & error ) override { to_.failed( error ); }
   const Json & end() const { return end_; }

 private:
   Answer & to_;
   Json end_;
};

int converse( const Options & options, const Json & request, View & view,
              const std::function< int( const Json & end ) > & exitCode = {} ) {
   Remembering remembering( view );
   AgentTextAnswer answer( remembering );
   ask( options.server, request, answer );
   std::cout.flush();
   if ( view.exitCode() != ExitCode::done || !exitCode ) return view.exitCode();
   return exitCode( remembering.end() );
}

// A usage error is an answer too.
int refused( const Options & options, const std::string & command, const Error & error ) {
   if ( options.json ) {
      JsonView view( command, false, std::cout );
      view.failed( error );
      return view.exitCode();
   }
   std::cerr << "vexctl: " << error.message << '\n';
   return error.exitCode();
}

// In characters; 0: the output goes to no terminal.
size_t terminalWidth() {
   winsize size{};
   return ioctl( STDOUT_FILENO, TIOCGWINSZ, &size ) == 0 ? size.ws_col : 0;
}

// A show on the command line: what was given for it, until the line is read whole.
class ShowCommand {
 public:
   ShowCommand( const Show & show, CLI::App & parent, const std::string & word ) :
        show_( show ), app_( *parent.add_subcommand( word, show.help ) ) {
      if ( !show.words.empty() ) app_.add_option( "words", words_, wordsInHelp() )->type_name( "" );
      for ( const auto & option : show.options ) add( option );
      for ( const auto & option : show.viewOptions ) add( option );
   }
   bool given() const { return app_.parsed(); }

   int run( const Options & options ) const {
      try {
         const auto view = viewOf( options );
         return converse( options, request(), *view, show_.exitCode );
      } catch ( const Error & error ) {
         return refused( options, show_.command, error );
      }
   }

 private:
   std::string wordsInHelp() const {
      std::string help;
      for ( const auto & word : show_.words )
         help += ( help.empty() ? "[" : " [" ) + ( word.keyword.empty() ? "" : word.keyword + " " ) + word.help + "]";
      return help;
   }
   void add( const Option & option ) {
      switch ( option.kind ) {
      case Option::Kind::flag: app_.add_flag( option.name, flags_[ option.name ], option.help ); break;
      case Option::Kind::number:
         app_.add_option( option.name, numbers_[ option.name ], option.help )
              ->check( []( const std::string & word ) {
                 return word.starts_with( '-' ) ? word + " is no number from 0" : std::string();
              } )
              ->type_name( "N" );
         break;
      case Option::Kind::named:
         app_.add_option( option.name, texts_[ option.name ], option.help )->type_name( "N|NAME" );
         break;
      case Option::Kind::text:
         app_.add_option( option.name, texts_[ option.name ], option.help )
              ->type_name( "TEXT" )
              ->required( option.required );
         break;
      }
   }

   Json request() const {
      Json request{ { "command", show_.command } };
      const auto members = membersOf( show_.words, words_ );
      for ( const auto & [ member, value ] : members.items() )
         request[ member ] = member == "level" ? Json( levelOf( value ) ) : value;
      for ( const auto & option : show_.options ) {
         if ( app_.count( option.name ) == 0 ) continue;
         switch ( option.kind ) {
         case Option::Kind::flag: request[ option.member ] = flags_.at( option.name ); break;
         case Option::Kind::number: request[ option.member ] = numbers_.at( option.name ); break;
         case Option::Kind::text: request[ option.member ] = texts_.at( option.name ); break;
         case Option::Kind::named: request[ option.member ] = numberOrName( texts_.at( option.name ) ); break;
         }
      }
      return request;
   }
   static Json numberOrName( const std::string & word ) {
      std::uint64_t number = 0;
      const auto [ end, error ] = std::from_chars( word.data(), word.data() + word.size(), number );
      if ( error != std::errc() || end != word.data() + word.size() ) return word;
      return number;
   }
   static std::uint64_t levelOf( const std::string & word ) {
      if ( word.empty() || word.size() > 3 || word.find_first_not_of( "0123456789" ) != std::string::npos )
         throw Error{ "usage", "\"" + word + "\" is no level: 0 to 9" };
      return std::stoull( word );
   }

   std::unique_ptr< View > viewOf( const Options & options ) const {
      if ( options.json ) return std::make_unique< JsonView >( show_.command, show_.record, std::cout );
      Given given;
      for ( const auto & option : show_.viewOptions )
         if ( app_.count( option.name ) != 0 )
            given[ option.name ] = option.kind == Option::Kind::text ? texts_.at( option.name ) : std::string();
      if ( show_.view ) return show_.view( given, std::cout );
      if ( show_.record ) return std::make_unique< RecordView >( show_.columns, std::cout );
      return std::make_unique< TableView >( show_.columns, show_.footer, std::cout, terminalWidth() );
   }

   const Show show_;
   CLI::App & app_;
   std::vector< std::string > words_;
   std::map< std::string, bool > flags_;
   std::map< std::string, std::uint64_t > numbers_;
   std::map< std::string, std::string > texts_;
};

// vexctl KIND add|replace|del WORDS
class ChangeCommand {
 public:
   ChangeCommand( const Kind & kind, CLI::App & app ) :
        kind_( kind ), app_( *app.add_subcommand( kind.name, "change " + kind.help ) ) {
      app_.require_subcommand( 1 );
      add( "add", "add " + kind.help + " that is not there" );
      add( "replace", "make " + kind.help + " as given, there or not" );
      add( "del", "remove " + kind.help );
   }
   bool given() const { return app_.parsed(); }
   int run( const Options & options ) const {
      const auto op = app_.get_subcommands().front()->get_name();
      try {
         const auto entry = op == "del" ? kind_.keyOf( words_ ) : kind_.entryOf( words_ );
         const Json request{ { "command", op }, { "kind", kind_.name }, { "entry", entry.dump() } };
         return changed( options, request );
      } catch ( const Error & error ) {
         return refused( options, op, error );
      }
   }
   static int changed( const Options & options, const Json & request ) {
      if ( options.json ) {
         JsonView view( request.at( "command" ).get< std::string >(), false, std::cout );
         return converse( options, request, view );
      }
      QuietView view( std::cout );
      return converse( options, request, view );
   }

 private:
   void add( const std::string & op, const std::string & help ) {
      app_.add_subcommand( op, help )->add_option( "words", words_, kind_.words )->type_name( "" )->required();
   }

   const Kind & kind_;
   CLI::App & app_;
   std::vector< std::string > words_;
};

// vexctl entry add|replace|del KIND TEXT: any kind, in the description's own words.
class EntryCommand {
 public:
   explicit EntryCommand( CLI::App & app ) :
        app_( *app.add_subcommand( "entry", "change an object of any kind by an entry of the description" ) ) {
      app_.require_subcommand( 1 );
      for ( const auto * op : { "add", "replace", "del" } ) {
         auto & change = *app_.add_subcommand( op, std::string( op ) + " an entry" );
         change.add_option( "kind", kind_, "such as route" )->required();
         change.add_option( "entry", entry_, "YAML or JSON" )->required();
      }
   }
   bool given() const { return app_.parsed(); }
   int run( const Options & options ) const {
      const auto op = app_.get_subcommands().front()->get_name();
      return ChangeCommand::changed( options, { { "command", op }, { "kind", kind_ }, { "entry", entry_ } } );
   }

 private:
   CLI::App & app_;
   std::string kind_, entry_;
};

// vexctl monitor [ports|modules|drops]
class MonitorCommand {
 public:
   explicit MonitorCommand( CLI::App & app ) :
        app_( *app.add_subcommand( "monitor", "a screen once a second, until ^C: ports, unless another is named" ) ),
        all_( monitored() ) {
      app_.require_subcommand( 0, 1 );
      app_.add_option( "--count", options_.count, "end after so many" )->type_name( "N" );
      app_.add_option( "--every", options_.every, "between two screens, at least 0.1" )
           ->type_name( "SECONDS" )
           ->check( CLI::Range( 0.1, 3600.0 ) );
      for ( const auto & what : all_ ) app_.add_subcommand( what.name, what.help );
   }
   bool given() const { return app_.parsed(); }
   int run( const Options & options ) const {
      auto how = options_;
      how.json = options.json;
      const auto given = app_.get_subcommands();
      const auto name = given.empty() ? all_.front().name : given.front()->get_name();
      return monitor( *std::ranges::find( all_, name, &Monitored::name ), options.server, how );
   }

 private:
   CLI::App & app_;
   const std::vector< Monitored > all_;
   MonitorOptions options_;
};

class Program {
 public:
   Program() : app_( "Asks and changes a running vexl3d.", "vexctl" ) {
      app_.set_version_flag( "--version", "vexctl " VEXL3_VERSION );
      app_.set_help_all_flag( "--help-all", "the help of every command" );
      app_.add_flag( "--json", options_.json, "one JSON document" );
      app_.add_option( "--socket", options_.server.socket, "the daemon's command socket" )
           ->envname( "VEXL3D_SOCKET" )
           ->capture_default_str()
           ->take_last()
           ->type_name( "PATH" );
      app_.add_option( "--daemon-user", options_.server.user, "the user that the daemon runs as, if not you or root" )
           ->type_name( "UID" );
      app_.footer( "Exit codes: 0 done, 1 refused or different, 2 usage, 3 not found, 4 no daemon." );
      app_.require_subcommand( 1 );
      app_.fallthrough();
      for ( const auto & show : shows() ) addShow( show );
      for ( const auto & kind : kinds() ) changes_.push_back( std::make_unique< ChangeCommand >( kind, app_ ) );
      entry_ = std::make_unique< EntryCommand >( app_ );
      monitor_ = std::make_unique< MonitorCommand >( app_ );
      reload_ = app_.add_subcommand( "reload", "have the daemon read its sources again" );
   }

   int run( int argc, char ** argv ) {
      try {
         app_.parse( argc, argv );
      } catch ( const CLI::ParseError & error ) {
         return notParsed( error, argc, argv );
      }
      for ( const auto & show : shows_ )
         if ( show->given() ) return show->run( options_ );
      for ( const auto & change : changes_ )
         if ( change->given() ) return change->run( options_ );
      if ( entry_->given() ) return entry_->run( options_ );
      if ( monitor_->given() ) return monitor_->run( options_ );
      return ChangeCommand::changed( options_, { { "command", "reload" } } );
   }

 private:
   // "show fib" is the command fib of the command show, "show ipsec sas" the command sas of its command ipsec.
   void addShow( const Show & show ) {
      auto * parent = &app_;
      size_t begin = 0;
      for ( auto blank = show.command.find( ' ' ); blank != std::string::npos;
            blank = show.command.find( ' ', begin ) ) {
         parent = groupOf( show.command.substr( 0, blank ), show.command.substr( begin, blank - begin ), *parent );
         begin = blank + 1;
      }
      shows_.push_back( std::make_unique< ShowCommand >( show, *parent, show.command.substr( begin ) ) );
   }
   CLI::App * groupOf( const std::string & words, const std::string & name, CLI::App & parent ) {
      auto & group = groups_[ words ];
      if ( group != nullptr ) return group;
      group = parent.add_subcommand( name, words == "show"    ? "show what there is"
                                           : words == "trace" ? "traces"
                                                              : "show what there is of " + name );
      group->require_subcommand( 1 );
      return group;
   }

   // Help and version are no errors.
   int notParsed( const CLI::ParseError & error, int argc, char ** argv ) {
      if ( error.get_exit_code() == 0 ) return app_.exit( error );
      options_.json = std::find_if( argv, argv + argc, []( const std::string & word ) { return word == "--json"; } ) !=
                      argv + argc;
      return refused( options_, "", { "usage", error.what() + unknownWord() + " (see vexctl --help)" } );
   }
   // ": "fbi", did you mean "fib"?", of the first word behind the command that was understood last.
   std::string unknownWord() const {
      const CLI::App * at = &app_;
      while ( !at->get_subcommands().empty() ) at = at->get_subcommands().front();
      std::vector< std::string > words;
      for ( const auto * const known : at->get_subcommands( []( const CLI::App * ) { return true; } ) )
         words.push_back( known->get_name() );
      const auto rest = app_.remaining( true );
      if ( words.empty() || rest.empty() ) return {};
      // It is known, and would stand behind another word.
      if ( std::ranges::count( words, rest.front() ) != 0 )
         return ": before \"" + rest.front() + "\" comes what it is about";
      return ": \"" + rest.front() + "\"" + Runtime::didYouMean( rest.front(), words );
   }

   CLI::App app_;
   Options options_;
   std::map< std::string, CLI::App * > groups_;
   std::vector< std::unique_ptr< ShowCommand > > shows_;
   std::vector< std::unique_ptr< ChangeCommand > > changes_;
   std::unique_ptr< EntryCommand > entry_;
   std::unique_ptr< MonitorCommand > monitor_;
   CLI::App * reload_ = nullptr;
};

} // namespace

int main( int argc, char ** argv ) {
   std::ios::sync_with_stdio( false );
   const int code = Program().run( argc, argv );
   std::cout.flush();
   if ( std::cout ) return code;
   std::cerr << "vexctl: the output could not be written: " << std::strerror( errno ) << '\n';
   return code == ExitCode::done ? ExitCode::refused : code;
}
