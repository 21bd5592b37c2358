// Batches of the session stream: the bytes are one, which is applied twice.
#include "FuzzEngine.h"

int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   vex::pb::Batch batch;
   if ( !batch.ParseFromArray( data, static_cast< int >( size ) ) ) return 0;
   Fuzz::Plane plane;
   for ( int times = 0; times < 2; ++times ) {
      vex::pb::BatchReply reply;
      plane.engine.apply( batch, reply );
   }
   // And a packet goes through what it made.
   vex::pb::TracePacketRequest request;
   request.set_intfname( "et1" );
   request.set_src( 0x0a090001 );
   request.set_dst( 0x0a010001 );
   request.set_proto( 17 );
   vex::pb::TracePacketReply reply;
   plane.engine.trace( request, reply );
   return 0;
}
