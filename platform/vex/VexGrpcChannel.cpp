#include "VexGrpcChannel.h"

#include "GantActivity.h"
#include "GantAssert.h"
#include "GantTrace.h"
#include "vex/engine.pb.h"
#include "VexCleanse.h"
#include "VexDescribe.h"
#include "VexHeartbeat.h"
#include "VexTransport.h"

#include <algorithm>
#include <atomic>
#include <google/protobuf/arena.h>
#include <mutex>
#include <optional>

namespace Vex {

static Gant::TraceHandle traceHandle( "VexGrpcChannel" );

struct GrpcChannel::Batch {
   U64 number;
   U32 requests;
   std::vector< std::pair< U32, OriginId > > origins;
   grpc::ByteBuffer bytes;
   double sent = 0;

   OriginId origin( U32 index ) const {
      auto at = std::ranges::upper_bound( origins, index, {}, []( const auto & o ) { return o.first; } );
      return std::prev( at )->second;
   }
   vex::pb::Batch parsed() const {
      vex::pb::Batch batch;
      parse( bytes, batch );
      return batch;
   }
};

// Carries what the transport's thread tells over to the loop.
class GrpcChannel::Inbox : public TransportSink, public std::enable_shared_from_this< Inbox > {
 public:
   explicit Inbox( GrpcChannel * channel ) : channel_( channel ) {}

   void reply( std::unique_ptr< vex::pb::BatchReply > reply ) override {
      ++answers_;
      put( [ & ] { replies_.push_back( std::move( reply ) ); } );
   }
   void progress() override { ++answers_; }
   void end( const Gant::String & reason, bool unimplemented ) override {
      put( [ & ] { end_ = { reason, unimplemented }; } );
   }
   // On the loop: nothing reaches the channel any more.
   void close() { channel_ = nullptr; }
   // How often something of what is owed has come.
   U64 answers() const { return answers_; }
   // Whether something came that the channel has not looked at.
   bool unread() {
      const std::lock_guard lock( mutex_ );
      return !replies_.empty() || !ready_.empty() || end_;
   }

 private:
   template < typename Put >
   void put( Put put ) {
      const std::lock_guard lock( mutex_ );
      put();
      if ( std::exchange( posted_, true ) ) return;
      Gant::activityManager()->post( [ self = shared_from_this() ] { self->deliver(); } );
   }

   void deliver() {
      {
         const std::lock_guard lock( mutex_ );
         posted_ = false;
         for ( auto & reply : replies_ ) ready_.push_back( std::move( reply ) );
         replies_.clear();
      }
      // Whoever is told may let go of the channel.
      const auto alive = Gant::Ptr< GrpcChannel >( channel_ );
      for ( const auto until = Gant::activityManager()->now() + turnMost; channel_ != nullptr && !ready_.empty(); ) {
         const auto reply = std::move( ready_.front() );
         ready_.pop_front();
         if ( reply->number() == 0 && reply->has_owner() )
            channel_->ownerIs( reply->owner().agent(), reply->owner().since() );
         else if ( reply->number() == 0 )
            channel_->begun( reply->hello() );
         else
            channel_->replied( *reply );
         if ( Gant::activityManager()->now() < until ) continue;
         put( [] {} );
         return;
      }
      std::optional< std::pair< Gant::String, bool > > end;
      {
         const std::lock_guard lock( mutex_ );
         if ( !replies_.empty() ) return; // they came meanwhile, before the end, and have posted a turn
         end.swap( end_ );
      }
      if ( end && channel_ != nullptr ) channel_->ended( end->first, end->second );
   }

   // Seconds after which others have their turn.
   static constexpr double turnMost = 0.003;

   GrpcChannel * channel_;
   std::atomic< U64 > answers_ = 0;
   std::mutex mutex_;
   std::vector< std::unique_ptr< vex::pb::BatchReply > > replies_;
   std::optional< std::pair< Gant::String, bool > > end_;
   bool posted_ = false;
   std::deque< std::unique_ptr< vex::pb::BatchReply > > ready_; // on the loop
};

class GrpcChannel::Watch : public Gant::StateMachine {
 public:
   Watch( GrpcChannel & channel, double period ) :
        channel_( channel ), period_( period ), clock_( Gant::activityManager()->newClock() ), gantClock_( *this ) {
      wake();
   }

