// The description of a module class: its name, gates, init message and commands. Whatever the control API says of a
// class is read from it, and every request to a module of the class is checked against it.
//
// A class T describes itself in `static const ModuleClass & T::moduleClass()`:
//
//    static const ModuleClass self = describe< NhResolve, vex::pb::NhResolveArg >(
//         "NhResolve", "maps an index to a gate and a next hop", { .igates = 1, .ogates = kMaxGates },
//         { command< &NhResolve::addEntry >( "addNhResolveEntry" ) } );
//
// T has `static Outcome check( const Init & )` and the constructor `T( Identity, const Init & )`, which is called with
// a message that check() has passed.
#pragma once

#include "DpModule.h"

#include <memory>
#include <string>
#include <vector>

namespace Vexdp {

struct GateLimits {
   GateId igates;
   GateId ogates;
};

// What a command answers with: null for most.
using Answer = std::unique_ptr< google::protobuf::Any >;

struct Command {
   std::string name;
   const google::protobuf::Message * arg; // prototype of the message that it takes
   // REQUIRES: the module is of the command's class, and the message of the prototype's type
   Outcome ( *run )( Module & module, const google::protobuf::Message & arg, Answer & answer );
   // The message is to be run soon: the module may have memory fetched that it will need. Null for most.
   void ( *expect )( const Module & module, const google::protobuf::Message & arg ) = nullptr;
};

struct ModuleClass {
   std::string name;
   std::string help;
   GateLimits gates;
   const google::protobuf::Message * init; // prototype of the init message
   Outcome ( *check )( const google::protobuf::Message & init );
   // REQUIRES: check( init ) is ok
   std::unique_ptr< Module > ( *make )( Module::Identity identity, const google::protobuf::Message & init );
   std::vector< Command > commands;
   // Other modules look its module up: a graph has at most one, and a dump tells its commands before the others'.
   bool shared = false;
   // Its module gets what is punted by a gate that leads nowhere.
   bool trap = false;

   // Null when there is none of the name.
   const Command * command( std::string_view name ) const;
};

template < class T, class Init >
ModuleClass describe( std::string name, std::string help, GateLimits gates, std::vector< Command > commands ) {
   using google::protobuf::Message;
   return { std::move( name ),
            std::move( help ),
            gates,
            &Init::default_instance(),
            []( const Message & init ) { return T::check( static_cast< const Init & >( init ) ); },
            []( Module::Identity identity, const Message & init ) -> std::unique_ptr< Module > {
               return std::make_unique< T >( std::move( identity ), static_cast< const Init & >( init ) );
            },
            std::move( commands ) };
}

// The same class, shared.
inline ModuleClass shared( ModuleClass mclass ) {
   mclass.shared = true;
   return mclass;
}

inline ModuleClass trapping( ModuleClass mclass ) {
   mclass.trap = true;
   return mclass;
}

namespace Detail {

template < typename Handler >
struct CommandOf;

template < class T, class Arg >
struct CommandOf< Outcome ( T::* )( const Arg & ) > {
   using ArgType = Arg;
   template < auto handler >
   static Outcome run( Module & module, const google::protobuf::Message & arg, Answer & ) {
      return ( static_cast< T & >( module ).*handler )( static_cast< const Arg & >( arg ) );
   }
};

template < class T, class Arg, class Reply >
struct CommandOf< Outcome ( T::* )( const Arg &, Reply & ) const > {
   using ArgType = Arg;
   template < auto handler >
   static Outcome run( Module & module, const google::protobuf::Message & arg, Answer & answer ) {
      Reply reply;
      auto outcome = ( static_cast< const T & >( module ).*handler )( static_cast< const Arg & >( arg ), reply );
      if ( !outcome.ok() ) return outcome;
      answer = std::make_unique< google::protobuf::Any >();
      answer->PackFrom( reply );
      return outcome;
   }
};

template < typename Handler >
struct ExpectingOf;

template < class T, class Arg >
struct ExpectingOf< void ( T::* )( const Arg & ) const > {
   template < auto handler >
   static void expect( const Module & module, const google::protobuf::Message & arg ) {
      ( static_cast< const T & >( module ).*handler )( static_cast< const Arg & >( arg ) );
   }
};

} // namespace Detail

// A command that the member function `handler` carries out: `Outcome T::f( const Arg & )`, or, where it answers,
// `Outcome T::f( const Arg &, Reply & ) const`.
template < auto handler >
Command command( std::string name ) {
   using Of = Detail::CommandOf< decltype( handler ) >;
   return { std::move( name ), &Of::ArgType::default_instance(), &Of::template run< handler > };
}

// The same, where `void T::g( const Arg & ) const` is told of each message before its turn.
template < auto handler, auto expecting >
Command command( std::string name ) {
   auto made = command< handler >( std::move( name ) );
   made.expect = &Detail::ExpectingOf< decltype( expecting ) >::template expect< expecting >;
   return made;
}

// Full name of a message's type, such as "vex.pb.FibIpv4RouteArg".
const std::string & typeName( const google::protobuf::Message & message );
// Full name of the type that the message holds.
std::string_view typeName( const google::protobuf::Any & any );

} // namespace Vexdp
