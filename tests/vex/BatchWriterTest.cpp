#include "KynetIntfId.h"
#include "vex/engine.pb.h"
#include "vex/fib_ipv4.pb.h"
#include "vex/ipsec.pb.h"
#include "vex/next_hop.pb.h"
#include "VexBatchWriter.h"
#include "VexDescribe.h"

#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

namespace {

bool parse( vex::pb::Batch & batch, const Gant::CleansedString & bytes ) {
   return batch.ParseFromArray( bytes.data(), static_cast< int >( bytes.size() ) );
}

vex::pb::FibIpv4RouteArg route( U32 prefix ) {
   vex::pb::FibIpv4RouteArg arg;
   arg.set_prefix( prefix );
   arg.set_fec_id( 300 );
   return arg;
}

// What protobuf itself makes of the same requests.
class Reference {
 public:
   void command( const char * module, const char * cmd, const google::protobuf::Message & arg ) {
      const bool continues = batch.request_size() > 0 && batch.request( batch.request_size() - 1 ).has_command() &&
                             batch.request( batch.request_size() - 1 ).command().module() == module &&
                             batch.request( batch.request_size() - 1 ).command().cmd() == cmd;
      auto & run = continues ? *batch.mutable_request( batch.request_size() - 1 )->mutable_command()
                             : *batch.add_request()->mutable_command();
      run.set_module( module );
      run.set_cmd( cmd );
      run.set_type( arg.GetTypeName() );
      run.add_arg( arg.SerializeAsString() );
   }
   vex::pb::Batch batch;
};

TEST( BatchWriter, writesWhatProtobufReads ) {
   Vex::BatchWriter writer;
   Reference reference;
   const auto command = [ & ]( const char * module, const char * cmd, const google::protobuf::Message & arg ) {
      writer.command( module, cmd, arg );
      reference.command( module, cmd, arg );
   };
   EXPECT_TRUE( writer.empty() );
   for ( U32 i = 0; i < 1000; ++i ) command( "fibIpv4", "addRoute", route( i * 65537 ) );
   command( "fibIpv4", "delRoute", route( 1 ) );
   command( "other", "delRoute", route( 1 ) );
   command( "other", "delRoute", vex::pb::FibIpv4RouteArg() );
   vex::pb::Request graph;
   graph.mutable_connect_modules()->set_m1( Gant::String( 200, 'a' ) );
   writer.request( graph );
   *reference.batch.add_request() = graph;
   // A run does not go on across another request.
   command( "other", "delRoute", route( 2 ) );
   EXPECT_EQ( writer.requests(), 1005u );
   reference.batch.set_number( 1234567 );

   vex::pb::Batch read;
   ASSERT_TRUE( parse( read, writer.take( 1234567 ) ) );
   EXPECT_TRUE( google::protobuf::util::MessageDifferencer::Equals( read, reference.batch ) );
   EXPECT_TRUE( writer.empty() );
   writer.command( "m", "c", route( 3 ) );
   ASSERT_TRUE( parse( read, writer.take( 2 ) ) );
   EXPECT_EQ( read.request_size(), 1 );
}

TEST( Describe, saysRequestsInWordsAndKeysInLengths ) {
   vex::pb::Batch batch;
   Vex::BatchWriter writer;
   auto arg = route( 0x0a000000 );
   arg.set_prefix_len( 8 );
   writer.command( "fibIpv4", "addRoute", arg );
   arg.set_prefix( 0x0b000000 );
   writer.command( "fibIpv4", "addRoute", arg );
   vex::pb::Request create;
   create.mutable_create_module()->set_name( "NextHop_et1" );
   create.mutable_create_module()->set_mclass( "NextHop" );
   vex::pb::NextHopInitArg init;
   init.set_intf_id( Kynet::IntfId::fromString( "Ethernet1" )->value() );
   create.mutable_create_module()->mutable_arg()->PackFrom( init );
   writer.request( create );
   vex::pb::IpsecUpdateSAArg sa;
   sa.add_saentries()->set_crypto_info( "sixteen byte key" );
   writer.command( "ipsecManagementModule", "updateIpsecSAs", sa );
   ASSERT_TRUE( parse( batch, writer.take( 1 ) ) );

   const auto from = [ & ]( size_t first, size_t most ) {
      Gant::String out;
      Vex::describe( batch, first, [ & ]( const Vex::DescribedRequest & request ) {
         out += request.module + " " + request.action + " " + request.argument + "\n";
         return --most > 0;
      } );
      return out;
   };
   EXPECT_EQ( from( 0, 9 ), "fibIpv4 addRoute prefix 10.0.0.0 prefix_len 8 fec_id 300\n"
                            "fibIpv4 addRoute prefix 11.0.0.0 prefix_len 8 fec_id 300\n"
                            "NextHop_et1 create NextHop intf_id Ethernet1\n"
                            "ipsecManagementModule updateIpsecSAs saentries {crypto_info <16 bytes>}\n" );
   EXPECT_EQ( from( 1, 1 ), "fibIpv4 addRoute prefix 11.0.0.0 prefix_len 8 fec_id 300\n" );
}

} // namespace
