#include "bess/control.grpc.pb.h"
#include "google/rpc/error_details.pb.h"
#include "vex/engine.pb.h"
#include "VexCleanse.h"
#include "VexTransport.h"
#include "VexTransportChannel.h"

#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>

namespace Vex {

namespace {

// Makes each request of a batch one call of the control API, in order, and puts the answers together as the stream
// would.
class UnaryTransport : public Transport {
 public:
   UnaryTransport( const Peer & peer, std::shared_ptr< TransportSink > sink ) :
        sink_( std::move( sink ) ), channel_( transportChannel( peer ) ),
        stub_( bess::pb::BESSControl::NewStub( channel_ ) ), thread_( [ this ] { run(); } ) {}

   ~UnaryTransport() override {
      {
         const std::lock_guard lock( mutex_ );
         stopping_ = true;
         if ( calling_ != nullptr ) calling_->TryCancel();
      }
      wake_.notify_one();
      thread_.join();
   }

   bool streaming() const override { return false; }
   const std::shared_ptr< grpc::Channel > & channel() const override { return channel_; }

   void send( const grpc::ByteBuffer & batch ) override {
      {
         const std::lock_guard lock( mutex_ );
         pending_.push_back( batch );
      }
      wake_.notify_one();
   }

 private:
   template < typename Request, typename Response >
   using Method = grpc::Status ( bess::pb::BESSControl::Stub::* )( grpc::ClientContext *, const Request &, Response * );

   // False: the call did not arrive, and everything ends.
   template < typename Request, typename Response >
   bool call( Method< Request, Response > method, const Request & request, Response & response ) {
      grpc::ClientContext context;
      {
         const std::lock_guard lock( mutex_ );
         if ( stopping_ ) return false;
         calling_ = &context;
      }
      status_ = ( stub_.get()->*method )( &context, request, &response );
      const std::lock_guard lock( mutex_ );
      calling_ = nullptr;
      if ( status_.ok() ) sink_->progress();
      return status_.ok();
   }

   void run() {
      if ( begin() )
         while ( const auto batch = next() ) {
            auto reply = std::make_unique< vex::pb::BatchReply >();
            reply->set_number( batch->number() );
            const bool performed = perform( *batch, *reply );
            cleanse( *batch );
            if ( !performed ) break;
            sink_->reply( std::move( reply ) );
         }
      sink_->end( status_.ok() ? "closed" : status_.error_message(), false );
   }

   bool begin() {
      const bess::pb::EmptyRequest nothing;
      bess::pb::EmptyResponse reset;
      bess::pb::VersionResponse version;
      using Stub = bess::pb::BESSControl::Stub;
      if ( !call( &Stub::GetVersion, nothing, version ) || !call( &Stub::ResetAll, nothing, reset ) ) return false;
      auto reply = std::make_unique< vex::pb::BatchReply >();
      reply->mutable_hello()->set_version( version.version() );
      sink_->reply( std::move( reply ) );
      return true;
   }

   std::unique_ptr< vex::pb::Batch > next() {
      std::unique_lock lock( mutex_ );
      wake_.wait( lock, [ this ] { return stopping_ || !pending_.empty(); } );
      if ( stopping_ ) return nullptr;
      const auto bytes = pending_.front();
      pending_.pop_front();
      lock.unlock();
      auto batch = std::make_unique< vex::pb::Batch >();
      parse( bytes, *batch );
      return batch;
   }

   bool perform( const vex::pb::Batch & batch, vex::pb::BatchReply & reply ) {
      U32 index = 0;
      for ( const auto & request : batch.request() ) {
         if ( !request.has_command() ) {
            if ( !performGraph( request, index++, reply ) ) return false;
            continue;
         }
         const auto & run = request.command();
         for ( const auto & arg : run.arg() )
            if ( !performCommand( run, arg, index++, reply ) ) return false;
      }
      return true;
   }

   bool performCommand( const vex::pb::CommandRun & run, const std::string & arg, U32 index,
                        vex::pb::BatchReply & reply ) {
      bess::pb::CommandRequest request;
      bess::pb::CommandResponse response;
      request.set_name( run.module() );
      request.set_cmd( run.cmd() );
      request.mutable_arg()->set_type_url( "type.googleapis.com/" + run.type() );
      request.mutable_arg()->set_value( arg );
      const bool called = call( &bess::pb::BESSControl::Stub::ModuleCommand, request, response );
      cleanse( request );
      if ( !called ) return false;
      note( response.error(), run.module(), run.cmd(), index, reply );
      if ( response.has_data() ) {
         auto & answer = *reply.add_answer();
         answer.set_index( index );
         *answer.mutable_data() = std::move( *response.mutable_data() );
      }
      return true;
   }

   bool performGraph( const vex::pb::Request & request, U32 index, vex::pb::BatchReply & reply ) {
      using Stub = bess::pb::BESSControl::Stub;
      bess::pb::EmptyResponse response;
      bess::pb::CreateModuleResponse created;
      switch ( request.request_case() ) {
      case vex::pb::Request::kCreateModule:
         if ( !call( &Stub::CreateModule, request.create_module(), created ) ) return false;
         note( created.error(), request.create_module().name(), "create", index, reply );
         return true;
      case vex::pb::Request::kDestroyModule:
         if ( !call( &Stub::DestroyModule, request.destroy_module(), response ) ) return false;
         note( response.error(), request.destroy_module().name(), "destroy", index, reply );
         return true;
      case vex::pb::Request::kConnectModules:
         if ( !call( &Stub::ConnectModules, request.connect_modules(), response ) ) return false;
         note( response.error(), request.connect_modules().m1(), "connect", index, reply );
         return true;
      case vex::pb::Request::kDisconnectModules:
         if ( !call( &Stub::DisconnectModules, request.disconnect_modules(), response ) ) return false;
         note( response.error(), request.disconnect_modules().name(), "disconnect", index, reply );
         return true;
      default: return true;
      }
   }

   // The control API says code and text; the status with its details is made of what is known here.
   static void note( const bess::pb::Error & error, const std::string & module, const std::string & action, U32 index,
                     vex::pb::BatchReply & reply ) {
      if ( error.code() == 0 ) return;
      auto & refusal = *reply.add_refusal();
      refusal.set_index( index );
      *refusal.mutable_error() = error;
      refusal.mutable_status()->set_code( grpc::StatusCode::FAILED_PRECONDITION );
      refusal.mutable_status()->set_message( error.errmsg() );
      google::rpc::ErrorInfo info;
      const char * const name = strerrorname_np( error.code() );
      info.set_reason( name != nullptr ? name : std::to_string( error.code() ) );
      info.set_domain( "bess" );
      ( *info.mutable_metadata() )[ "module" ] = module;
      ( *info.mutable_metadata() )[ "action" ] = action;
      refusal.mutable_status()->add_details()->PackFrom( info );
   }

   std::shared_ptr< TransportSink > sink_;
   const std::shared_ptr< grpc::Channel > channel_;
   std::unique_ptr< bess::pb::BESSControl::Stub > stub_;
   grpc::Status status_;

   std::mutex mutex_;
   std::condition_variable wake_;
   std::deque< grpc::ByteBuffer > pending_;
   grpc::ClientContext * calling_ = nullptr;
   bool stopping_ = false;

   std::thread thread_; // last: it uses all the others
};

} // namespace

std::unique_ptr< Transport > unaryTransport( const Peer & peer, std::shared_ptr< TransportSink > sink ) {
   return std::make_unique< UnaryTransport >( peer, std::move( sink ) );
}

} // namespace Vex
