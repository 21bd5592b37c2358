// One unary call and its answer, on the loop. For those sources only that speak gRPC.
#pragma once

#include "GantActivity.h"
#include "VexEngineQuery.h"

#include <chrono>
#include <functional>
#include <grpcpp/client_context.h>
#include <utility>

namespace Vex {

// What one look at the data plane may take. Without it a question to one that hangs would hang as well.
inline constexpr std::chrono::seconds unaryCallTime( 10 );

inline Gant::String textOf( const grpc::Status & status ) {
   if ( status.ok() ) return {};
   if ( status.error_code() == grpc::StatusCode::DEADLINE_EXCEEDED )
      return Gant::format( "the data plane has not answered for %d s", static_cast< int >( unaryCallTime.count() ) );
   return status.error_message().empty() ? Gant::format( "gRPC status %d", status.error_code() )
                                         : status.error_message();
}

inline bool connectionFailed( const grpc::Status & status ) {
   return status.error_code() == grpc::StatusCode::UNAVAILABLE ||
          status.error_code() == grpc::StatusCode::DEADLINE_EXCEEDED;
}

template < typename Request, typename Reply >
struct Unary {
   grpc::ClientContext context;
   Request request;
   Reply reply;
   EngineQuery::Done< Reply > done; // touched on the loop only; empty once let go
};

template < typename State >
class UnaryCall : public EngineCall {
 public:
   explicit UnaryCall( std::shared_ptr< State > state ) : state_( std::move( state ) ) {}
   ~UnaryCall() override {
      state_->done = nullptr;
      state_->context.TryCancel();
   }

 private:
   std::shared_ptr< State > state_;
};

// `method` is an asynchronous one of the stub. The callback hands over to the loop what the call stands on, connection
// and all: with the last connection go gRPC's own callback threads, and none of them may be the one to end them.
template < typename Connected, typename Request, typename Reply, typename Service >
std::unique_ptr< EngineCall > askUnary( std::shared_ptr< Connected > service, const Request & request,
                                        EngineQuery::Done< Reply > done,
                                        void ( Service::*method )( grpc::ClientContext *, const Request *, Reply *,
                                                                   std::function< void( grpc::Status ) > ) ) {
   using State = Unary< Request, Reply >;
   const auto state = std::make_shared< State >();
   state->request = request;
   state->done = std::move( done );
   state->context.set_deadline( std::chrono::system_clock::now() + unaryCallTime );
   auto & asynchronous = *service->stub().async();
   ( asynchronous.*
     method )( &state->context, &state->request, &state->reply,
               [ service = std::move( service ), call = state ]( const grpc::Status & status ) mutable {
                  Gant::activityManager()->post( [ service = std::move( service ), call = std::move( call ), status ] {
                     if ( connectionFailed( status ) ) service->lost();
                     const auto error = textOf( status );
                     if ( const auto told = std::exchange( call->done, nullptr ) ) told( error, call->reply );
                  } );
               } );
   return std::make_unique< UnaryCall< State > >( state );
}

} // namespace Vex
