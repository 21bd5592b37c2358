#include "bess/control.grpc.pb.h"
#include "google/rpc/error_details.pb.h"
#include "google/rpc/status.pb.h"
#include "KynetAddr.h"
#include "vex/engine.grpc.pb.h"
#include "vex/fib_ipv4.pb.h"
#include "VexDescribe.h"
#include "VexGrpcChannel.h"
#include "VexModuleConfig.h"
#include "VexTransport.h"

#include <condition_variable>
#include <filesystem>
#include <future>
#include <grpcpp/server_builder.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using Gant::String;

String somePath() {
   static int number = 0;
   return "unix:" +
          ( std::filesystem::temp_directory_path() / Gant::format( "vex-channel-%d-%d", getpid(), number++ ) ).string();
}

// What a data plane was asked, in words, and what it is told to refuse.
class Book {
 public:
   void note( const String & line ) {
      const std::lock_guard lock( mutex_ );
      lines_.push_back( line );
   }
   std::vector< String > lines() {
      const std::lock_guard lock( mutex_ );
      return lines_;
   }
   String refused;

 private:
   std::mutex mutex_;
   std::vector< String > lines_;
};

// A stream that answers batches only as far as the test lets it.
class FakeEngine : public vex::pb::Engine::Service {
 public:
   explicit FakeEngine( Book & book ) : book_( book ) {}

   grpc::Status Session( grpc::ServerContext *,
                         grpc::ServerReaderWriter< vex::pb::BatchReply, vex::pb::Batch > * stream ) override {
      vex::pb::BatchReply hello;
      hello.mutable_hello()->set_version( "fake 1" );
      stream->Write( hello );
      vex::pb::Batch batch;
      while ( stream->Read( &batch ) ) {
         if ( !waitForPermission() ) return grpc::Status( grpc::StatusCode::ABORTED, "told to end" );
         stream->Write( answer( batch ) );
      }
      return grpc::Status::OK;
   }

   void allow( int batches ) {
      const std::lock_guard lock( mutex_ );
      allowed_ += batches;
      changed_.notify_all();
   }
   void end() {
      const std::lock_guard lock( mutex_ );
      ending_ = true;
      changed_.notify_all();
   }

 private:
   bool waitForPermission() {
      std::unique_lock lock( mutex_ );
      changed_.wait( lock, [ this ] { return ending_ || allowed_ > 0; } );
      --allowed_;
      return !ending_;
   }

   vex::pb::BatchReply answer( const vex::pb::Batch & batch ) {
      vex::pb::BatchReply reply;
      reply.set_number( batch.number() );
      U32 index = 0;
      Vex::describe( batch, 0, [ & ]( const Vex::DescribedRequest & request ) {
         const auto line = request.module + " " + request.action + " " + request.argument;
         book_.note( line );
         if ( !book_.refused.empty() && line.find( book_.refused ) != line.npos ) refuse( reply, index, line );
         if ( request.action == "showFib" ) {
            auto & shown = *reply.add_answer();
            shown.set_index( index );
            shown.mutable_data()->PackFrom( vex::pb::FibIpv4ReadFibResp() );
         }
         ++index;
         return true;
      } );
      return reply;
   }
   static void refuse( vex::pb::BatchReply & reply, U32 index, const String & line ) {
      auto & refusal = *reply.add_refusal();
      refusal.set_index( index );
      refusal.mutable_error()->set_code( EINVAL );
      refusal.mutable_error()->set_errmsg( "no: " + line );
      refusal.mutable_status()->set_code( grpc::StatusCode::INVALID_ARGUMENT );
      google::rpc::ErrorInfo info;
      info.set_reason( "EINVAL" );
      refusal.mutable_status()->add_details()->PackFrom( info );
   }

   Book & book_;
   std::mutex mutex_;
   std::condition_variable changed_;
   int allowed_ = 0;
   bool ending_ = false;
};

