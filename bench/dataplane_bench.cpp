// The data plane end to end: a vexdp of its own process, driven through one session on a Unix socket. The requests are
// built before the clock starts, and it stops when the last of them is acknowledged.
//
//    dataplane_bench [routes]      1,000,000 when it isn't said

#include "BenchProcess.h"
#include "DpPrefixes.h"

#include "bess/control.grpc.pb.h"
#include "vex/engine.grpc.pb.h"
#include "vex/fib_ipv4.pb.h"

#include <fmt/format.h>
#include <grpcpp/grpcpp.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using Bench::Clock;
using Bench::DataPlane;
using Bench::secondsSince;
using vex::pb::Batch;
using vex::pb::BatchReply;

class Session {
 public:
   // `beside` what forwards, of a session that has ended.
   explicit Session( const std::shared_ptr< grpc::Channel > & channel, bool beside = false ) :
        stub_( vex::pb::Engine::NewStub( channel ) ) {
      if ( beside ) context_.AddMetadata( "vex-beside", "1" );
      stream_ = stub_->Session( &context_ );
      while ( !read().has_hello() ) {
      }
   }
   ~Session() {
      stream_->WritesDone();
      stream_->Finish();
   }

   // Microseconds that packets wait for the change to its graph.
   double changeOver() {
      Batch batch;
      batch.set_number( ++number_ );
      batch.set_in_step( true );
      stream_->Write( batch );
      const auto done = read().in_step();
      if ( !done.changed() ) throw std::runtime_error( "no other graph forwarded" );
      return double( done.held() ) / 1e3;
   }

   // Sends all batches, reads as they are acknowledged, and returns the seconds that it took.
   double run( std::vector< Batch > & batches ) {
      for ( auto & batch : batches ) batch.set_number( ++number_ );
      const auto start = Clock::now();
      std::thread writer( [ this, &batches ] {
         for ( const auto & batch : batches ) stream_->Write( batch );
      } );
      for ( std::size_t i = 0; i < batches.size(); ++i ) read();
      writer.join();
      return secondsSince( start );
   }

   // One batch there and back.
   double roundTrip( Batch & batch ) {
      batch.set_number( ++number_ );
      const auto start = Clock::now();
      stream_->Write( batch );
      read();
      return secondsSince( start );
   }

   std::size_t dump( double & seconds ) {
      grpc::ClientContext context;
      const auto start = Clock::now();
      auto reader = stub_->Dump( &context, {} );
      std::size_t requests = 0;
      for ( Batch batch; reader->Read( &batch ); )
         for ( const auto & request : batch.request() )
            requests += request.has_command() ? std::size_t( request.command().arg_size() ) : 1;
      seconds = secondsSince( start );
      reader->Finish();
      return requests;
   }

 private:
   BatchReply read() {
      BatchReply reply;
      if ( !stream_->Read( &reply ) ) throw std::runtime_error( "the session ended" );
      if ( reply.refusal_size() > 0 ) throw std::runtime_error( reply.refusal( 0 ).error().errmsg() );
      return reply;
   }

   grpc::ClientContext context_;
   std::unique_ptr< vex::pb::Engine::Stub > stub_;
   std::unique_ptr< grpc::ClientReaderWriter< Batch, BatchReply > > stream_;
   std::uint64_t number_ = 0;
};

vex::pb::CommandRun & addRun( Batch & batch, const std::string & cmd, const std::string & type ) {
   auto & run = *batch.add_request()->mutable_command();
   run.set_module( "fib" );
   run.set_cmd( cmd );
   run.set_type( type );
   return run;
}

Batch tableBatch() {
   Batch batch;
   batch.add_request()->mutable_create_module()->set_name( "fib" );
   batch.mutable_request( 0 )->mutable_create_module()->set_mclass( "FibIpv4" );
   vex::pb::FibIpv4Arg init;
   init.set_max_rules( 1u << 22 );
   batch.mutable_request( 0 )->mutable_create_module()->mutable_arg()->PackFrom( init );
   vex::pb::FibIpv4VrfArg vrf;
   vrf.set_vrf( 0 );
   addRun( batch, "addVrf", "vex.pb.FibIpv4VrfArg" ).add_arg( vrf.SerializeAsString() );
   return batch;
}

std::vector< Batch > routeBatches( const std::vector< Vexdp::Ipv4Prefix > & prefixes, const std::string & cmd,
                                   std::uint32_t fec, std::size_t batchSize ) {
   std::vector< Batch > batches;
   vex::pb::FibIpv4RouteArg arg;
   arg.set_vrf( 0 );
   vex::pb::CommandRun * run = nullptr;
   for ( std::size_t i = 0; i < prefixes.size(); ++i ) {
      if ( i % batchSize == 0 ) run = &addRun( batches.emplace_back(), cmd, "vex.pb.FibIpv4RouteArg" );
      arg.set_prefix( prefixes[ i ].addr.value );
      arg.set_prefix_len( prefixes[ i ].len );
      if ( cmd == "addRoute" ) arg.set_fec_id( fec + std::uint32_t( i % 64 ) );
      arg.SerializeToString( run->add_arg() );
   }
   return batches;
}

