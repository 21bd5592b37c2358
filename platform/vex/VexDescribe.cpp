#include "VexDescribe.h"

#include "KynetAddr.h"
#include "KynetIntfId.h"
#include "vex/acl.pb.h"
#include "vex/engine.pb.h"
#include "vex/fib_ipv4.pb.h"
#include "vex/ip.pb.h"
#include "vex/ipsec.pb.h"
#include "vex/next_hop.pb.h"
#include "vex/port.pb.h"
#include "VexCleanse.h"

#include <algorithm>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <memory>
#include <set>
#include <string_view>

namespace Vex {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

const std::set< std::string_view > addressFields = { "prefix",      "src_ip",     "src_ip_mask", "dst_ip",
                                                     "dst_ip_mask", "tun_src_ip", "tun_dst_ip",  "src_addr",
                                                     "dst_addr",    "local_ip",   "remote_ip" };

Gant::String bytesInWords( const FieldDescriptor & field, const std::string & value ) {
   if ( field.name().starts_with( "mac" ) && value.size() == 6 ) {
      Kynet::EthAddr::Bytes bytes;
      std::ranges::copy( value, bytes.begin() );
      return Kynet::EthAddr( bytes ).stringValue();
   }
   return "<" + std::to_string( value.size() ) + " bytes>";
}

// `index` is -1 for a field that is not repeated.
Gant::String valueInWords( const Message & message, const FieldDescriptor & field, int index ) {
   const auto & reflection = *message.GetReflection();
   const bool repeated = index >= 0;
   switch ( field.cpp_type() ) {
   case FieldDescriptor::CPPTYPE_MESSAGE:
      return "{" +
             describe( repeated ? reflection.GetRepeatedMessage( message, &field, index )
                                : reflection.GetMessage( message, &field ) ) +
             "}";
   case FieldDescriptor::CPPTYPE_STRING: {
      std::string scratch;
      const auto & value = repeated ? reflection.GetRepeatedStringReference( message, &field, index, &scratch )
                                    : reflection.GetStringReference( message, &field, &scratch );
      return field.type() == FieldDescriptor::TYPE_BYTES ? bytesInWords( field, value ) : value;
   }
   case FieldDescriptor::CPPTYPE_BOOL: return reflection.GetBool( message, &field ) ? "true" : "false";
   case FieldDescriptor::CPPTYPE_INT32: return std::to_string( reflection.GetInt32( message, &field ) );
   case FieldDescriptor::CPPTYPE_UINT64: {
      const auto value = reflection.GetUInt64( message, &field );
      const auto name = field.name() == "intf_id" ? Kynet::IntfId( value ).stringValue() : Gant::String();
      return name.empty() ? std::to_string( value ) : name;
   }
   case FieldDescriptor::CPPTYPE_UINT32: {
      const auto value = reflection.GetUInt32( message, &field );
      return addressFields.contains( field.name() ) ? Kynet::IpAddr( value ).stringValue() : std::to_string( value );
   }
   default: return "?";
   }
}

// Makes the messages of commands from their names. Linked-in messages are found once they are known to be linked.
std::unique_ptr< Message > newMessageOf( const std::string & type ) {
   static const Message * const linked[] = {
        &vex::pb::KyIpAclArg::default_instance(),        &vex::pb::FibIpv4RouteArg::default_instance(),
        &vex::pb::IpOutputArg::default_instance(),       &vex::pb::IpsecUpdateSAArg::default_instance(),
        &vex::pb::NextHopWriteNHArg::default_instance(), &vex::pb::PortArg::default_instance() };
   (void)linked;
   const auto * const descriptor = google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName( type );
   if ( descriptor == nullptr ) return nullptr;
   return std::unique_ptr< Message >(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype( descriptor )->New() );
}

Gant::String describeBytes( const std::string & type, const std::string & bytes ) {
   const auto message = messageOf( type, bytes );
   if ( !message ) return "<" + std::to_string( bytes.size() ) + " bytes of " + type + ">";
   auto text = describe( *message );
   cleanse( *message );
   return text;
}

Gant::String gateInWords( const std::string & module, U64 gate ) { return module + ":" + std::to_string( gate ); }

DescribedRequest describeGraphRequest( const vex::pb::Request & request ) {
   switch ( request.request_case() ) {
   case vex::pb::Request::kCreateModule: {
      const auto & create = request.create_module();
      const auto & url = create.arg().type_url();
      auto argument = create.mclass();
      if ( create.has_arg() && !create.arg().value().empty() )
         argument += " " + describeBytes( url.substr( url.rfind( '/' ) + 1 ), create.arg().value() );
      return { GrpcRequestType::createModule_, create.name(), "create", argument };
   }
   case vex::pb::Request::kDestroyModule:
      return { GrpcRequestType::destroyModule_, request.destroy_module().name(), "destroy", "" };
   case vex::pb::Request::kConnectModules: {
      const auto & connect = request.connect_modules();
      return { GrpcRequestType::connectModules_, connect.m1(), "connect",
               gateInWords( connect.m1(), connect.ogate() ) + " -> " + gateInWords( connect.m2(), connect.igate() ) };
   }
   case vex::pb::Request::kDisconnectModules: {
      const auto & disconnect = request.disconnect_modules();
      return { GrpcRequestType::disconnectModules_, disconnect.name(), "disconnect",
               gateInWords( disconnect.name(), disconnect.ogate() ) };
   }
   default: return {};
   }
}

} // namespace