// The control API alone.
class FakeControl : public bess::pb::BESSControl::Service {
 public:
   explicit FakeControl( Book & book ) : book_( book ) {}
   grpc::Status GetVersion( grpc::ServerContext *, const bess::pb::EmptyRequest *,
                            bess::pb::VersionResponse * response ) override {
      response->set_version( "unary 1" );
      return grpc::Status::OK;
   }
   grpc::Status ResetAll( grpc::ServerContext *, const bess::pb::EmptyRequest *, bess::pb::EmptyResponse * ) override {
      book_.note( "reset" );
      return grpc::Status::OK;
   }
   grpc::Status CreateModule( grpc::ServerContext *, const bess::pb::CreateModuleRequest * request,
                              bess::pb::CreateModuleResponse * response ) override {
      book_.note( "create " + request->name() );
      if ( request->name() == book_.refused ) {
         response->mutable_error()->set_code( EEXIST );
         response->mutable_error()->set_errmsg( "name in use" );
      }
      return grpc::Status::OK;
   }
   grpc::Status ModuleCommand( grpc::ServerContext *, const bess::pb::CommandRequest * request,
                               bess::pb::CommandResponse * response ) override {
      book_.note( request->cmd() + " " + request->arg().type_url() );
      if ( request->cmd() == "showFib" ) response->mutable_data()->PackFrom( vex::pb::FibIpv4ReadFibResp() );
      return grpc::Status::OK;
   }

 private:
   Book & book_;
};

struct Listener : Gant::StateMachine {
   explicit Listener( const Gant::Ptr< Vex::GrpcChannel > & channel ) : reactor( this, channel ) {}
   struct GantChannel : Vex::Channel::Notifiee {
      GantChannel( Listener * owner, const Gant::Ptr< Vex::GrpcChannel > & channel ) :
           Notifiee( owner, channel ), owner( owner ) {}
      void onRefusal( const Vex::Refusal & refusal ) override { owner->refusals.push_back( refusal ); }
      void onLost() override { ++owner->losses; }
      Listener * owner;
   };
   std::vector< Vex::Refusal > refusals;
   int losses = 0;
   GantChannel reactor;
};

class GrpcChannel : public testing::Test {
 protected:
   void TearDown() override {
      engine.end();
      letGo();
      if ( server ) server->Shutdown();
   }
   // The session ends with the last reference.
   void letGo() {
      listener = nullptr;
      pair = nullptr;
      global = nullptr;
      channel = nullptr;
   }
   void start( std::initializer_list< grpc::Service * > services ) {
      grpc::ServerBuilder builder;
      builder.AddListeningPort( address, grpc::InsecureServerCredentials() );
      for ( auto * const service : services ) builder.RegisterService( service );
      server = builder.BuildAndStart();
   }
   void connect( double silenceMost = 0 ) {
      channel = Gant::make< Vex::GrpcChannel >( address, false, silenceMost );
      listener = Gant::make< Listener >( channel );
      global = Gant::make< Vex::ModuleGlobalCmdConfig >( channel );
      pair = global->moduleConfigStatusPairIs( "l3" );
   }
   // Turns the loop until the condition holds.
   template < typename Condition >
   void until( Condition condition ) {
      while ( !condition() ) Gant::activityManager()->poll();
   }
   void untilAcknowledged( U64 requests ) {
      until( [ & ] { return channel->requestsAcknowledged() >= requests || channel->lost(); } );
   }
   void addRoute( U32 prefix ) {
      vex::pb::FibIpv4RouteArg arg;
      arg.set_prefix( prefix );
      channel->command( pair->moduleConfig()->origin(), "fib", "addRoute", arg, true );
   }
   void showFib() {
      channel->command( pair->moduleConfig()->origin(), "fib", "showFib", vex::pb::FibIpv4ShowArg(), false );
   }

   String address = somePath();
   Book book;
   FakeEngine engine{ book };
   FakeControl control{ book };
   std::unique_ptr< grpc::Server > server;
   Gant::Ptr< Vex::GrpcChannel > channel;
   Gant::Ptr< Listener > listener;
   Gant::Ptr< Vex::ModuleGlobalCmdConfig > global;
   Gant::Ptr< Vex::ModuleConfigStatusPair > pair;
};

