// Both services over real gRPC, on a Unix socket of this process.

#include "DpTestSupport.h"

#include "DpServer.h"
#include "DpVersion.h"
#include "Process.h"

#include "bess/control.grpc.pb.h"
#include "vex/engine.grpc.pb.h"
#include "vex/fib_ipv4.pb.h"

#include <grpcpp/grpcpp.h>

#include <chrono>
#include <filesystem>
#include <optional>

namespace {

using namespace DpTest;
using grpc::StatusCode;

// A client's side of a session.
class Client {
 public:
   // `agent` empty: one that says nothing of itself.
   explicit Client( vex::pb::Engine::Stub & stub, const std::string & agent = "", bool takeOver = false,
                    bool beside = false ) {
      if ( beside ) context_.AddMetadata( "vex-beside", "1" );
      if ( !agent.empty() ) context_.AddMetadata( "vex-agent", agent );
      if ( takeOver ) context_.AddMetadata( "vex-takeover", "1" );
      // A reply that never comes is a failure, not a test without an end.
      context_.set_deadline( std::chrono::system_clock::now() + std::chrono::seconds( 180 ) );
      stream_ = stub.Session( &context_ );
   }
   ~Client() { context_.TryCancel(); }

   // The next reply; nothing when the session is over.
   std::optional< vex::pb::BatchReply > read() {
      vex::pb::BatchReply reply;
      if ( !stream_->Read( &reply ) ) return std::nullopt;
      return reply;
   }
   bool send( const vex::pb::Batch & batch ) { return stream_->Write( batch ); }
   // One batch and its reply's refusals.
   Lines apply( std::string_view lines ) {
      EXPECT_TRUE( send( reader.batch( lines, ++number ) ) );
      const auto reply = read();
      if ( !reply ) return { "no reply" };
      EXPECT_EQ( reply->number(), number );
      return refusals( *reply );
   }
   grpc::Status end() {
      stream_->WritesDone();
      return stream_->Finish();
   }

   RequestReader reader;
   std::uint64_t number = 0;

 private:
   grpc::ClientContext context_;
   std::unique_ptr< grpc::ClientReaderWriter< vex::pb::Batch, vex::pb::BatchReply > > stream_;
};

class Services : public testing::Test {
 protected:
   Services() :
        counters_( directory_.path( "counters" ) ), engine_( counters_ ),
        server_( std::in_place, counting( engine_ ),
                 std::vector< std::string >{ "unix:" + directory_.path( "socket" ), "localhost:0" } ) {
      grpc::ChannelArguments arguments;
      arguments.SetMaxReceiveMessageSize( -1 );
      channel_ = grpc::CreateCustomChannel( server_->addresses()[ 0 ], grpc::InsecureChannelCredentials(), arguments );
      engineStub_ = vex::pb::Engine::NewStub( channel_ );
      controlStub_ = bess::pb::BESSControl::NewStub( channel_ );
   }
   ~Services() override {
      server_.reset();
      EXPECT_FALSE( std::filesystem::exists( directory_.path( "socket" ) ) );
   }

   // One packet was counted before anybody could ask.
   Vexdp::Engine & counting( Vexdp::Engine & engine ) {
      counters_.add( 7 );
      return engine;
   }

   // A session that has had its Hello.
   std::unique_ptr< Client > begin( const std::string & agent = "", bool takeOver = false ) {
      auto client = std::make_unique< Client >( *engineStub_, agent, takeOver );
      auto hello = client->read();
      // The session before may not have been seen to end.
      while ( hello && hello->has_owner() ) hello = client->read();
      EXPECT_TRUE( hello && hello->has_hello() && hello->number() == 0 );
      return client;
   }

   using Control = bess::pb::BESSControl::Stub;
   // A unary call of the control API. Whatever becomes of the request, the call arrives.
   template < class Response, class Request >
   Response call( grpc::Status ( Control::*method )( grpc::ClientContext *, const Request &, Response * ),
                  const Request & request = {} ) {
      grpc::ClientContext context;
      Response response;
      const auto status = ( controlStub_.get()->*method )( &context, request, &response );
      EXPECT_TRUE( status.ok() ) << status.error_message();
      return response;
   }

