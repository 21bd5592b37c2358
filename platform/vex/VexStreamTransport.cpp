#include "vex/engine.pb.h"
#include "VexTransport.h"
#include "VexTransportChannel.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <deque>
#include <grpcpp/generic/generic_stub.h>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace Vex {

namespace {

// This process, to whoever wants the same data plane. Metadata has printable characters only.
Gant::String agentText() {
   char host[ HOST_NAME_MAX + 1 ] = "";
   gethostname( host, sizeof( host ) - 1 );
   auto text =
        Gant::String( program_invocation_short_name ) + " on " + host + ", process " + std::to_string( getpid() );
   std::ranges::replace_if(
        text, []( char c ) { return c < ' ' || c > '~'; }, '?' );
   return text;
}

// One thread waits for the completions of the stream. A write goes out on the caller's thread when none is on its way,
// so that a lone batch does not wait for a second thread.
class StreamTransport : public Transport {
 public:
   StreamTransport( const Peer & peer, std::shared_ptr< TransportSink > sink, SessionWish wish ) :
        address_( peer.address ), sink_( std::move( sink ) ), channel_( transportChannel( peer, wish.silenceMost ) ),
        stub_( channel_ ) {
      context_.AddMetadata( "vex-agent", agentText() );
      if ( wish.beside ) context_.AddMetadata( "vex-beside", "1" );
      if ( wish.takeOver ) context_.AddMetadata( "vex-takeover", "1" );
      stream_ = stub_.PrepareCall( &context_, "/vex.pb.Engine/Session", &queue_ );
      stream_->StartCall( tag( Event::started ) );
      thread_ = std::thread( [ this ] { run(); } );
   }

   ~StreamTransport() override {
      context_.TryCancel();
      thread_.join();
   }

   bool streaming() const override { return true; }
   const std::shared_ptr< grpc::Channel > & channel() const override { return channel_; }

   void send( const grpc::ByteBuffer & batch ) override {
      const std::lock_guard lock( mutex_ );
      pending_.push_back( batch );
      writeNext();
   }

 private:
   enum class Event : intptr_t { started = 1, read, written, finished };
   // NOLINTNEXTLINE(performance-no-int-to-ptr): what gRPC gives back
   static void * tag( Event event ) { return reinterpret_cast< void * >( event ); }

   // With the mutex held.
   void writeNext() {
      if ( writing_ || !open_ || pending_.empty() ) return;
      writing_ = true;
      stream_->Write( pending_.front(), tag( Event::written ) );
   }

   void run() {
      void * event;
      bool ok;
      while ( queue_.Next( &event, &ok ) ) handle( static_cast< Event >( reinterpret_cast< intptr_t >( event ) ), ok );
   }

   void handle( Event event, bool ok ) {
      switch ( event ) {
      case Event::started:
         if ( ok ) {
            opened();
            stream_->Read( &incoming_, tag( Event::read ) );
         } else {
            stream_->Finish( &status_, tag( Event::finished ) );
         }
         break;
      case Event::read:
         if ( ok && deliver() )
            stream_->Read( &incoming_, tag( Event::read ) );
         else
            stream_->Finish( &status_, tag( Event::finished ) );
         break;
      case Event::written: written( ok ); break;
      case Event::finished:
         closed();
         sink_->end( reason(), status_.error_code() == grpc::StatusCode::UNIMPLEMENTED );
         queue_.Shutdown();
         break;
      }
   }

   void opened() {
      const std::lock_guard lock( mutex_ );
      open_ = true;
      writeNext();
   }

   // The loop may send until it hears of the end, and the queue takes nothing once it is shut down.
   void closed() {
      const std::lock_guard lock( mutex_ );
      open_ = false;
   }

   void written( bool ok ) {
      const std::lock_guard lock( mutex_ );
      writing_ = false;
      pending_.pop_front();
      // A failed write is followed by the end of the reads, which tells why.
      if ( !ok ) open_ = false;
      writeNext();
   }

   // False: the data plane speaks something else.
   bool deliver() {
      auto reply = std::make_unique< vex::pb::BatchReply >();
      if ( !parse( incoming_, *reply ) ) {
         malformed_ = true;
         context_.TryCancel();
         return false;
      }
      heard_ = true;
      sink_->reply( std::move( reply ) );
      return true;
   }

   Gant::String reason() const {
      if ( malformed_ ) return "a reply that is not one";
      // gRPC's words of a connection that it was given name the system call at most.
      const bool given =
           status_.error_message() == "Transport closed" || status_.error_message().starts_with( "recvmsg" );
      if ( !heard_ && given ) return "the data plane at " + address_ + " takes no connection, or closes it at once";
      return status_.ok() ? "the data plane ended the session" : status_.error_message();
   }

   const Gant::String address_;
   std::shared_ptr< TransportSink > sink_;
   grpc::ClientContext context_;
   grpc::CompletionQueue queue_;
   const std::shared_ptr< grpc::Channel > channel_;
   grpc::GenericStub stub_;
   std::unique_ptr< grpc::GenericClientAsyncReaderWriter > stream_;
   grpc::ByteBuffer incoming_;
   grpc::Status status_;
   bool heard_ = false;
   bool malformed_ = false;
   std::thread thread_;

   std::mutex mutex_;
   std::deque< grpc::ByteBuffer > pending_; // the front one is on its way while writing_
   bool writing_ = false;
   bool open_ = false;
};

} // namespace

std::unique_ptr< Transport > streamTransport( const Peer & peer, std::shared_ptr< TransportSink > sink,
                                              SessionWish wish ) {
   return std::make_unique< StreamTransport >( peer, std::move( sink ), wish );
}

} // namespace Vex
