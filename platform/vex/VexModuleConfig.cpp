#include "VexModuleConfig.h"

#include <google/protobuf/any.pb.h>
#include <google/protobuf/message.h>

namespace Vex {

ModuleCmdBase::ModuleCmdBase( std::string_view moduleName, std::string_view cmdAction, Message * message,
                              bool changesForwarding ) :
     moduleName_( moduleName ),
     cmdAction_( cmdAction ), message_( message ), owned_( message->GetArena() == nullptr ),
     changesForwarding_( changesForwarding ) {}

// Queuing may have reset the arena, so the message is not asked again.
ModuleCmdBase::~ModuleCmdBase() {
   if ( owned_ ) delete message_;
}

void ModuleConfig::moduleDel( const Gant::String & name, const Module * module ) {
   const auto at = modules_.find( name );
   if ( at != modules_.end() && at->second == module ) modules_.erase( at );
}

ModuleResponseEvent::ModuleResponseEvent( std::unique_ptr< google::protobuf::Any > response ) :
     response_( std::move( response ) ) {}
ModuleResponseEvent::~ModuleResponseEvent() = default;

void ModuleStatus::responseQueueEnq( Gant::Ptr< ModuleResponseEvent > event ) {
   responseQueue_.push_back( std::move( event ) );
   notifiees_.tell( &Notifiee::onResponseQueue );
}

void ModuleStatus::errorQueueEnq( Gant::Ptr< ModuleErrorEvent > event ) {
   errorQueue_.push_back( std::move( event ) );
   notifiees_.tell( &Notifiee::onErrorQueue );
}

namespace {

template < typename Event >
Gant::Ptr< Event > oldest( std::deque< Gant::Ptr< Event > > & queue ) {
   if ( queue.empty() ) return nullptr;
   auto event = std::move( queue.front() );
   queue.pop_front();
   return event;
}

} // namespace

Gant::Ptr< ModuleResponseEvent > ModuleStatus::responseQueueDeq() { return oldest( responseQueue_ ); }

Gant::Ptr< ModuleErrorEvent > ModuleStatus::errorQueueDeq() { return oldest( errorQueue_ ); }

// NOLINTNEXTLINE(performance-unnecessary-value-param): it is used twice in one expression
ModuleConfigStatusPair::ModuleConfigStatusPair( Gant::Name name, Gant::Ptr< Channel > channel ) :
     name_( std::move( name ) ), moduleConfig_( Gant::make< ModuleConfig >( channel, channel->originAdd( this ) ) ),
     moduleStatus_( Gant::make< ModuleStatus >() ) {}

ModuleConfigStatusPair::~ModuleConfigStatusPair() { moduleConfig_->channel()->originDel( moduleConfig_->origin() ); }

void ModuleConfigStatusPair::response( const google::protobuf::Any & data ) {
   moduleStatus_->responseQueueEnq(
        Gant::make< ModuleResponseEvent >( std::make_unique< google::protobuf::Any >( data ) ) );
}

void ModuleConfigStatusPair::refused( const Refusal & refusal ) {
   if ( !moduleConfig_->errorHandlingEnabled() ) return;
   moduleStatus_->errorQueueEnq( Gant::make< ModuleErrorEvent >( refusal ) );
}

Gant::Ptr< ModuleConfigStatusPair > ModuleGlobalCmdConfig::moduleConfigStatusPairIs( const Gant::Name & name ) {
   auto & pair = pairs_[ name ];
   if ( !pair ) pair = Gant::make< ModuleConfigStatusPair >( name, channel_ );
   return pair;
}

} // namespace Vex
