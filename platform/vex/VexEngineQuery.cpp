#include "VexEngineQuery.h"

#include "GantActivity.h"
#include "vex/engine.grpc.pb.h"
#include "VexTransportChannel.h"
#include "VexUnaryCall.h"

#include <deque>
#include <grpcpp/support/client_callback.h>
#include <mutex>

namespace Vex {

struct EngineQuery::Stub : Connected< vex::pb::Engine > {
   using Connected::Connected;
};

namespace {

// The stream's side of a dump. gRPC's thread puts batches in, the loop takes them out. It holds itself until the call
// is over.
class DumpReader : public grpc::ClientReadReactor< vex::pb::Batch > {
 public:
   static constexpr size_t waitingMax = 8; // batches

   DumpReader( const vex::pb::DumpRequest & request, std::function< void() > ready ) :
        request_( request ), ready_( std::move( ready ) ) {}

   void begin( vex::pb::Engine::Stub & stub, std::shared_ptr< DumpReader > self ) {
      self_ = std::move( self );
      stub.async()->Dump( &context_, &request_, this );
      // Reads are also started by the loop, beyond the call's own reactions.
      AddHold();
      read();
      StartCall();
   }
   // On the loop: nobody listens any more.
   void close() {
      ready_ = nullptr;
      context_.TryCancel();
      const std::lock_guard lock( mutex_ );
      closed_ = true;
      waiting_.clear();
      resume();
   }
   std::unique_ptr< vex::pb::Batch > next() {
      const std::lock_guard lock( mutex_ );
      if ( waiting_.empty() ) return nullptr;
      auto batch = std::move( waiting_.front() );
      waiting_.pop_front();
      resume();
      return batch;
   }
   bool ended() {
      const std::lock_guard lock( mutex_ );
      return ended_ && waiting_.empty();
   }
   Gant::String error() {
      const std::lock_guard lock( mutex_ );
      return error_;
   }

 private:
   void OnReadDone( bool ok ) override {
      if ( !ok ) {
         RemoveHold();
         return;
      }
      {
         const std::lock_guard lock( mutex_ );
         if ( !closed_ ) waiting_.push_back( std::move( batch_ ) );
         paused_ = waiting_.size() >= waitingMax;
         if ( !paused_ ) read();
      }
      wake( self_ );
   }
   void OnDone( const grpc::Status & status ) override {
      {
         const std::lock_guard lock( mutex_ );
         ended_ = true;
         error_ = textOf( status );
      }
      // As in `ask`: the loop lets go of the last connection.
      wake( std::move( self_ ) );
   }

   void read() {
      batch_ = std::make_unique< vex::pb::Batch >();
      StartRead( batch_.get() );
   }
   // With the mutex held.
   void resume() {
      if ( !paused_ || waiting_.size() >= waitingMax ) return;
      paused_ = false;
      read();
   }
   static void wake( std::shared_ptr< DumpReader > self ) {
      Gant::activityManager()->post( [ self = std::move( self ) ] {
         // What is told may let go of the dump, and with it of what is told.
         if ( const auto ready = self->ready_ ) ready();
      } );
   }

   grpc::ClientContext context_;
   const vex::pb::DumpRequest request_;
   std::function< void() > ready_; // touched on the loop only
   std::shared_ptr< DumpReader > self_;
   std::unique_ptr< vex::pb::Batch > batch_; // being read
   std::mutex mutex_;
   std::deque< std::unique_ptr< vex::pb::Batch > > waiting_;
   bool closed_ = false;
   bool paused_ = false; // no read is under way
   bool ended_ = false;
   Gant::String error_;
};

class DumpCall : public EngineDump {
 public:
   explicit DumpCall( std::shared_ptr< DumpReader > reader ) : reader_( std::move( reader ) ) {}
   ~DumpCall() override { reader_->close(); }
   std::unique_ptr< vex::pb::Batch > next() override { return reader_->next(); }
   bool ended() const override { return reader_->ended(); }
   Gant::String error() const override { return reader_->error(); }

 private:
   std::shared_ptr< DumpReader > reader_;
};

} // namespace

EngineQuery::EngineQuery( const Peer & peer ) : stub_( std::make_shared< Stub >( peer ) ) {}

EngineQuery::~EngineQuery() = default;

std::unique_ptr< EngineCall > EngineQuery::lookup( const vex::pb::LookupRequest & request,
                                                   Done< vex::pb::LookupReply > done ) {
   return askUnary( stub_, request, std::move( done ), &vex::pb::Engine::StubInterface::async_interface::Lookup );
}

std::unique_ptr< EngineCall > EngineQuery::tracePacket( const vex::pb::TracePacketRequest & request,
                                                        Done< vex::pb::TracePacketReply > done ) {
   return askUnary( stub_, request, std::move( done ), &vex::pb::Engine::StubInterface::async_interface::TracePacket );
}

std::unique_ptr< EngineCall > EngineQuery::capture( const vex::pb::CaptureRequest & request,
                                                    Done< vex::pb::CaptureReply > done ) {
   return askUnary( stub_, request, std::move( done ), &vex::pb::Engine::StubInterface::async_interface::Capture );
}

std::unique_ptr< EngineCall > EngineQuery::drops( Done< vex::pb::DropsReply > done ) {
   return askUnary( stub_, vex::pb::DropsRequest(), std::move( done ),
                    &vex::pb::Engine::StubInterface::async_interface::Drops );
}

std::unique_ptr< EngineCall > EngineQuery::gates( Done< vex::pb::GatesReply > done ) {
   return askUnary( stub_, vex::pb::GatesRequest(), std::move( done ),
                    &vex::pb::Engine::StubInterface::async_interface::Gates );
}

std::unique_ptr< EngineCall > EngineQuery::probe( const vex::pb::ProbeRequest & request,
                                                  Done< vex::pb::ProbeReply > done ) {
   return askUnary( stub_, request, std::move( done ), &vex::pb::Engine::StubInterface::async_interface::Probe );
}

std::unique_ptr< EngineDump > EngineQuery::dump( const vex::pb::DumpRequest & request, std::function< void() > ready ) {
   const auto reader = std::make_shared< DumpReader >( request, std::move( ready ) );
   reader->begin( stub_->stub(), reader );
   return std::make_unique< DumpCall >( reader );
}

} // namespace Vex
