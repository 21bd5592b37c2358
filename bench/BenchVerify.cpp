#include "BenchVerify.h"

#include "vex/engine.grpc.pb.h"
#include "vex/fib_ipv4.pb.h"

#include <absl/container/flat_hash_map.h>
#include <fmt/format.h>
#include <grpcpp/grpcpp.h>

#include <stdexcept>

namespace Bench {

namespace {

std::uint64_t keyOf( std::uint32_t address, std::uint64_t len ) { return std::uint64_t( address ) << 8 | len; }

// The default VRF's routes and the FECs of a dump.
struct Held {
   absl::flat_hash_map< std::uint64_t, std::uint32_t > fecOf;
   absl::flat_hash_map< std::uint32_t, int > hopsOf;

   void take( const vex::pb::CommandRun & run ) {
      vex::pb::FibIpv4RouteArg route;
      vex::pb::FibIpv4FecArg fec;
      for ( const auto & arg : run.arg() ) {
         if ( run.cmd() == "addRoute" && route.ParseFromString( arg ) && route.vrf() == 0 )
            fecOf[ keyOf( route.prefix(), route.prefix_len() ) ] = route.fec_id();
         if ( run.cmd() == "addFec" && fec.ParseFromString( arg ) ) hopsOf[ fec.fec_id() ] = fec.nh_info_size();
      }
   }
};

Held dumped( const std::string & address, std::size_t routes ) {
   grpc::ChannelArguments arguments;
   arguments.SetMaxReceiveMessageSize( -1 );
   arguments.SetInt( GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1 );
   const auto stub =
        vex::pb::Engine::NewStub( grpc::CreateCustomChannel( address, grpc::InsecureChannelCredentials(), arguments ) );
   grpc::ClientContext context;
   Held held;
   held.fecOf.reserve( routes );
   const auto reader = stub->Dump( &context, {} );
   for ( vex::pb::Batch batch; reader->Read( &batch ); )
      for ( const auto & request : batch.request() )
         if ( request.has_command() ) held.take( request.command() );
   const auto status = reader->Finish();
   if ( !status.ok() ) throw std::runtime_error( "no dump: " + status.error_message() );
   return held;
}

} // namespace

void verify( const std::string & address, const Order & order, const std::vector< U8 > & adjacencyOf ) {
   const auto held = dumped( address, order.prefixes().size() );
   absl::flat_hash_map< U8, std::uint32_t > fecs;
   for ( std::size_t position = 0; position < order.prefixes().size(); ++position ) {
      const auto & prefix = order.prefixes()[ position ];
      const auto at = held.fecOf.find( keyOf( prefix.address().value(), prefix.len() ) );
      if ( at == held.fecOf.end() ) throw std::runtime_error( "the data plane lacks " + prefix.stringValue() );
      const auto fec = at->second;
      if ( !adjacencyOf.empty() && fecs.try_emplace( adjacencyOf[ position ], fec ).first->second != fec )
         throw std::runtime_error( prefix.stringValue() + " leads elsewhere" );
      const auto hops = held.hopsOf.find( fec );
      if ( hops == held.hopsOf.end() || hops->second != int( hopsPerAdjacency ) )
         throw std::runtime_error( fmt::format( "FEC {} has not {} next hops", fec, hopsPerAdjacency ) );
   }
   // Those of the VRF and of the router's own addresses come beside them.
   constexpr std::size_t ownMax = 512;
   if ( held.fecOf.size() > order.prefixes().size() + ownMax )
      throw std::runtime_error( fmt::format( "the data plane holds {} routes", held.fecOf.size() ) );
}

} // namespace Bench
