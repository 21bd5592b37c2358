#include "vex/engine.pb.h"
#include "vex/fib_ipv4.pb.h"
#include "VexBatchWriter.h"

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

} // namespace
