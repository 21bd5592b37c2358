// Making a command's message. For sources only: it brings protobuf's headers.
#pragma once

#include "KynetAddr.h"
#include "KynetIntfId.h"
#include "VexModule.h"

#include <google/protobuf/arena.h>

namespace Vex {

// A message for a command that is queued in the same function.
template < typename Message >
Message * newMessage( const Module & module ) {
   return google::protobuf::Arena::CreateMessage< Message >( &module.moduleConfig()->arena() );
}

// Queues a command of the module that changes what becomes of packets.
inline void enqueueChange( const Module & module, std::string_view action, google::protobuf::Message * message ) {
   module.moduleConfig()->cmdBatchEnq( moduleCmdFactory( module.name(), action, message, true ) );
}
// Queues one that does not: a show, or the assignment of counters.
inline void enqueueAside( const Module & module, std::string_view action, google::protobuf::Message * message ) {
   module.moduleConfig()->cmdBatchEnq( moduleCmdFactory( module.name(), action, message, false ) );
}

inline std::string_view bytesOf( const Kynet::EthAddr & macAddr ) {
   return { reinterpret_cast< const char * >( macAddr.bytes().data() ), macAddr.bytes().size() };
}

// "NextHop_et1": the name of an interface's module.
inline Gant::String moduleName( const char * prefix, Kynet::IntfId intfId ) {
   Gant::String out = intfId.shortName();
   for ( auto & c : out ) c = static_cast< char >( std::tolower( c ) );
   return prefix + out;
}

} // namespace Vex