   Lines moduleNames() {
      Lines names;
      const auto modules = call( &Control::ListModules );
      for ( const auto & module : modules.modules() ) names.push_back( module.name() );
      return names;
   }

   const ::Test::Directory directory_;
   Vexdp::CounterTable counters_;
   Vexdp::Engine engine_;
   std::optional< Vexdp::Server > server_;
   std::shared_ptr< grpc::Channel > channel_;
   std::unique_ptr< vex::pb::Engine::Stub > engineStub_;
   std::unique_ptr< Control > controlStub_;
};

TEST_F( Services, aSessionIsGreetedAndEveryBatchAnsweredInOrder ) {
   Client client( *engineStub_ );
   const auto hello = client.read();
   ASSERT_TRUE( hello );
   EXPECT_EQ( hello->number(), 0u );
   EXPECT_EQ( hello->hello().version(), Vexdp::kVersion );
   EXPECT_EQ( hello->hello().counter_path(), directory_.path( "counters" ) );

   // Several before the first reply is read.
   const char * batches[] = { "create fib FibIpv4\n fib addVrf vrf: 0", "fib addVrf vrf: 0", "", "destroy fib" };
   for ( std::uint64_t number = 1; number <= std::size( batches ); ++number )
      ASSERT_TRUE( client.send( client.reader.batch( batches[ number - 1 ], number ) ) );
   const Lines expected[] = { {}, { "0 EEXIST fib: addVrf: VRF 0 is there already" }, {}, {} };
   for ( std::uint64_t number = 1; number <= std::size( batches ); ++number ) {
      const auto reply = client.read();
      ASSERT_TRUE( reply );
      EXPECT_EQ( reply->number(), number );
      EXPECT_EQ( refusals( *reply ), expected[ number - 1 ] );
   }
   EXPECT_TRUE( client.end().ok() );
}

TEST_F( Services, aSessionFindsNothingOfTheOneBefore ) {
   auto first = begin();
   EXPECT_EQ( first->apply( "create fib FibIpv4\n fib addVrf vrf: 0" ), Lines() );
   EXPECT_TRUE( first->end().ok() );
   // The data plane goes on forwarding when its agent is gone.
   EXPECT_EQ( moduleNames(), Lines{ "fib" } );

   counters_.add( 7 );
   auto second = begin();
   EXPECT_EQ( moduleNames(), Lines() );
   EXPECT_EQ( counters_.value( 7 ), 0u );
   EXPECT_EQ( second->apply( "create fib FibIpv4" ), Lines() );
}

// Whom it is told to wait for.
std::string ownerOf( Client & client ) {
   const auto reply = client.read();
   EXPECT_TRUE( reply && reply->number() == 0 && reply->has_owner() && reply->owner().since() > 1e9 );
   return reply ? reply->owner().agent() : "";
}

TEST_F( Services, aFurtherSessionStandsByUntilThoseBeforeItHaveEnded ) {
   auto first = begin( "first" );
   EXPECT_EQ( first->apply( "create fib FibIpv4" ), Lines() );
   Client second( *engineStub_, "second" );
   EXPECT_EQ( ownerOf( second ), "first" );
   Client early( *engineStub_ );
   EXPECT_EQ( ownerOf( early ), "first" );
   auto gone = std::make_unique< Client >( *engineStub_ );
   EXPECT_EQ( ownerOf( *gone ), "first" );
   Client last( *engineStub_ );
   EXPECT_EQ( ownerOf( last ), "first" );
   // Nothing of it is applied, and the owner goes on.
   EXPECT_TRUE( early.send( early.reader.batch( "destroy fib", 1 ) ) );
   EXPECT_EQ( early.read(), std::nullopt );
   EXPECT_EQ( early.end().error_message(), "a batch before the data plane is the client's" );
   gone.reset();
   EXPECT_EQ( first->apply( "fib addVrf vrf: 0" ), Lines() );

   EXPECT_TRUE( first->end().ok() );
   const auto hello = second.read();
   EXPECT_TRUE( hello && hello->has_hello() );
   EXPECT_EQ( ownerOf( last ), "second" );
   EXPECT_EQ( second.apply( "create fib FibIpv4" ), Lines() );
   EXPECT_EQ( second.apply( "destroy fib" ), Lines() );
   EXPECT_TRUE( second.end().ok() );
   EXPECT_TRUE( last.read()->has_hello() );
}

TEST_F( Services, aSessionBesideWhatForwardsTakesItsPlaceWhenItIsInStepAndAnyOtherEmptiesAll ) {
   auto first = begin();
   EXPECT_EQ( first->apply( "create fib FibIpv4" ), Lines() );
   const auto beside = [ this ] {
      auto client = std::make_unique< Client >( *engineStub_, "", true, true );
      const auto hello = client->read();
      EXPECT_TRUE( hello && hello->hello().beside() );
      EXPECT_EQ( moduleNames(), Lines() );
      return client;
   };
   // It ends before it is in step: the older one is still there.
   EXPECT_EQ( beside()->apply( "create other FibIpv4" ), Lines() );
   auto second = beside();
   EXPECT_EQ( second->apply( "create newer FibIpv4" ), Lines() );
   vex::pb::Batch batch = second->reader.batch( "newer addVrf vrf: 0", 2 );
   batch.set_in_step( true );
   EXPECT_TRUE( second->send( batch ) );
   EXPECT_TRUE( second->read()->in_step().changed() );
   EXPECT_TRUE( second->end().ok() );
   EXPECT_EQ( moduleNames(), Lines{ "newer" } );
   begin();
   EXPECT_EQ( moduleNames(), Lines() );
   EXPECT_FALSE( Client( *engineStub_, "", true, true ).read()->hello().beside() ) << "nothing forwards";
}

TEST_F( Services, aSessionIsTakenOver ) {
   auto older = begin();
   EXPECT_EQ( older->apply( "create fib FibIpv4" ), Lines() );
   auto newer = begin( "somebody else", true );
   EXPECT_EQ( older->read(), std::nullopt );
   const auto status = older->end();
   EXPECT_EQ( status.error_code(), StatusCode::ABORTED );
   EXPECT_EQ( status.error_message(), "taken over by somebody else" );
   EXPECT_EQ( newer->apply( "create fib FibIpv4" ), Lines() );

   // One that its client broke off doesn't matter to the next.
   newer.reset();
   auto newest = begin();
   EXPECT_EQ( newest->apply( "create fib FibIpv4" ), Lines() );
}

TEST_F( Services, aBatchOutOfItsOrderEndsTheSession ) {
   for ( const std::uint64_t number : { 0u, 1u, 3u } ) {
      auto client = begin();
      EXPECT_EQ( client->apply( "create fib FibIpv4" ), Lines() );
      EXPECT_TRUE( client->send( client->reader.batch( "destroy fib", number ) ) );
      EXPECT_EQ( client->read(), std::nullopt );
      const auto status = client->end();
      EXPECT_EQ( status.error_code(), StatusCode::INVALID_ARGUMENT );
      EXPECT_EQ( status.error_message(), fmt::format( "batch {} after batch 1", number ) );
      EXPECT_EQ( moduleNames(), Lines{ "fib" } );
   }
}

TEST_F( Services, aMessageThatIsNoBatchEndsTheSession ) {
   auto client = begin();
   vex::pb::Batch batch;
   batch.set_number( 1 );
   // Goes out as it is, and is no UTF-8.
   batch.add_request()->mutable_destroy_module()->set_name( "\xff" );
   EXPECT_TRUE( client->send( batch ) );
   EXPECT_EQ( client->read(), std::nullopt );
   EXPECT_EQ( client->end().error_message(), "a message that is no batch, after batch 0" );
}

TEST_F( Services, aBatchMayBeLargeAndSoMayItsReplyAndADump ) {
   auto client = begin();
   auto batch = client->reader.batch( "create fib FibIpv4\n fib addVrf vrf: 0", 1 );
   auto & run = *batch.add_request()->mutable_command();
   run.set_module( "fib" );
   run.set_cmd( "addRoute" );
   run.set_type( "vex.pb.FibIpv4RouteArg" );
   constexpr unsigned kRoutes = 300000;
   vex::pb::FibIpv4RouteArg route;
   route.set_vrf( 0 );
   route.set_prefix_len( 32 );
   for ( unsigned i = 0; i < kRoutes; ++i ) {
      route.set_prefix( 0xffffffff - i );
      route.set_fec_id( 70000 + i );
      route.SerializeToString( run.add_arg() );
   }
   ASSERT_GT( batch.ByteSizeLong(), 4u << 20 );
   ASSERT_TRUE( client->send( batch ) );
   auto reply = client->read();
   ASSERT_TRUE( reply );
   EXPECT_EQ( reply->refusal_size(), 0 );

   ASSERT_TRUE( client->send( client->reader.batch( "fib showFib vrf: 0", 2 ) ) );
   reply = client->read();
   ASSERT_TRUE( reply && reply->answer_size() == 1 );
   vex::pb::FibIpv4ReadFibResp fib;
   ASSERT_TRUE( reply->answer( 0 ).data().UnpackTo( &fib ) );
   EXPECT_EQ( fib.fibinfo_size(), int( kRoutes ) );

   grpc::ClientContext context;
   auto dump = engineStub_->Dump( &context, {} );
   unsigned dumped = 0;
   for ( vex::pb::Batch part; dump->Read( &part ); ) {
      EXPECT_EQ( part.number(), 2u );
      for ( const auto & request : part.request() ) dumped += unsigned( request.command().arg_size() );
   }
   EXPECT_TRUE( dump->Finish().ok() );
   EXPECT_EQ( dumped, kRoutes + 1 );
}

TEST_F( Services, theControlApiSeesAndChangesTheSameGraph ) {
   auto client = begin();
   EXPECT_EQ( client->apply( coreLines() + ethernetLines( "et1", 1 ) + ethernetLines( "et2", 2 ) ), Lines() );

   bess::pb::GetModuleInfoRequest asked;
   asked.set_name( "IpOutput_et2" );
   bess::pb::GetModuleInfoResponse expected;
   const std::string track = "gatehooks { class_name: 'Track' hook_name: 'track' }";
   parse( "name: 'IpOutput_et2' mclass: 'IpOutput' desc: 'MTU 1500' igates { igate: 0 " + track +
               " ogates { ogate: 2 name: 'fibIpv4' } } ogates { ogate: 0 name: 'trap' igate: 0 " + track +
               "} ogates { ogate: 1 name: 'NextHop_et2' igate: 0 " + track + "}",
          expected );
   EXPECT_EQ( call( &Control::GetModuleInfo, asked ).DebugString(), expected.DebugString() );
   asked.set_name( "trap" );
   Lines upstream;
   const auto trap = call( &Control::GetModuleInfo, asked );
   ASSERT_EQ( trap.igates_size(), 1 );
   for ( const auto & from : trap.igates( 0 ).ogates() )
      upstream.push_back( fmt::format( "{}:{}", from.name(), from.ogate() ) );
   EXPECT_EQ( upstream,
              ( Lines{ "ForUsClassifyIpv4:0", "IpInput_et1:0", "IpInput_et2:0", "IpOutput_et1:0", "IpOutput_et2:0",
                       "NextHop_et1:0", "NextHop_et2:0", "classify_et1:0", "classify_et2:0" } ) );

   bess::pb::CommandRequest command;
   command.set_name( "fibIpv4" );
   command.set_cmd( "addRoute" );
   EXPECT_EQ( call( &Control::ModuleCommand, command ).error().errmsg(),
              "fibIpv4: addRoute: the argument is of type \"\" instead of vex.pb.FibIpv4RouteArg" );
   vex::pb::FibIpv4RouteArg route;
   parse( "vrf: 0 prefix: @10.0.0.0 prefix_len: 8 fec_id: 1", route );
   command.mutable_arg()->PackFrom( route );
   EXPECT_EQ( call( &Control::ModuleCommand, command ).error().code(), 0 );
   vex::pb::FibIpv4ShowArg show;
   show.set_vrf( 0 );
   command.set_cmd( "showFib" );
   command.mutable_arg()->PackFrom( show );
   vex::pb::FibIpv4ReadFibResp fib;
   ASSERT_TRUE( call( &Control::ModuleCommand, command ).data().UnpackTo( &fib ) );
   EXPECT_EQ( fib.fibinfo( 0 ).prefix(), "10.0.0.0" );

   bess::pb::DestroyModuleRequest destroy;
   destroy.set_name( "trap" );
   EXPECT_EQ( call( &Control::DestroyModule, destroy ).error().code(), 0 );
   EXPECT_EQ( call( &Control::DestroyModule, destroy ).error().code(), ENOENT );
   asked.set_name( "IpOutput_et2" );
   EXPECT_EQ( call( &Control::GetModuleInfo, asked ).ogates_size(), 1 );
   asked.set_name( "trap" );
   EXPECT_EQ( call( &Control::GetModuleInfo, asked ).error().errmsg(), "trap: GetModuleInfo: no such module" );
}

TEST_F( Services, theControlApiAnswersWithoutASession ) {
   EXPECT_EQ( call( &Control::GetVersion ).version(), Vexdp::kVersion );
   EXPECT_EQ( call( &Control::ListMclass ).names( 1 ), "FibIpv4" );
   bess::pb::GetMclassInfoRequest mclass;
   mclass.set_name( "Nothing" );
   EXPECT_EQ( call( &Control::GetMclassInfo, mclass ).error().errmsg(),
              "Nothing: GetMclassInfo: no such module class" );

   bess::pb::CreateModuleRequest create;
   create.set_mclass( "PortTxCp" );
   auto created = call( &Control::CreateModule, create );
   EXPECT_EQ( created.error().code(), EINVAL );
   EXPECT_EQ( created.name(), "" );
   create.set_mclass( "Trap" );
   created = call( &Control::CreateModule, create );
   EXPECT_EQ( moduleNames(), Lines{ created.name() } );

   call( &Control::PauseAll );
   call( &Control::ResetModules );
   call( &Control::ResumeAll );
   EXPECT_EQ( moduleNames(), Lines() );
   EXPECT_EQ( counters_.value( 7 ), 1u );
   call( &Control::CreateModule, create );
   call( &Control::ResetAll );
   EXPECT_EQ( moduleNames(), Lines() );
   EXPECT_EQ( counters_.value( 7 ), 0u );
}

// What `show`, `monitor`, `track`, `check constraints` and `add` and `delete` of BESS's command line ask.
TEST_F( Services, workersClassesAndHooksAreAsTheyAreSaidToBe ) {
   const auto worker = []( std::int64_t wid ) {
      bess::pb::WorkerRequest request;
      request.set_wid( wid );
      return request;
   };
   const auto added = [ & ]( std::int64_t wid ) {
      bess::pb::AddWorkerRequest request;
      request.set_wid( wid );
      return call( &Control::AddWorker, request ).error().code();
   };
   const auto workers = [ & ] {
      std::string text;
      const auto reply = call( &Control::ListWorkers );
      for ( const auto & each : reply.workers_status() )
         text += fmt::format( "{} {} {};", each.wid(), each.running(), each.num_tcs() );
      return text;
   };
   bess::pb::CreatePortRequest port;
   bess::pb::UnixSocketPortArg arg;
   arg.set_path( "@vexdp-test-" + std::to_string( getpid() ) );
   port.set_name( "et1" );
   port.set_driver( "UnixSocketPort" );
   port.mutable_arg()->PackFrom( arg );
   bess::pb::DestroyPortRequest gone;
   gone.set_name( "et1" );
   bess::pb::ListTcsRequest all;
   all.set_wid( -1 );
   bess::pb::GetTcStatsRequest stats;
   stats.set_name( "et1" );

   EXPECT_EQ( workers(), "" );
   EXPECT_EQ( added( 1 ), ENOSPC );
   EXPECT_EQ( added( 0 ), 0 );
   EXPECT_EQ( added( 0 ), EEXIST );
   EXPECT_EQ( call( &Control::CreatePort, port ).error().code(), 0 );
   EXPECT_EQ( workers(), "0 true 1;" );
   EXPECT_EQ( call( &Control::PauseWorker, worker( 7 ) ).error().code(), ENOENT );
   EXPECT_EQ( call( &Control::PauseWorker, worker( 0 ) ).error().code(), 0 );
   EXPECT_EQ( workers(), "0 false 1;" );
   const auto classes = call( &Control::ListTcs, all );
   ASSERT_EQ( classes.classes_status_size(), 1 );
   EXPECT_EQ( classes.classes_status( 0 ).class_().ShortDebugString(), R"(name: "et1" blocked: true policy: "leaf")" );
   EXPECT_EQ( call( &Control::ResumeWorker, worker( 0 ) ).error().code(), 0 );
   EXPECT_EQ( call( &Control::GetTcStats, stats ).packets(), 0u );
   EXPECT_EQ( call( &Control::AddTc, {} ).error().code(), EOPNOTSUPP );
   EXPECT_EQ( call( &Control::DestroyWorker, worker( 0 ) ).error().code(), EBUSY );
   EXPECT_EQ( call( &Control::DestroyPort, gone ).error().code(), 0 );
   EXPECT_EQ( call( &Control::GetTcStats, stats ).error().code(), ENOENT );
   EXPECT_EQ( call( &Control::DestroyWorker, worker( 0 ) ).error().code(), 0 );
   EXPECT_EQ( workers(), "" );
   EXPECT_EQ( call( &Control::ResetTcs ).error().code() + call( &Control::ResetWorkers ).error().code(), 0 );
   EXPECT_FALSE( call( &Control::CheckSchedulingConstraints ).fatal() );
   EXPECT_EQ( call( &Control::ListPlugins ).paths_size(), 0 );

   auto client = begin();
   EXPECT_EQ( client->apply( coreLines() ), Lines() );
   EXPECT_EQ( client->apply( ethernetLines( "et1", 1 ) ), Lines() );
   const auto hookClasses = call( &Control::ListGateHookClass ).names();
   EXPECT_EQ( Lines( hookClasses.begin(), hookClasses.end() ), ( Lines{ "Track", "TcpDump", "PcapNg" } ) );
   bess::pb::GetGateHookClassInfoRequest hookClass;
   hookClass.set_name( "Track" );
   EXPECT_EQ( call( &Control::GetGateHookClassInfo, hookClass ).cmds( 0 ), "reset" );
   bess::pb::GetModuleInfoRequest asked;
   asked.set_name( "rx_et1" );
   EXPECT_EQ( call( &Control::GetModuleInfo, asked ).ogates( 0 ).gatehooks( 0 ).class_name(), "Track" );
   EXPECT_GT( call( &Control::ListGateHooks ).hooks_size(), 0 );
   const auto configured = [ & ]( const char * mclass, const char * module, bool enable ) {
      bess::pb::ConfigureGateHookRequest request;
      request.mutable_hook()->set_class_name( mclass );
      request.mutable_hook()->set_module_name( module );
      bess::pb::TcpdumpArg none;
      none.set_fifo( "/nowhere" );
      request.mutable_hook()->mutable_arg()->PackFrom( none );
      request.set_enable( enable );
      return call( &Control::ConfigureGateHook, request ).error().code();
   };
   EXPECT_EQ( configured( "Track", "rx_et1", true ), 0 );
   EXPECT_EQ( configured( "Track", "rx_et1", false ), EOPNOTSUPP );
   EXPECT_EQ( configured( "TcpDump", "rx_et9", true ), ENOENT );
   EXPECT_EQ( configured( "TcpDump", "rx_et1", true ), ENOENT );
   EXPECT_EQ( configured( "TcpDump", "rx_et1", false ), ENOENT );
   bess::pb::GateHookCommandRequest reset;
   reset.mutable_hook()->set_class_name( "Track" );
   reset.set_cmd( "reset" );
   EXPECT_EQ( call( &Control::GateHookCommand, reset ).error().code(), 0 );
   reset.mutable_hook()->set_module_name( "rx_et1" );
   reset.mutable_hook()->set_ogate( 0 );
   EXPECT_EQ( call( &Control::GateHookCommand, reset ).error().code(), 0 );
   reset.mutable_hook()->set_ogate( std::int64_t( 1 ) << 32 );
   EXPECT_EQ( call( &Control::GateHookCommand, reset ).error().code(), ENOENT );
   reset.set_cmd( "forget" );
   EXPECT_EQ( call( &Control::GateHookCommand, reset ).error().code(), EOPNOTSUPP );
}

TEST_F( Services, aServerEndsInTheMiddleOfASession ) {
   auto client = begin();
   server_.reset();
   EXPECT_EQ( client->read(), std::nullopt );
   EXPECT_FALSE( client->end().ok() );
}

} // namespace