std::unique_ptr< Message > messageOf( const std::string & type, const std::string & bytes ) {
   auto message = newMessageOf( type );
   return message && message->ParseFromString( bytes ) ? std::move( message ) : nullptr;
}

Gant::String describe( const Message & message ) {
   std::vector< const FieldDescriptor * > fields;
   message.GetReflection()->ListFields( message, &fields );
   Gant::String out;
   const auto add = [ & ]( const FieldDescriptor & field, int index ) {
      out += ( out.empty() ? "" : " " ) + field.name() + " " + valueInWords( message, field, index );
   };
   for ( const auto * field : fields ) {
      if ( !field->is_repeated() ) {
         add( *field, -1 );
         continue;
      }
      const int size = message.GetReflection()->FieldSize( message, field );
      for ( int i = 0; i < size; ++i ) add( *field, i );
   }
   return out;
}

bool BatchReader::Fields::varint( U64 & value ) {
   value = 0;
   for ( U32 shift = 0; !bytes.empty() && shift < 64; shift += 7 ) {
      const auto byte = static_cast< U8 >( bytes.front() );
      bytes.remove_prefix( 1 );
      value |= U64( byte & 0x7f ) << shift;
      if ( byte < 0x80 ) return true;
   }
   return false;
}

bool BatchReader::Fields::next( U32 & field, std::string_view & value ) {
   U64 tag = 0, size = 0;
   if ( !varint( tag ) || !varint( size ) ) return false;
   field = static_cast< U32 >( tag >> 3 );
   constexpr U64 number = 0, delimited = 2;
   if ( ( tag & 7 ) == number ) {
      value = {};
      return true;
   }
   if ( ( tag & 7 ) != delimited || size > bytes.size() ) return false;
   value = bytes.substr( 0, size );
   bytes.remove_prefix( size );
   return true;
}

bool BatchReader::next() {
   using Run = vex::pb::CommandRun;
   U32 field = 0;
   std::string_view value;
   while ( true ) {
      while ( run_.next( field, value ) ) {
         if ( field == Run::kModuleFieldNumber ) module_ = value;
         if ( field == Run::kCmdFieldNumber ) action_ = value;
         if ( field == Run::kTypeFieldNumber ) type_ = value;
         if ( field != Run::kArgFieldNumber ) continue;
         bytes_ = value;
         ++requests_;
         return true;
      }
      do {
         if ( !batch_.next( field, value ) ) return false;
      } while ( field != vex::pb::Batch::kRequestFieldNumber );
      ++runs_;
      bytes_ = value;
      Fields request{ value };
      command_ = request.next( field, value ) && field == vex::pb::Request::kCommandFieldNumber;
      if ( !command_ ) {
         ++requests_;
         return true;
      }
      run_ = { value };
   }
}

bool BatchReader::to( U32 index ) {
   while ( requests_ <= index )
      if ( !next() ) return false;
   return true;
}

DescribedRequest BatchReader::described() const {
   if ( command_ )
      return { GrpcRequestType::moduleCommand_, Gant::String( module_ ), Gant::String( action_ ),
               describeBytes( std::string( type_ ), std::string( bytes_ ) ) };
   vex::pb::Request request;
   if ( !request.ParseFromArray( bytes_.data(), static_cast< int >( bytes_.size() ) ) ) return {};
   return describeGraphRequest( request );
}

void describe( const vex::pb::Batch & batch, size_t first, const std::function< bool( DescribedRequest ) > & each ) {
   size_t number = 0;
   for ( const auto & request : batch.request() ) {
      if ( !request.has_command() ) {
         if ( number++ >= first && !each( describeGraphRequest( request ) ) ) return;
         continue;
      }
      const auto & run = request.command();
      for ( const auto & arg : run.arg() )
         if ( number++ >= first &&
              !each( { GrpcRequestType::moduleCommand_, run.module(), run.cmd(), describeBytes( run.type(), arg ) } ) )
            return;
   }
}

} // namespace Vex
