#include "DpSession.h"

#include "DpVersion.h"

#include <google/protobuf/arena.h>
#include <spdlog/spdlog.h>

#include <array>
#include <vector>

namespace Vexdp {

using vex::pb::Batch;
using vex::pb::BatchReply;

class Session {
 public:
   // The id is for people.
   Session( SessionServer & server, std::uint64_t id ) :
        server_( server ), id_( id ), block_( kFirstBlock ), arena_( arenaOptions() ), stream_( &context_ ) {}

   void wait() {
      ++underWay_;
      server_.service_.RequestSession( &context_, &stream_, &server_.queue_, &server_.queue_, tag( Step::call ) );
   }

   // A newer session began.
   void supersede() {
      superseded_ = true;
      if ( state_ == State::reading ) end( supersededStatus() );
   }

   enum class Step : std::uint8_t { call, read, write, status };
   // What the queue hands back.
   struct Tag {
      Session * session;
      Step step;
   };
   // True when the session is over, and nothing of it is under way.
   bool finished( Step step, bool ok ) {
      --underWay_;
      switch ( step ) {
      case Step::call: ok ? called() : neverCalled(); break;
      case Step::read: haveRead( ok ); break;
      case Step::write: haveWritten( ok ); break;
      case Step::status: break;
      }
      return state_ == State::ending && underWay_ == 0;
   }

 private:
   enum class State : std::uint8_t { waiting, greeting, reading, replying, ending };

   // A batch of 4,096 route updates fits into the memory that is kept from one to the next.
   static constexpr std::size_t kFirstBlock = 512u << 10;

   google::protobuf::ArenaOptions arenaOptions() {
      google::protobuf::ArenaOptions options;
      options.initial_block = block_.data();
      options.initial_block_size = block_.size();
      options.start_block_size = kFirstBlock;
      options.max_block_size = kFirstBlock;
      return options;
   }

   void * tag( Step step ) { return &tags_[ std::size_t( step ) ]; }

   void called() {
      spdlog::info( "session {} begins, from {}", id_, context_.peer() );
      server_.began( *this );
      state_ = State::greeting;
      auto & hello = *reply_.mutable_hello();
      hello.set_version( kVersion );
      hello.set_counter_path( server_.engine_.counters().path() );
      write();
   }

   // The gRPC server is shutting down.
   void neverCalled() { state_ = State::ending; }

   void haveRead( bool ok ) {
      if ( state_ != State::reading ) return;
      if ( !ok ) return end( grpc::Status::OK );
      arena_.Reset();
      auto & batch = *google::protobuf::Arena::CreateMessage< Batch >( &arena_ );
      if ( !grpc::SerializationTraits< Batch >::Deserialize( &bytes_, &batch ).ok() )
         return end( unacceptable( "a message that is no batch, after batch {}", lastNumber_ ) );
      if ( batch.number() != lastNumber_ + 1 )
         return end( unacceptable( "batch {} after batch {}", batch.number(), lastNumber_ ) );
      lastNumber_ = batch.number();
      reply_.Clear();
      server_.engine_.apply( batch, reply_ );
      state_ = State::replying;
      write();
   }

   void haveWritten( bool ok ) {
      if ( superseded_ ) return end( supersededStatus() );
      if ( !ok ) return end( grpc::Status::OK );
      state_ = State::reading;
      read();
   }

   void read() {
      ++underWay_;
      stream_.Read( &bytes_, tag( Step::read ) );
   }

   void write() {
      grpc::ByteBuffer bytes;
      bool ownBuffer = false;
      grpc::SerializationTraits< BatchReply >::Serialize( reply_, &bytes, &ownBuffer );
      ++underWay_;
      stream_.Write( bytes, tag( Step::write ) );
   }

   void end( const grpc::Status & status ) {
      spdlog::info( "session {} ends after batch {}: {}", id_, lastNumber_,
                    status.ok() ? "the client is done or gone" : status.error_message() );
      state_ = State::ending;
      server_.ended( *this );
      ++underWay_;
      stream_.Finish( status, tag( Step::status ) );
   }

   template < typename... Args >
   static grpc::Status unacceptable( fmt::format_string< Args... > why, Args &&... args ) {
      return { grpc::StatusCode::INVALID_ARGUMENT, fmt::format( why, std::forward< Args >( args )... ) };
   }
   static grpc::Status supersededStatus() { return { grpc::StatusCode::ABORTED, "a newer session began" }; }

   SessionServer & server_;
   const std::uint64_t id_;
   State state_ = State::waiting;
   bool superseded_ = false;
   unsigned underWay_ = 0;
   std::uint64_t lastNumber_ = 0;
   std::array< Tag, 4 > tags_{
        { { this, Step::call }, { this, Step::read }, { this, Step::write }, { this, Step::status } } };
   std::vector< char > block_;
   google::protobuf::Arena arena_;
   grpc::ByteBuffer bytes_;
   BatchReply reply_;
   grpc::ServerContext context_;
   grpc::ServerAsyncReaderWriter< grpc::ByteBuffer, grpc::ByteBuffer > stream_;
};

SessionServer::SessionServer( Engine & engine, EngineService & service, grpc::ServerCompletionQueue & queue ) :
     engine_( engine ), service_( service ), queue_( queue ) {}

SessionServer::~SessionServer() {
   if ( thread_.joinable() ) thread_.join();
   queue_.Shutdown();
   void * tag = nullptr;
   bool ok = false;
   while ( queue_.Next( &tag, &ok ) ) {
   }
}

void SessionServer::start() {
   waitForNext();
   thread_ = std::thread( [ this ] { serve(); } );
}

void SessionServer::waitForNext() {
   auto session = std::make_unique< Session >( *this, ++lastId_ );
   auto & waiting = *session;
   sessions_.emplace( &waiting, std::move( session ) );
   waiting.wait();
}

// A session waits for a call as long as the gRPC server runs. So the last of them goes after the server has shut down,
// and only then may the queue: nothing can be started on a queue that is shutting down.
void SessionServer::serve() {
   void * tag = nullptr;
   bool ok = false;
   while ( !sessions_.empty() && queue_.Next( &tag, &ok ) ) {
      const auto * done = static_cast< Session::Tag * >( tag );
      if ( auto & session = *done->session; session.finished( done->step, ok ) ) sessions_.erase( &session );
   }
}

void SessionServer::began( Session & session ) {
   if ( current_ != nullptr ) current_->supersede();
   current_ = &session;
   engine_.reset();
   waitForNext();
}

void SessionServer::ended( const Session & session ) {
   if ( current_ == &session ) current_ = nullptr;
}

} // namespace Vexdp
