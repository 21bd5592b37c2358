#include "DpRequests.h"

#include "DpCleanse.h"
#include "DpRegistry.h"

#include <cassert>
#include <cctype>
#include <cerrno>

namespace Vexdp {

using google::protobuf::Message;

namespace {

constexpr std::size_t kLongestName = 255; // of a module

Outcome wrongType( std::string_view what, std::string_view type, const Message & wanted ) {
   return refuse( EINVAL, "{} is of type \"{}\" instead of {}", what, type, typeName( wanted ) );
}

Outcome notParsed( const Message & wanted ) { return refuse( EINVAL, "the bytes are no {}", typeName( wanted ) ); }

// The init message that a request carries; one that carries none means the empty one.
Outcome initOf( const bess::pb::CreateModuleRequest & request, Message & init ) {
   if ( !request.has_arg() ) return {};
   if ( typeName( request.arg() ) != typeName( init ) )
      return wrongType( "the init argument", typeName( request.arg() ), init );
   return init.ParseFromString( request.arg().value() ) ? Outcome() : notParsed( init );
}

} // namespace

Outcome Requests::create( const bess::pb::CreateModuleRequest & request, std::string & name ) {
   const auto * mclass = findModuleClass( request.mclass() );
   if ( mclass == nullptr ) return refuse( ENOENT, "there is no module class \"{}\"", request.mclass() );
   if ( request.name().size() > kLongestName )
      return refuse( EINVAL, "a name of {} bytes is longer than {}", request.name().size(), kLongestName );
   const std::unique_ptr< Message > init( mclass->init->New() );
   if ( auto out = initOf( request, *init ); !out.ok() ) return out;
   if ( auto out = mclass->check( *init ); !out.ok() ) return out;
   name = request.name().empty() ? madeUpName( *mclass ) : request.name();
   auto module = mclass->make( { name, *mclass, graph_ }, *init );
   if ( request.has_arg() ) module->initArgIs( request.arg() );
   return graph_.add( std::move( module ) );
}

std::string Requests::madeUpName( const ModuleClass & mclass ) {
   std::string stem = mclass.name;
   stem[ 0 ] = char( std::tolower( static_cast< unsigned char >( stem[ 0 ] ) ) );
   std::string name;
   do name = fmt::format( "{}{}", stem, namesMadeUp_++ );
   while ( graph_.find( name ) != nullptr );
   return name;
}

Outcome Requests::connect( const bess::pb::ConnectModulesRequest & request ) {
   return graph_.connect( request.m1(), request.ogate(), request.m2(), request.igate() );
}

Outcome Requests::disconnect( const bess::pb::DisconnectModulesRequest & request ) {
   return graph_.disconnect( request.name(), request.ogate() );
}

Outcome Requests::find( std::string_view name, std::string_view cmd, std::string_view type, Target & target ) const {
   auto * module = graph_.find( name );
   if ( module == nullptr ) return refuse( ENOENT, "no such module" );
   const auto * command = module->mclass().command( cmd );
   if ( command == nullptr ) return refuse( EOPNOTSUPP, "class {} has no such command", module->mclass().name );
   if ( type != typeName( *command->arg ) ) return wrongType( "the argument", type, *command->arg );
   target.module_ = module;
   target.command_ = command;
   return {};
}

void Requests::Target::read( const std::string & bytes ) {
   assert( read_ - run_ < kAhead );
   auto & arg = args_[ read_++ % kAhead ];
   if ( arg.message == nullptr ) arg.message.reset( command_->arg->New() );
   arg.parsed = arg.message->ParseFromString( bytes );
   if ( arg.parsed && command_->expect != nullptr ) command_->expect( *module_, *arg.message );
}

Outcome Requests::Target::run( Answer & answer ) {
   assert( run_ != read_ );
   const auto & arg = args_[ run_++ % kAhead ];
   if ( !arg.parsed ) return notParsed( *arg.message );
   auto out = command_->run( *module_, *arg.message, answer );
   cleanse( *arg.message );
   return out;
}

Subject Requests::subject( std::string_view name, std::string_view action ) const {
   const auto * module = graph_.find( name );
   return { name, module == nullptr ? std::string_view() : std::string_view( module->mclass().name ), action };
}

} // namespace Vexdp
