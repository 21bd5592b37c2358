#include "VexChannel.h"

#include "GantTrace.h"

namespace Vex {

static Gant::TraceHandle traceHandle( "VexChannel" );

Channel::OriginId Channel::originAdd( Origin * origin ) {
   origins_.push_back( origin );
   return static_cast< OriginId >( origins_.size() - 1 );
}

void Channel::originDel( OriginId id ) { origins_[ id ] = nullptr; }

void Channel::responseIs( OriginId id, const google::protobuf::Any & data ) {
   if ( auto * const to = origin( id ) ) to->response( data );
}

void Channel::refusedIs( U64 number, S32 code, std::string_view text ) {
   ++requestsRefused_;
   progress_->refusedIs( number, code, text );
}

void Channel::refusalIs( OriginId id, Refusal refusal ) {
   if ( refusals_.size() == refusalsKept ) refusals_.pop_front();
   refusals_.push_back( std::move( refusal ) );
   const auto & kept = refusals_.back();
   if ( auto * const to = origin( id ) ) to->refused( kept );
   notifiees_.tell( &Notifiee::onRefusal, kept );
}

bool Channel::wantsRefusals( OriginId id ) const {
   const auto * const to = origin( id );
   return to != nullptr && to->wantsRefusals();
}

void Channel::acknowledgedIs( U64 requests ) {
   if ( requests == requestsAcknowledged() ) return;
   progress_->acknowledgedIs( requests );
   notifiees_.tell( &Notifiee::onAcknowledged );
}

void Channel::ownerIs( const Gant::String & owner, double since ) {
   owner_ = owner;
   ownedSince_ = since;
   if ( !owner_.empty() ) notifiees_.tell( &Notifiee::onOwner );
}

void Channel::tellInStep() { notifiees_.tell( &Notifiee::onInStep ); }

void Channel::lostIs( const Gant::String & reason ) {
   if ( lost_ ) return;
   GANT_TRACE( 0, "data plane lost: ", reason );
   lost_ = true;
   lossReason_ = reason;
   notifiees_.tell( &Notifiee::onLost );
}

} // namespace Vex
