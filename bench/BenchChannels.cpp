#include "BenchChannels.h"

#include <google/protobuf/message.h>

namespace Bench {

const Vex::Channel::Message * KeepingChannel::copy( const Message & message ) {
   auto * const copied = message.New( &copies_ );
   copied->CopyFrom( message );
   return copied;
}

void KeepingChannel::keep( Other other ) {
   commands_.push_back( { {}, {}, nullptr, true, std::uint32_t( others_.size() ) } );
   others_.push_back( std::move( other ) );
   requestQueued( true );
}

void KeepingChannel::createModule( OriginId, const Gant::String & name, const char * moduleClass,
                                   const Message * initArgs ) {
   const auto * const arguments = initArgs == nullptr ? nullptr : copy( *initArgs );
   keep( [ name, moduleClass = std::string( moduleClass ), arguments ]( Channel & channel, OriginId origin ) {
      channel.createModule( origin, name, moduleClass.c_str(), arguments );
   } );
}

void KeepingChannel::destroyModule( OriginId, const Gant::String & name ) {
   keep( [ name ]( Channel & channel, OriginId origin ) { channel.destroyModule( origin, name ); } );
}

void KeepingChannel::connectModules( OriginId, const Gant::String & from, Vex::GateId outGate, const Gant::String & to,
                                     Vex::GateId inGate ) {
   keep( [ = ]( Channel & channel, OriginId origin ) { channel.connectModules( origin, from, outGate, to, inGate ); } );
}

void KeepingChannel::disconnectModules( OriginId, const Gant::String & from, Vex::GateId outGate ) {
   keep( [ = ]( Channel & channel, OriginId origin ) { channel.disconnectModules( origin, from, outGate ); } );
}

void KeepingChannel::command( OriginId, std::string_view module, std::string_view action, const Message & message,
                              bool changesForwarding ) {
   commands_.push_back( { name( module ), name( action ), copy( message ), changesForwarding, 0 } );
   requestQueued( changesForwarding );
   if ( requestsQueued() % 4096 == 0 ) made_.Reset();
}

void KeepingChannel::repeat( std::size_t index, Vex::Channel & channel, OriginId origin ) const {
   const auto & kept = commands_[ index ];
   if ( kept.message == nullptr )
      others_[ kept.other ]( channel, origin );
   else
      channel.command( origin, kept.module, kept.action, *kept.message, kept.changesForwarding );
}

} // namespace Bench