TEST_F( GrpcChannel, requestsArriveInTheOrderOfQueuingAndAreAcknowledged ) {
   start( { &engine } );
   connect();
   engine.allow( 100 );
   channel->createModule( pair->moduleConfig()->origin(), "fib", "FibIpv4", nullptr );
   addRoute( 1 );
   channel->connectModules( pair->moduleConfig()->origin(), "fib", Vex::GateId( 3 ), "out", Vex::GateId( 0 ) );
   addRoute( 2 );
   channel->disconnectModules( pair->moduleConfig()->origin(), "fib", Vex::GateId( 3 ) );
   channel->destroyModule( pair->moduleConfig()->origin(), "fib" );
   EXPECT_EQ( channel->requestsWaiting(), 6u );
   untilAcknowledged( 6 );
   EXPECT_EQ( book.lines(), ( std::vector< String >{ "fib create FibIpv4", "fib addRoute prefix 0.0.0.1",
                                                     "fib connect fib:3 -> out:0", "fib addRoute prefix 0.0.0.2",
                                                     "fib disconnect fib:3", "fib destroy " } ) );
   EXPECT_TRUE( channel->streaming() );
   EXPECT_EQ( channel->dataPlaneVersion(), "fake 1" );
   EXPECT_EQ( channel->forwardingGeneration(), 6u );
   EXPECT_EQ( channel->requestsWaiting() + channel->requestsOutstanding(), 0u );
}

// The loop hears of an end later than the transport's thread, and may have sent meanwhile.
TEST_F( GrpcChannel, whatIsSentAfterTheEndOfTheStreamIsForgotten ) {
   class Sink : public Vex::TransportSink {
    public:
      void reply( std::unique_ptr< vex::pb::BatchReply > ) override {}
      void progress() override {}
      void end( const String & reason, bool ) override { ended.set_value( reason ); }
      std::promise< String > ended;
   };
   start( { &engine } );
   engine.end();
   const grpc::Slice empty( "" );
   const grpc::ByteBuffer batch( &empty, 1 );
   // Many times, since the two threads have to meet.
   for ( int round = 0; round < 50; ++round ) {
      const auto sink = std::make_shared< Sink >();
      const auto transport = Vex::streamTransport( address, sink, {} );
      transport->send( batch );
      EXPECT_EQ( sink->ended.get_future().get(), "told to end" );
      for ( int n = 0; n < 1000; ++n ) transport->send( batch );
   }
}

TEST_F( GrpcChannel, aSlowDataPlaneHoldsTheQueueAndNothingIsLost ) {
   start( { &engine } );
   connect();
   constexpr U32 batches = 20, total = batches * Vex::GrpcChannel::batchRequestsMax;
   for ( U32 i = 0; i < total; ++i ) addRoute( i );
   until( [ & ] { return channel->running(); } );
   EXPECT_EQ( channel->requestsOutstanding(), Vex::GrpcChannel::outstandingMax * Vex::GrpcChannel::batchRequestsMax );
   EXPECT_EQ( channel->requestsWaiting(), total - channel->requestsOutstanding() );
   EXPECT_GT( channel->bytesWaiting(), 0u );
   std::vector< String > queue;
   channel->describeQueue( 3, [ & ]( const Vex::DescribedRequest & request, bool outstanding ) {
      queue.push_back( ( outstanding ? "sent " : "waiting " ) + request.action + " " + request.argument );
   } );
   EXPECT_EQ( queue, ( std::vector< String >{ "sent addRoute prefix 0.0.0.0", "sent addRoute prefix 0.0.0.1",
                                              "sent addRoute prefix 0.0.0.2" } ) );
   engine.allow( 1 );
   untilAcknowledged( 1 );
   EXPECT_EQ( channel->requestsAcknowledged(), Vex::GrpcChannel::batchRequestsMax );
   engine.allow( 1000 );
   untilAcknowledged( total );
   const auto lines = book.lines();
   ASSERT_EQ( lines.size(), total );
   EXPECT_EQ( lines.back(), "fib addRoute prefix " + Kynet::IpAddr( total - 1 ).stringValue() );
}

