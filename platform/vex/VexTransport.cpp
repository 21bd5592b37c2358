#include "VexTransport.h"

#include "GantCleanse.h"

#include <google/protobuf/message.h>
#include <vector>

namespace Vex {

bool parse( const grpc::ByteBuffer & bytes, google::protobuf::Message & message ) {
   std::vector< grpc::Slice > slices;
   if ( !bytes.Dump( &slices ).ok() ) return false;
   Gant::CleansedString whole;
   whole.reserve( bytes.Length() );
   for ( const auto & slice : slices ) whole.append( reinterpret_cast< const char * >( slice.begin() ), slice.size() );
   return message.ParseFromArray( whole.data(), static_cast< int >( whole.size() ) );
}

} // namespace Vex
