#include "DpSession.h"

#include "DpCleanse.h"
#include "DpClock.h"
#include "DpVersion.h"

#include <google/protobuf/arena.h>
#include <spdlog/spdlog.h>

#include <array>
#include <optional>
#include <utility>
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

   // Of the call.
   std::string agent() const { return metadata( "vex-agent" ).value_or( context_.peer() ); }
   bool takesOver() const { return metadata( "vex-takeover" ).has_value(); }
   bool beside() const { return metadata( "vex-beside" ).has_value(); }

   // Another session took the data plane.
   void takenOver( const std::string & by ) { endSoon( { grpc::StatusCode::ABORTED, "taken over by " + by } ); }

   void standBy() {
      spdlog::info( "session {} stands by, for {}", id_, agent() );
      state_ = State::standby;
      read();
   }

   // On standby: who has the data plane.
   void ownerIs( const vex::pb::Owner & owner ) {
      owner_ = owner;
      told_ = false;
      if ( !writing_ ) tell();
   }

   // The data plane is this session's, and empty, or what forwards is beside what this session makes.
   void own( bool beside ) {
      spdlog::info( "session {} begins{}, for {}, from {}", id_, beside ? " beside what forwards" : "", agent(),
                    context_.peer() );
      forwarded_ = beside;
      since_ = secondsNow();
      state_ = State::greeting;
      if ( !writing_ ) tell();
   }
   double since() const { return since_; }

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
   enum class State : std::uint8_t { waiting, standby, greeting, reading, replying, ending };

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

   std::optional< std::string > metadata( const char * key ) const {
      const auto & all = context_.client_metadata();
      const auto at = all.find( key );
      return at == all.end() ? std::nullopt : std::optional( std::string( at->second.data(), at->second.size() ) );
   }

   void called() { server_.came( *this ); }

   // The reply of number 0, once more where something else is to be told by now.
   void tell() {
      told_ = true;
      reply_.Clear();
      if ( state_ == State::standby ) {
         *reply_.mutable_owner() = owner_;
      } else {
         helloSent_ = true;
         reply_.mutable_hello()->set_version( kVersion );
         reply_.mutable_hello()->set_counter_path( server_.engine_.counters().path() );
         reply_.mutable_hello()->set_max_routes( server_.engine_.limits().routes );
         reply_.mutable_hello()->set_beside( forwarded_ );
      }
      write();
   }

   // The gRPC server is shutting down.
   void neverCalled() { state_ = State::ending; }

   void haveRead( bool ok ) {
      reading_ = false;
      switch ( state_ ) {
      case State::standby:
         return endSoon( ok ? unacceptable( "a batch before the data plane is the client's" ) : grpc::Status::OK );
      // It has read ahead, from its time on standby.
      case State::greeting: early_ = ok; return;
      case State::reading: return take( ok );
      default: return;
      }
   }

   void take( bool ok ) {
      if ( !ok ) return end( grpc::Status::OK );
      arena_.Reset();
      // gRPC lets go of what was read as it is: the keys in it are overwritten while it is still held.
      const bool held = bytes_.Dump( &parts_ ).ok();
      auto & batch = *google::protobuf::Arena::CreateMessage< Batch >( &arena_ );
      if ( !grpc::SerializationTraits< Batch >::Deserialize( &bytes_, &batch ).ok() )
         return end( unacceptable( "a message that is no batch, after batch {}", lastNumber_ ) );
      if ( batch.number() != lastNumber_ + 1 )
         return end( unacceptable( "batch {} after batch {}", batch.number(), lastNumber_ ) );
      lastNumber_ = batch.number();
      reply_.Clear();
      server_.engine_.apply( batch, reply_ );
      cleanse( batch );
      if ( held )
         for ( const auto & part : parts_ ) cleanse( part );
      parts_.clear();
      if ( reply_.has_in_step() ) tellInStep();
      state_ = State::replying;
      write();
   }

   void tellInStep() const {
      if ( reply_.in_step().changed() )
         spdlog::info( "session {} is in step: its graph forwards, packets waited {} us for it", id_,
                       ( reply_.in_step().held() + 500 ) / 1000 );
      else
         spdlog::info( "session {} is in step", id_ );
   }

   void haveWritten( bool ok ) {
      writing_ = false;
      if ( state_ == State::ending ) return;
      if ( endWith_ ) return end( *endWith_ );
      if ( !ok ) return end( grpc::Status::OK );
      if ( state_ == State::standby ) return told_ ? void() : tell();
      if ( state_ == State::greeting && !helloSent_ ) return tell();
      state_ = State::reading;
      if ( const auto early = std::exchange( early_, std::nullopt ) ) return take( *early );
      read();
   }

   void read() {
      if ( std::exchange( reading_, true ) ) return;
      ++underWay_;
      stream_.Read( &bytes_, tag( Step::read ) );
   }

   void write() {
      grpc::ByteBuffer bytes;
      bool ownBuffer = false;
      grpc::SerializationTraits< BatchReply >::Serialize( reply_, &bytes, &ownBuffer );
      ++underWay_;
      writing_ = true;
      stream_.Write( bytes, tag( Step::write ) );
   }

   void endSoon( const grpc::Status & status ) {
      endWith_ = status;
      if ( !writing_ ) end( status );
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

   SessionServer & server_;
   const std::uint64_t id_;
   State state_ = State::waiting;
   std::optional< grpc::Status > endWith_; // after the write under way
   double since_ = 0;                      // seconds since 1970, of an owner
   bool forwarded_ = false;                // another graph did when it began
   vex::pb::Owner owner_;                  // while on standby
   bool told_ = false;                     // that
   bool helloSent_ = false;
   bool writing_ = false;
   bool reading_ = false;
   std::optional< bool > early_; // what came of a read that ended before the Hello was written
   unsigned underWay_ = 0;
   std::uint64_t lastNumber_ = 0;
   std::array< Tag, 4 > tags_{
        { { this, Step::call }, { this, Step::read }, { this, Step::write }, { this, Step::status } } };
   std::vector< char > block_;
   google::protobuf::Arena arena_;
   grpc::ByteBuffer bytes_;
   std::vector< grpc::Slice > parts_; // of bytes_, while they are read
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

void SessionServer::came( Session & session ) {
   waitForNext();
   if ( owner_ != nullptr && !session.takesOver() ) {
      standby_.push_back( &session );
      session.standBy();
      session.ownerIs( ownerMessage() );
      return;
   }
   if ( auto * before = std::exchange( owner_, nullptr ) ) before->takenOver( session.agent() );
   ownerIs( session );
}

void SessionServer::ownerIs( Session & session ) {
   owner_ = &session;
   bool forwards = false;
   if ( session.beside() )
      forwards = engine_.beginBeside();
   else
      engine_.reset();
   session.own( forwards );
   const auto message = ownerMessage();
   for ( auto * waiting : standby_ ) waiting->ownerIs( message );
}

vex::pb::Owner SessionServer::ownerMessage() const {
   vex::pb::Owner message;
   message.set_agent( owner_->agent() );
   message.set_since( owner_->since() );
   return message;
}

void SessionServer::ended( const Session & session ) {
   std::erase( standby_, &session );
   if ( owner_ != &session ) return;
   owner_ = nullptr;
   engine_.endBeside();
   if ( standby_.empty() ) return;
   auto & next = *standby_.front();
   standby_.pop_front();
   ownerIs( next );
}

} // namespace Vexdp