TEST_F( GrpcChannel, aRefusalComesBackWithItsRequestAndTheRestGoesOn ) {
   start( { &engine } );
   connect();
   engine.allow( 100 );
   book.refused = "prefix 0.0.0.7";
   const auto other = global->moduleConfigStatusPairIs( "other" );
   other->moduleConfig()->errorHandlingEnabledIs( true );
   pair->moduleConfig()->errorHandlingEnabledIs( true );
   vex::pb::FibIpv4RouteArg arg;
   channel->command( other->moduleConfig()->origin(), "fib", "addRoute", arg, true );
   for ( U32 i = 0; i < 10; ++i ) addRoute( i );
   untilAcknowledged( 11 );
   ASSERT_EQ( listener->refusals.size(), 1u );
   const auto & refusal = listener->refusals[ 0 ];
   EXPECT_EQ( refusal.module, "fib" );
   EXPECT_EQ( refusal.action, "addRoute" );
   EXPECT_EQ( refusal.argument, "prefix 0.0.0.7" );
   EXPECT_EQ( refusal.code, EINVAL );
   EXPECT_EQ( refusal.text, "no: fib addRoute prefix 0.0.0.7" );
   google::rpc::Status status;
   google::rpc::ErrorInfo info;
   ASSERT_TRUE( status.ParseFromString( refusal.status ) && status.details_size() == 1 );
   ASSERT_TRUE( status.details( 0 ).UnpackTo( &info ) );
   EXPECT_EQ( info.reason(), "EINVAL" );
   EXPECT_EQ( channel->requestsRefused(), 1u );
   EXPECT_EQ( channel->refusals().size(), 1u );
   // It reached the queue of its own pair, and of no other.
   const auto event = pair->moduleStatus()->errorQueueDeq();
   ASSERT_TRUE( event );
   EXPECT_EQ( event->cmdType(), Vex::GrpcRequestType::moduleCommand_ );
   EXPECT_EQ( event->cmdAction(), "addRoute" );
   EXPECT_EQ( event->errorCode(), EINVAL );
   EXPECT_FALSE( pair->moduleStatus()->errorQueueDeq() );
   EXPECT_FALSE( other->moduleStatus()->errorQueueDeq() );
}

TEST_F( GrpcChannel, anAnswerReachesThePairThatAsked ) {
   start( { &engine } );
   connect();
   engine.allow( 1 );
   showFib();
   untilAcknowledged( 1 );
   const auto event = pair->moduleStatus()->responseQueueDeq();
   ASSERT_TRUE( event );
   EXPECT_EQ( channel->forwardingGeneration(), 0u );
   // One that is gone meanwhile is not missed.
   showFib();
   global = nullptr;
   pair = nullptr;
   engine.allow( 1 );
   untilAcknowledged( 2 );
}

TEST_F( GrpcChannel, withoutTheStreamTheSameRequestsGoOneByOne ) {
   start( { &control } );
   connect();
   book.refused = "twice";
   channel->createModule( pair->moduleConfig()->origin(), "twice", "FibIpv4", nullptr );
   addRoute( 1 );
   showFib();
   untilAcknowledged( 3 );
   EXPECT_FALSE( channel->streaming() );
   EXPECT_EQ( channel->dataPlaneVersion(), "unary 1" );
   const String any = "type.googleapis.com/vex.pb.";
   EXPECT_EQ( book.lines(), ( std::vector< String >{ "reset", "create twice", "addRoute " + any + "FibIpv4RouteArg",
                                                     "showFib " + any + "FibIpv4ShowArg" } ) );
   ASSERT_EQ( listener->refusals.size(), 1u );
   EXPECT_EQ( listener->refusals[ 0 ].type, Vex::GrpcRequestType::createModule_ );
   EXPECT_EQ( listener->refusals[ 0 ].text, "name in use" );
   google::rpc::Status status;
   google::rpc::ErrorInfo info;
   ASSERT_TRUE( status.ParseFromString( listener->refusals[ 0 ].status ) && status.details( 0 ).UnpackTo( &info ) );
   EXPECT_EQ( info.reason(), "EEXIST" );
   EXPECT_EQ( info.metadata().at( "module" ), "twice" );
   EXPECT_TRUE( pair->moduleStatus()->responseQueueDeq() );
   server->Shutdown();
   addRoute( 2 );
   until( [ & ] { return channel->lost(); } );
   EXPECT_EQ( listener->losses, 1 );
}