 private:
   class GantClock : public Gant::Clock::Notifiee {
    public:
      explicit GantClock( Watch & watch ) : Notifiee( &watch, watch.clock_ ), watch_( watch ) {}
      void onTime() override {
         // Whoever is told of the loss may let go of the channel.
         const auto alive = Gant::Ptr< GrpcChannel >( &watch_.channel_ );
         alive->lookAfterPeer();
         if ( !alive->lost() ) watch_.wake();
      }

    private:
      Watch & watch_;
   };
   void wake() { clock_->timeMinIs( clock_->now() + period_ ); }

   GrpcChannel & channel_;
   const double period_;
   Gant::Ptr< Gant::Clock > clock_;
   GantClock gantClock_;
};

namespace {

std::unique_ptr< google::protobuf::Arena > newArena() {
   google::protobuf::ArenaOptions options;
   options.start_block_size = 4096;
   return std::make_unique< google::protobuf::Arena >( options );
}

constexpr size_t arenaMax = size_t( 64 ) * 1024;

// Refusals of one reply that have a line each in the log; of more there is one line a second.
constexpr int tracedMost = 16;

grpc::ByteBuffer byteBuffer( Gant::CleansedString bytes ) {
   auto * const kept = new Gant::CleansedString( std::move( bytes ) );
   const grpc::Slice slice(
        kept->data(), kept->size(), []( void * string ) { delete static_cast< Gant::CleansedString * >( string ); },
        kept );
   return grpc::ByteBuffer( &slice, 1 );
}

} // namespace

GrpcChannel::GrpcChannel( Peer peer, bool takeOver, double silenceMost, bool beside ) :
     peer_( std::move( peer ) ), inbox_( std::make_shared< Inbox >( this ) ),
     transport_( streamTransport( peer_, inbox_, { takeOver, beside, silenceMost } ) ), liveness_( silenceMost ),
     arena_( newArena() ) {
   if ( silenceMost > 0 ) watch_ = std::make_unique< Watch >( *this, liveness_.period() );
}

GrpcChannel::~GrpcChannel() { inbox_->close(); }

google::protobuf::Arena & GrpcChannel::arena() { return *arena_; }

bool GrpcChannel::streaming() const { return transport_->streaming(); }

void GrpcChannel::createModule( OriginId origin, const Gant::String & name, const char * moduleClass,
                                const Message * initArgs ) {
   vex::pb::Request request;
   auto & create = *request.mutable_create_module();
   create.set_name( name );
   create.set_mclass( moduleClass );
   if ( initArgs != nullptr ) create.mutable_arg()->PackFrom( *initArgs );
   noteOrigin( origin );
   open_.request( request );
   added( true );
}

void GrpcChannel::destroyModule( OriginId origin, const Gant::String & name ) {
   vex::pb::Request request;
   request.mutable_destroy_module()->set_name( name );
   noteOrigin( origin );
   open_.request( request );
   added( true );
}

void GrpcChannel::connectModules( OriginId origin, const Gant::String & from, GateId outGate, const Gant::String & to,
                                  GateId inGate ) {
   vex::pb::Request request;
   auto & connect = *request.mutable_connect_modules();
   connect.set_m1( from );
   connect.set_ogate( outGate );
   connect.set_m2( to );
   connect.set_igate( inGate );
   noteOrigin( origin );
   open_.request( request );
   added( true );
}

void GrpcChannel::disconnectModules( OriginId origin, const Gant::String & from, GateId outGate ) {
   vex::pb::Request request;
   auto & disconnect = *request.mutable_disconnect_modules();
   disconnect.set_name( from );
   disconnect.set_ogate( outGate );
   noteOrigin( origin );
   open_.request( request );
   added( true );
}

void GrpcChannel::command( OriginId origin, std::string_view module, std::string_view action, const Message & message,
                           bool changesForwarding ) {
   noteOrigin( origin );
   open_.command( module, action, message );
   added( changesForwarding );
}

void GrpcChannel::lookAfterPeer() {
   if ( const auto answers = inbox_->answers(); answers != std::exchange( answersSeen_, answers ) )
      liveness_.answered();
   const bool begins = !running_ && owner().empty();
   const bool owes = ( begins || !outstanding_.empty() ) && !inbox_->unread();
   if ( const auto reason = liveness_.turn( Gant::activityManager()->now(), owes ); !reason.empty() )
      return ended( reason, false );
   if ( !heartbeat_ )
      heartbeat_ = std::make_unique< Heartbeat >( transport_->channel(), [ this ]( bool vouches ) {
         liveness_.heard();
         liveness_.vouchedIs( vouches );
      } );
   heartbeat_->ask();
}

// Before the request is written, so that the open batch still tells its position.
void GrpcChannel::noteOrigin( OriginId origin ) {
   if ( openOrigins_.empty() || openOrigins_.back().second != origin )
      openOrigins_.emplace_back( open_.requests(), origin );
}

void GrpcChannel::added( bool changesForwarding ) {
   requestQueued( changesForwarding );
   if ( open_.requests() >= batchRequestsMax || open_.bytes() >= batchBytesMax ) {
      closeBatch();
      sendWaiting();
   } else if ( !flushPosted_ ) {
      flushPosted_ = true;
      Gant::activityManager()->post( [ self = Gant::Ptr< GrpcChannel >( this ) ] {
         self->flushPosted_ = false;
         self->sendWaiting();
      } );
   }
}

void GrpcChannel::closeBatch( bool inStep ) {
   if ( open_.empty() && !inStep ) return;
   const auto requests = open_.requests();
   const auto number = nextNumber_++;
   waiting_.push_back(
        { number, requests, std::exchange( openOrigins_, {} ), byteBuffer( open_.take( number, inStep ) ) } );
   // The messages of what was written are gone now.
   if ( arena_->SpaceUsed() > arenaMax ) arena_->Reset();
}

void GrpcChannel::sendWaiting() {
   if ( lost() ) {
      // The session is over, and what it had is fed to the next one from the state.
      closeBatch();
      waiting_.clear();
      return;
   }
   // A partly filled batch stays open while it could not leave anyway.
   if ( running_ && outstanding_.size() + waiting_.size() < outstandingMax ) closeBatch();
   while ( running_ && !waiting_.empty() && outstanding_.size() < outstandingMax ) {
      outstanding_.push_back( std::move( waiting_.front() ) );
      waiting_.pop_front();
      outstanding_.back().sent = Gant::activityManager()->now();
      transport_->send( outstanding_.back().bytes );
   }
}

void GrpcChannel::begun( const vex::pb::Hello & hello ) {
   GANT_TRACE( 1, "session with ", peer_.address, ", data plane ", hello.version(),
               streaming() ? ", by the batch stream" : ", by unary calls" );
   running_ = true;
   ownerIs( {}, 0 );
   dataPlaneVersion_ = hello.version();
   counterPath_ = hello.counter_path();
   routesMost_ = hello.max_routes();
   beside_ = hello.beside();
   sendWaiting();
}

void GrpcChannel::replied( const vex::pb::BatchReply & reply ) {
   if ( outstanding_.empty() || outstanding_.front().number != reply.number() ) {
      ended( "reply " + std::to_string( reply.number() ) + " to a batch that is not outstanding", false );
      return;
   }
   const auto batch = std::move( outstanding_.front() );
   outstanding_.pop_front();
   sendWaiting();
   const U64 before = requestsAcknowledged();
   if ( reply.refusal_size() != 0 && !refuse( batch, reply, before ) ) {
      ended( "reply " + std::to_string( reply.number() ) + " refuses what its batch does not have in that order",
             false );
      return;
   }
   for ( const auto & answer : reply.answer() )
      if ( answer.index() < batch.requests ) responseIs( batch.origin( answer.index() ), answer.data() );
   acknowledgedIs( before + batch.requests );
   if ( !reply.has_in_step() ) return;
   const auto & told = reply.in_step();
   inStep_ = InStep{ told.changed(), static_cast< double >( told.held() ) * 1e-9, told.early() };
   tellInStep();
}

void GrpcChannel::inStepIs() {
   closeBatch( true );
   sendWaiting();
}

void GrpcChannel::leave() {
   inbox_->close();
   ended( "it was left", false );
}

// Each refusal is told by its number. In words there are the newest ones, as many as are kept, the first of each run,
// and those of an origin that wants them. False: the data plane names requests that there are not.
bool GrpcChannel::refuse( const Batch & batch, const vex::pb::BatchReply & reply, U64 before ) {
   std::vector< grpc::Slice > slices;
   batch.bytes.Dump( &slices );
   const auto & slice = slices.front();
   BatchReader reader( { reinterpret_cast< const char * >( slice.begin() ), slice.size() } );
   const int rest = reply.refusal_size() - static_cast< int >( refusalsKept );
   S64 last = -1;
   U32 run = 0;
   Refusal refusal;
   for ( int i = 0; i < reply.refusal_size(); ++i ) {
      const auto & refused = reply.refusal( i );
      const auto index = refused.index();
      if ( index <= last || index >= batch.requests || !reader.to( index ) ) return false;
      last = index;
      refusedIs( before + index + 1, refused.error().code(), refused.error().errmsg() );
      const auto origin = batch.origin( index );
      if ( i < rest && reader.run() == run && !wantsRefusals( origin ) ) continue;
      run = reader.run();
      refusal = inWords( refused, reader.described() );
      if ( reply.refusal_size() <= tracedMost ) trace( refusal, "" );
      refusalIs( origin, refusal );
   }
   const auto now = Gant::activityManager()->now();
   if ( reply.refusal_size() <= tracedMost || now < floodTracedAt_ + 1 ) return true;
   floodTracedAt_ = now;
   trace( refusal, Gant::format( ", and %d others with it", reply.refusal_size() - 1 ) );
   return true;
}

void GrpcChannel::trace( const Refusal & refusal, const Gant::String & others ) const {
   GANT_TRACE( 0, "refused: ", refusal.module, " ", refusal.action, " ", refusal.argument, ": ", refusal.text, " (",
               refusal.code, ")", others );
}

Refusal GrpcChannel::inWords( const vex::pb::Refusal & refused, DescribedRequest request ) const {
   Refusal refusal;
   refusal.time = Gant::activityManager()->now();
   refusal.code = refused.error().code();
   refusal.text = refused.error().errmsg();
   if ( refused.has_status() ) refusal.status = refused.status().SerializeAsString();
   refusal.module = std::move( request.module );
   refusal.action = std::move( request.action );
   refusal.argument = std::move( request.argument );
   refusal.type = request.type;
   return refusal;
}

void GrpcChannel::ended( const Gant::String & reason, bool unimplemented ) {
   if ( unimplemented && !running_ && streaming() ) {
      GANT_TRACE( 1, peer_.address, " has no batch stream: falling back to unary calls" );
      heartbeat_ = nullptr;
      transport_ = unaryTransport( peer_, inbox_ );
      return;
   }
   running_ = false;
   lostIs( reason );
}

size_t GrpcChannel::requestsWaiting() const {
   size_t sum = open_.requests();
   for ( const auto & batch : waiting_ ) sum += batch.requests;
   return sum;
}

size_t GrpcChannel::requestsOutstanding() const {
   size_t sum = 0;
   for ( const auto & batch : outstanding_ ) sum += batch.requests;
   return sum;
}

size_t GrpcChannel::bytesWaiting() const {
   size_t sum = open_.bytes();
   for ( const auto & batch : waiting_ ) sum += batch.bytes.Length();
   return sum;
}

bool GrpcChannel::congested() const {
   constexpr size_t requestsMost = 65536, bytesMost = 16 << 20;
   return requestsWaiting() > requestsMost || bytesWaiting() > bytesMost;
}

double GrpcChannel::oldestOutstanding() const {
   return outstanding_.empty() ? 0 : Gant::activityManager()->now() - outstanding_.front().sent;
}

void GrpcChannel::describeQueue( size_t most,
                                 const std::function< void( const DescribedRequest &, bool ) > & each ) const {
   const auto walk = [ & ]( const std::deque< Batch > & batches, bool outstanding ) {
      for ( const auto & batch : batches ) {
         if ( most == 0 ) return;
         const auto parsed = batch.parsed();
         describe( parsed, 0, [ & ]( const DescribedRequest & request ) {
            each( request, outstanding );
            return --most > 0;
         } );
         cleanse( parsed );
      }
   };
   walk( outstanding_, true );
   walk( waiting_, false );
}

} // namespace Vex
