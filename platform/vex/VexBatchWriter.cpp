#include "VexBatchWriter.h"

#include "vex/engine.pb.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/message.h>

namespace Vex {

using Gant::CleansedString;

namespace {

// The tag of a length-delimited field: all such fields that are written here have a number below 16.
constexpr char tagOf( int field ) { return static_cast< char >( field << 3 | 2 ); }

void appendVarint( CleansedString & out, U64 value ) {
   while ( value >= 0x80 ) {
      out += static_cast< char >( value | 0x80 );
      value >>= 7;
   }
   out += static_cast< char >( value );
}

void appendField( CleansedString & out, int field, std::string_view bytes ) {
   out += tagOf( field );
   appendVarint( out, bytes.size() );
   out += bytes;
}

void appendMessage( CleansedString & out, int field, const google::protobuf::Message & message ) {
   const auto size = message.ByteSizeLong();
   out += tagOf( field );
   appendVarint( out, size );
   const auto at = out.size();
   out.resize( at + size );
   message.SerializeWithCachedSizesToArray( reinterpret_cast< U8 * >( out.data() + at ) );
}

} // namespace

using vex::pb::Batch;
using vex::pb::CommandRun;
using vex::pb::Request;

void BatchWriter::command( std::string_view module, std::string_view cmd, const Message & arg ) {
   if ( run_.empty() || module != module_ || cmd != cmd_ ) {
      endRun();
      module_ = module;
      cmd_ = cmd;
      appendField( run_, CommandRun::kModuleFieldNumber, module );
      appendField( run_, CommandRun::kCmdFieldNumber, cmd );
      appendField( run_, CommandRun::kTypeFieldNumber, arg.GetTypeName() );
   }
   appendMessage( run_, CommandRun::kArgFieldNumber, arg );
   ++requests_;
}

void BatchWriter::request( const Message & request ) {
   endRun();
   appendMessage( batch_, Batch::kRequestFieldNumber, request );
   ++requests_;
}

void BatchWriter::endRun() {
   if ( run_.empty() ) return;
   // Request { command: run }: the length of the outer message is that of the inner with its tag and length in front.
   CleansedString head( 1, tagOf( Request::kCommandFieldNumber ) );
   appendVarint( head, run_.size() );
   batch_ += tagOf( Batch::kRequestFieldNumber );
   appendVarint( batch_, head.size() + run_.size() );
   batch_ += head;
   batch_ += run_;
   Gant::cleanse( run_ );
}

CleansedString BatchWriter::take( U64 number, bool inStep ) {
   endRun();
   batch_ += static_cast< char >( Batch::kNumberFieldNumber << 3 );
   appendVarint( batch_, number );
   if ( inStep ) {
      batch_ += static_cast< char >( Batch::kInStepFieldNumber << 3 );
      appendVarint( batch_, 1 );
   }
   requests_ = 0;
   return std::exchange( batch_, {} );
}

} // namespace Vex
