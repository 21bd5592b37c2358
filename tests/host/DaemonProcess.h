// The daemon as a process, with its files, its output and its signals.
#pragma once

#include "Process.h"
#include "vex/engine.grpc.pb.h"

#include <grpcpp/grpcpp.h>
#include <nlohmann/json.hpp>

namespace Test {

using Json = nlohmann::json;

inline constexpr const char * fed = "the data plane has everything";

class Vexl3d : public testing::Test {
 protected:
   Vexl3d() {
      std::filesystem::create_directory( runtime() );
      write( "router.yaml", R"(interfaces:
  - {name: Ethernet1, addresses: 10.0.1.1/24}
  - {name: Ethernet2, addresses: 10.0.2.1/24}
routes:
  - {prefix: 192.0.2.0/24, via: [10.0.1.2, 10.0.2.2]}
)" );
   }
   std::string path( const std::string & name ) const { return directory_.path( name ); }
   std::string runtime() const { return path( "runtime" ); }
   void write( const std::string & name, const std::string & text ) const { directory_.write( name, text ); }
   Words arguments( Words more ) const {
      Words words{ "--config", path( "router.yaml" ), "--socket", path( "vexl3d.sock" ) };
      words.insert( words.end(), more.begin(), more.end() );
      return words;
   }
   // The document that vexctl prints, with its "exitCode".
   Json vexctl( Words words ) const {
      words.insert( words.begin(), { "--json", "--socket", path( "vexl3d.sock" ) } );
      Process process( VEXCTL_PROGRAM, words );
      const auto text = process.all();
      // What is for people comes behind the document.
      auto document = Json::parse( text.substr( 0, text.rfind( "\n}" ) + 2 ), nullptr, false );
      EXPECT_TRUE( document.is_object() ) << text;
      document[ "exitCode" ] = process.wait();
      return document;
   }
   Json rows( Words words ) const { return vexctl( std::move( words ) )[ "rows" ]; }
   // Of a data plane at the address: next hops of the route of an IPv4 address, -1 when there is none.
   int nextHops( const std::string & address, std::uint32_t destination ) const {
      const auto stub = vex::pb::Engine::NewStub( grpc::CreateChannel( address, grpc::InsecureChannelCredentials() ) );
      grpc::ClientContext context;
      context.set_wait_for_ready( true );
      vex::pb::LookupRequest request;
      request.set_module( "fibIpv4" );
      request.set_address( destination );
      vex::pb::LookupReply reply;
      if ( !stub->Lookup( &context, request, &reply ).ok() || !reply.found() ) return -1;
      return reply.nh_info_size();
   }

   Directory directory_;
};

} // namespace Test