TEST_F( GrpcChannel, lossIsToldOnceAndQueuingAfterwardsIsHarmless ) {
   start( { &engine } );
   connect();
   addRoute( 1 );
   until( [ & ] { return channel->requestsOutstanding() == 1; } );
   engine.end();
   until( [ & ] { return channel->lost(); } );
   EXPECT_EQ( channel->lossReason(), "told to end" );
   EXPECT_EQ( listener->losses, 1 );
   for ( U32 i = 0; i < 3 * Vex::GrpcChannel::batchRequestsMax; ++i ) addRoute( i );
   Gant::activityManager()->poll();
   EXPECT_EQ( channel->requestsWaiting(), 0u );
   EXPECT_EQ( channel->requestsAcknowledged(), 0u );
}

TEST_F( GrpcChannel, aDataPlaneThatOwesAnAnswerIsLostUnlessItAnswersHeartbeats ) {
   start( { &engine, &control } );
   connect( 0.5 ); // a machine that is busy answers late
   addRoute( 1 );
   const auto begun = Gant::activityManager()->now();
   until( [ & ] { return Gant::activityManager()->now() > begun + 2; } );
   EXPECT_FALSE( channel->lost() );
   until( [ & ] { return channel->lost(); } );
   EXPECT_EQ( channel->lossReason(), "the data plane has owed an answer for 5 s" );
}

TEST_F( GrpcChannel, aListenerThatNeverAnswersIsALoss ) {
   sockaddr_un path{ AF_UNIX, {} };
   address.copy( path.sun_path, sizeof( path.sun_path ) - 1, std::strlen( "unix:" ) );
   sockaddr_in port{ AF_INET, 0, { htonl( INADDR_LOOPBACK ) }, {} };
   for ( const bool tcp : { false, true } ) {
      auto * const where = tcp ? reinterpret_cast< sockaddr * >( &port ) : reinterpret_cast< sockaddr * >( &path );
      socklen_t size = tcp ? sizeof( port ) : sizeof( path );
      const int fd = socket( where->sa_family, SOCK_STREAM, 0 );
      ASSERT_EQ( bind( fd, where, size ), 0 );
      ASSERT_EQ( listen( fd, 8 ), 0 );
      ASSERT_EQ( getsockname( fd, where, &size ), 0 );
      if ( tcp ) address = Gant::format( "127.0.0.1:%d", ntohs( port.sin_port ) );
      connect( 0.1 );
      until( [ & ] { return channel->lost(); } );
      EXPECT_EQ( channel->lossReason(), "the data plane has been silent for 0.1 s" );
      // Its first words come in the time of the next session, and find the connection closed.
      letGo();
      connect();
      const int peer = accept4( fd, nullptr, nullptr, SOCK_NONBLOCK );
      const char settings[ 9 ] = { 0, 0, 0, 4 };
      send( peer, settings, sizeof( settings ), MSG_NOSIGNAL );
      ssize_t got = -1;
      char bytes[ 256 ];
      for ( const auto end = Gant::activityManager()->now() + 5; got != 0 && Gant::activityManager()->now() < end; ) {
         Gant::activityManager()->poll();
         got = recv( peer, bytes, sizeof( bytes ), 0 );
         if ( got < 0 && errno == ECONNRESET ) got = 0;
      }
      EXPECT_EQ( got, 0 ) << address;
      letGo();
      close( peer );
      close( fd );
   }
}

TEST( Liveness, aTurnThatComesLateIsNobodysSilence ) {
   Vex::Liveness liveness( 3 );
   for ( const double now : { 0.0, 0.3, 3600.0, 7200.0, 10800.0, 14400.0 } )
      EXPECT_EQ( liveness.turn( now, true ), "" );
   EXPECT_EQ( liveness.turn( 18000, true ), "the data plane has been silent for 3 s" );
   // It speaks, and what it owes does not come.
   for ( double now = 18000; now < 18002.7; now += 0.3 ) {
      liveness.heard();
      EXPECT_EQ( liveness.turn( now, now > 18000 ), "" );
   }
   liveness.heard();
   EXPECT_EQ( liveness.turn( 18003.3, true ), "the data plane has owed an answer for 3 s" );
}

TEST_F( GrpcChannel, aChannelMayGoInTheMiddleOfEverything ) {
   start( { &engine } );
   connect();
   for ( U32 i = 0; i < 3 * Vex::GrpcChannel::batchRequestsMax; ++i ) addRoute( i );
   until( [ & ] { return channel->requestsOutstanding() > 0; } );
   letGo();
   Gant::activityManager()->poll();
}

} // namespace