void report( const std::string & what, std::size_t count, double seconds ) {
   fmt::print( "{:<44} {:>9.0f} ms {:>12.0f} /s {:>8.3f} us each\n", what, seconds * 1e3, double( count ) / seconds,
               seconds * 1e6 / double( count ) );
}

void measureRoutes( Session & session, const std::vector< Vexdp::Ipv4Prefix > & prefixes, const char * order,
                    std::size_t batchSize ) {
   const auto run = [ & ]( const char * what, const std::string & cmd, std::uint32_t fec ) {
      auto batches = routeBatches( prefixes, cmd, fec, batchSize );
      report( fmt::format( "{} routes, {}, {} to a batch", what, order, batchSize ), prefixes.size(),
              session.run( batches ) );
   };
   run( "add", "addRoute", 1 );
   run( "replace", "addRoute", 1000 );
   run( "delete", "delRoute", 0 );
}

void measureDump( Session & session, const DataPlane & dataPlane, const std::vector< Vexdp::Ipv4Prefix > & prefixes ) {
   auto batches = routeBatches( prefixes, "addRoute", 1, 4096 );
   session.run( batches );
   fmt::print( "resident with {} routes: {:.0f} MB\n", prefixes.size(),
               double( Bench::residentOf( dataPlane.pid() ) ) / 1e6 );
   for ( int i = 0; i < 3; ++i ) {
      double seconds = 0;
      const auto requests = session.dump( seconds );
      report( "dump", requests, seconds );
   }
}

void measureRoundTrips( Session & session ) {
   constexpr std::size_t kTrips = 5000;
   auto batch = routeBatches( { { { 0x0a000000 }, 8 } }, "addRoute", 1, 1 );
   std::vector< double > trips;
   for ( std::size_t i = 0; i < kTrips; ++i ) trips.push_back( session.roundTrip( batch[ 0 ] ) );
   std::ranges::sort( trips );
   fmt::print( "one command there and back: median {:.0f} us, 99% {:.0f} us, longest {:.0f} us\n",
               trips[ kTrips / 2 ] * 1e6, trips[ kTrips * 99 / 100 ] * 1e6, trips.back() * 1e6 );
}

// So that there is a worker to be held.
void addPort( const std::shared_ptr< grpc::Channel > & channel ) {
   bess::pb::UnixSocketPortArg arg;
   arg.set_path( fmt::format( "@dataplane-bench-{}", getpid() ) );
   bess::pb::CreatePortRequest request;
   request.set_name( "et1" );
   request.set_driver( "UnixSocketPort" );
   request.mutable_arg()->PackFrom( arg );
   bess::pb::CreatePortResponse response;
   grpc::ClientContext context;
   const auto status = bess::pb::BESSControl::NewStub( channel )->CreatePort( &context, request, &response );
   if ( !status.ok() || response.error().code() != 0 ) throw std::runtime_error( response.error().errmsg() );
}

// A table is there, and the same is made beside it.
void measureChangeOver( const std::shared_ptr< grpc::Channel > & channel, const DataPlane & dataPlane,
                        const std::vector< Vexdp::Ipv4Prefix > & prefixes ) {
   const auto resident = [ & ] { return double( Bench::residentOf( dataPlane.pid() ) ) / 1e6; };
   for ( int i = 0; i < 5; ++i ) {
      Session session( channel, true );
      const auto before = resident();
      std::vector< Batch > table{ tableBatch() };
      session.run( table );
      auto batches = routeBatches( prefixes, "addRoute", 1, 4096 );
      session.run( batches );
      const auto both = resident();
      fmt::print( "{} routes beside as many: {:.0f} MB, {:.0f} MB before; packets wait {:.1f} us for the change\n",
                  prefixes.size(), both, before, session.changeOver() );
   }
}

} // namespace

int main( int argc, char ** argv ) {
   const std::size_t routes = argc > 1 ? std::strtoul( argv[ 1 ], nullptr, 10 ) : 1000000;
   const DataPlane dataPlane;
   grpc::ChannelArguments arguments;
   arguments.SetMaxReceiveMessageSize( -1 );
   arguments.SetInt( GRPC_ARG_MIN_RECONNECT_BACKOFF_MS, 10 );
   arguments.SetInt( GRPC_ARG_INITIAL_RECONNECT_BACKOFF_MS, 10 );
   const auto channel = grpc::CreateCustomChannel( dataPlane.address(), grpc::InsecureChannelCredentials(), arguments );
   if ( !channel->WaitForConnected( std::chrono::system_clock::now() + std::chrono::seconds( 10 ) ) ) {
      fmt::print( stderr, "dataplane_bench: no vexdp beside this program answers\n" );
      return 1;
   }
   try {
      auto first = std::make_unique< Session >( channel );
      auto & session = *first;
      std::vector< Batch > table{ tableBatch() };
      session.run( table );
      auto prefixes = DpBench::backbonePrefixes( routes );
      for ( const std::size_t batchSize : { 256, 4096 } ) measureRoutes( session, prefixes, "shuffled", batchSize );
      measureDump( session, dataPlane, prefixes );
      measureRoundTrips( session );
      addPort( channel );
      first = nullptr;
      measureChangeOver( channel, dataPlane, prefixes );
      return 0;
   } catch ( const std::exception & error ) {
      fmt::print( stderr, "dataplane_bench: {}\n", error.what() );
      return 1;
   }
}
