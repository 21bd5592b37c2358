#include "VexHeartbeat.h"

#include "bess/control.grpc.pb.h"
#include "GantActivity.h"

#include <grpcpp/channel.h>

namespace Vex {

struct Heartbeat::State {
   struct Call {
      grpc::ClientContext context;
      bess::pb::EmptyRequest request;
      bess::pb::VersionResponse version;
   };
   State( std::shared_ptr< grpc::Channel > channel, Answered answered ) :
        stub( std::move( channel ) ), answered( std::move( answered ) ) {}

   void done( const grpc::Status & status ) {
      call = nullptr;
      const bool unimplemented = status.error_code() == grpc::StatusCode::UNIMPLEMENTED;
      // Other ends come from this side, or with the end of the connection.
      if ( answered && ( status.ok() || unimplemented ) ) answered( status.ok() );
   }

   // All on the loop.
   bess::pb::BESSControl::Stub stub;
   Answered answered; // empty once let go
   std::unique_ptr< Call > call;
};

Heartbeat::Heartbeat( std::shared_ptr< grpc::Channel > channel, Answered answered ) :
     state_( std::make_shared< State >( std::move( channel ), std::move( answered ) ) ) {}

Heartbeat::~Heartbeat() {
   state_->answered = nullptr;
   if ( state_->call ) state_->call->context.TryCancel();
}

void Heartbeat::ask() {
   if ( state_->call ) return;
   state_->call = std::make_unique< State::Call >();
   auto & call = *state_->call;
   // The last reference goes on the loop: no thread of gRPC's may end the connection.
   state_->stub.async()->GetVersion(
        &call.context, &call.request, &call.version, [ state = state_ ]( const grpc::Status & status ) mutable {
           Gant::activityManager()->post( [ state = std::move( state ), status ] { state->done( status ); } );
        } );
}

} // namespace Vex
