#include "RecordingChannel.h"

#include "VexDescribe.h"

#include <algorithm>
#include <sstream>

namespace Test {

Lines lines( const char * block ) {
   Lines out;
   std::istringstream in( block );
   for ( std::string line; std::getline( in, line ); ) {
      const auto begin = line.find_first_not_of( ' ' );
      if ( begin != line.npos ) out.push_back( line.substr( begin, line.find_last_not_of( ' ' ) + 1 - begin ) );
   }
   return out;
}

namespace {

// With a blank before it, unless there is nothing to say.
Gant::String argumentsOf( const google::protobuf::Message & message ) {
   const auto text = Vex::describe( message );
   return text.empty() ? text : " " + text;
}

} // namespace

void RecordingChannel::add( OriginId, Gant::String line, bool changesForwarding ) {
   lines_.push_back( std::move( line ) );
   requestQueued( changesForwarding );
}

void RecordingChannel::createModule( OriginId origin, const Gant::String & name, const char * moduleClass,
                                     const Message * initArgs ) {
   const auto arguments = initArgs == nullptr ? Gant::String() : argumentsOf( *initArgs );
   add( origin, "create " + name + " " + moduleClass + arguments, true );
}

void RecordingChannel::destroyModule( OriginId origin, const Gant::String & name ) {
   add( origin, "destroy " + name, true );
}

void RecordingChannel::connectModules( OriginId origin, const Gant::String & from, Vex::GateId outGate,
                                       const Gant::String & to, Vex::GateId inGate ) {
   add( origin, Gant::textsOf( "connect ", from, ":", outGate, " -> ", to, ":", inGate ), true );
}

void RecordingChannel::disconnectModules( OriginId origin, const Gant::String & from, Vex::GateId outGate ) {
   add( origin, Gant::textsOf( "disconnect ", from, ":", outGate ), true );
}

void RecordingChannel::command( OriginId origin, std::string_view module, std::string_view action,
                                const Message & message, bool changesForwarding ) {
   add( origin, Gant::textsOf( module, " ", action, argumentsOf( message ) ), changesForwarding );
}

Lines RecordingChannel::takeOf( std::initializer_list< std::string_view > words ) {
   auto all = take();
   std::erase_if( all, [ & ]( const Gant::String & line ) {
      return std::ranges::none_of( words, [ & ]( std::string_view word ) { return line.starts_with( word ); } );
   } );
   return all;
}

} // namespace Test
