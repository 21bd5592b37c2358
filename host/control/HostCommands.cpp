#include "HostCommands.h"

#include "GantAssert.h"
#include "HostChangeCommands.h"
#include "HostShows.h"
#include "HostVerify.h"
#include "NearestWord.h"

namespace Host {

namespace {

std::string commandOf( const Json & request ) {
   if ( !request.is_object() ) throw CommandError( ErrorCode::usage, "a request is a JSON object" );
   const auto name = request.find( "command" );
   if ( name == request.end() || !name->is_string() )
      throw CommandError( ErrorCode::usage, "a request has the member \"command\", a text" );
   return name->get< std::string >();
}

bool fits( const Json & value, Parameter::Kind kind ) {
   switch ( kind ) {
   case Parameter::Kind::text: return value.is_string();
   case Parameter::Kind::number: return value.is_number_unsigned();
   case Parameter::Kind::flag: return value.is_boolean();
   case Parameter::Kind::named: return value.is_string() || value.is_number_unsigned();
   }
   return false;
}

const char * inWords( Parameter::Kind kind ) {
   switch ( kind ) {
   case Parameter::Kind::text: return "a text";
   case Parameter::Kind::number: return "a number from 0";
   case Parameter::Kind::flag: return "true or false";
   case Parameter::Kind::named: return "a number from 0, or a name";
   }
   return "";
}

void requireFitting( const Command & command, const Json & members ) {
   const auto usage = [ & ]( const std::string & why ) {
      throw CommandError( ErrorCode::usage, command.name + ": " + why );
   };
   for ( const auto & [ name, value ] : members.items() ) {
      const auto at = std::ranges::find_if( command.parameters,
                                            [ &wanted = name ]( const auto & p ) { return p.name == wanted; } );
      if ( at == command.parameters.end() ) usage( "there is no member \"" + name + "\"" );
      if ( !fits( value, at->kind ) ) usage( "the member \"" + name + "\" is " + inWords( at->kind ) );
   }
   for ( const auto & parameter : command.parameters )
      if ( parameter.required && !members.contains( parameter.name ) )
         usage( std::string( "the member \"" ) + parameter.name + "\" is missing" );
}

Json membersInWords( const Command & command ) {
   auto members = Json::array();
   for ( const auto & parameter : command.parameters )
      members.push_back( { { "member", parameter.name },
                           { "value", inWords( parameter.kind ) },
                           { "required", parameter.required } } );
   return members;
}

// What may be asked, for whoever writes a client.
Command helpOf( const Commands & commands ) {
   std::vector< Json > rows{ { { "command", "help" }, { "members", Json::array() } } };
   for ( const auto & command : commands )
      rows.push_back( { { "command", command.name }, { "members", membersInWords( command ) } } );
   return { "help", {}, [ rows = std::move( rows ) ]( const Asked & ) {
              return atOnce( [ rows ]( Output & out ) {
                 for ( const auto & row : rows ) out.row( row );
              } );
           } };
}

} // namespace

CommandTable::CommandTable( Commands commands ) {
   for ( auto & command : commands ) {
      const auto name = command.name;
      GANT_ASSERT( commands_.emplace( name, std::move( command ) ).second, name );
   }
}

CommandTable CommandTable::all() {
   Commands commands;
   for ( auto * const shows :
         { fibShows,        routeShows,   sourceShows,    adjacencyShows, interfaceShows, portShows,
           dropShows,       ipsecShows,   aclShows,       bridgingShows,  platformShows,  graphShows,
           summaryShows,    counterShows, requestShows,   loopShows,      traceShows,     packetCommands,
           captureCommands, whyCommands,  changeCommands, verifyCommands } )
      for ( auto & command : shows() ) commands.push_back( std::move( command ) );
   commands.push_back( helpOf( commands ) );
   return CommandTable( std::move( commands ) );
}

std::unique_ptr< Answer > CommandTable::answer( DaemonControl & daemon, const Json & request,
                                                std::function< void() > wake ) const {
   const auto name = commandOf( request );
   const auto at = commands_.find( name );
   if ( at == commands_.end() ) {
      std::vector< std::string > names;
      for ( const auto & [ known, command ] : commands_ ) names.push_back( known );
      throw CommandError( ErrorCode::usage,
                          "there is no command \"" + name + "\"" + Runtime::didYouMean( name, names ) );
   }
   auto members = request;
   members.erase( "command" );
   requireFitting( at->second, members );
   const Question question( std::move( members ) );
   return at->second.answer( { daemon, question, std::move( wake ) } );
}

} // namespace Host
