#include "DpTestSupport.h"

#include "DpModuleClass.h"
#include "DpRegistry.h"

#include <google/protobuf/text_format.h>

#include <cstdio>
#include <sstream>

namespace DpTest {

using google::protobuf::DescriptorPool;
using google::protobuf::Message;
using google::protobuf::MessageFactory;
using google::protobuf::TextFormat;
using namespace vex::pb;

std::uint32_t ip( std::string_view text ) {
   unsigned a = 0, b = 0, c = 0, d = 0;
   EXPECT_EQ( std::sscanf( std::string( text ).c_str(), "%u.%u.%u.%u", &a, &b, &c, &d ), 4 ) << text;
   return a << 24 | b << 16 | c << 8 | d;
}

Vexdp::Ipv4Prefix prefix( std::string_view text ) {
   const auto slash = text.find( '/' );
   return { { ip( text.substr( 0, slash ) ) }, std::uint8_t( std::stoi( std::string( text.substr( slash + 1 ) ) ) ) };
}

std::string expanded( std::string_view text ) {
   std::string out;
   while ( !text.empty() ) {
      const auto at = text.find( '@' );
      out += text.substr( 0, at );
      if ( at == std::string_view::npos ) break;
      text.remove_prefix( at + 1 );
      const auto word = text.substr( 0, text.find_first_not_of( "0123456789abcdef.:" ) );
      text.remove_prefix( word.size() );
      if ( word.find( ':' ) == std::string_view::npos ) {
         out += std::to_string( ip( word ) );
         continue;
      }
      out += "'";
      for ( std::size_t i = 0; i < word.size(); i += 3 ) ( out += "\\x" ) += word.substr( i, 2 );
      out += "'";
   }
   return out;
}

void parse( std::string_view text, Message & message ) {
   EXPECT_TRUE( TextFormat::ParseFromString( expanded( text ), &message ) ) << text;
}

namespace {

std::string rest( std::istream & in ) {
   std::string text;
   std::getline( in >> std::ws, text );
   return text;
}

struct Gate {
   std::string module;
   std::uint64_t number = 0;
};

Gate gate( std::istream & in ) {
   std::string text;
   in >> text;
   const auto colon = text.rfind( ':' );
   return { text.substr( 0, colon ), std::stoull( text.substr( colon + 1 ) ) };
}

// The run that a command goes into: the last one, when it is of the same command.
CommandRun & runFor( Batch & batch, const std::string & module, const std::string & cmd ) {
   if ( batch.request_size() > 0 ) {
      auto & last = *batch.mutable_request( batch.request_size() - 1 );
      if ( last.has_command() && last.command().module() == module && last.command().cmd() == cmd )
         return *last.mutable_command();
   }
   auto & run = *batch.add_request()->mutable_command();
   run.set_module( module );
   run.set_cmd( cmd );
   return run;
}

std::string shortText( const Message & message ) {
   TextFormat::Printer printer;
   printer.SetSingleLineMode( true );
   printer.SetExpandAny( true );
   std::string text;
   printer.PrintToString( message, &text );
   if ( text.ends_with( ' ' ) ) text.pop_back();
   return text;
}

} // namespace

Batch RequestReader::batch( std::string_view lines, std::uint64_t number ) {
   Batch batch;
   batch.set_number( number );
   std::istringstream in{ std::string( lines ) };
   for ( std::string line; std::getline( in, line ); ) add( line, batch );
   return batch;
}

void RequestReader::add( const std::string & line, Batch & batch ) {
   std::istringstream in( line );
   std::string word;
   if ( !( in >> word ) || word[ 0 ] == '#' ) return;
   if ( word == "create" ) return addCreate( in, batch );
   if ( word == "destroy" ) return batch.add_request()->mutable_destroy_module()->set_name( rest( in ) );
   if ( word == "connect" ) {
      auto & request = *batch.add_request()->mutable_connect_modules();
      const auto from = gate( in );
      const auto to = gate( in );
      request.set_m1( from.module );
      request.set_ogate( from.number );
      request.set_m2( to.module );
      request.set_igate( to.number );
   } else if ( word == "disconnect" ) {
      auto & request = *batch.add_request()->mutable_disconnect_modules();
      const auto from = gate( in );
      request.set_name( from.module );
      request.set_ogate( from.number );
   } else {
      addCommand( word, in, batch );
   }
}

void RequestReader::addCreate( std::istream & in, Batch & batch ) {
   auto & request = *batch.add_request()->mutable_create_module();
   std::string name, mclass;
   in >> name >> mclass;
   if ( name != "-" ) request.set_name( name );
   request.set_mclass( mclass );
   classes_[ name ] = mclass;
   const auto text = rest( in );
   const auto * known = Vexdp::findModuleClass( mclass );
   if ( known == nullptr || text.empty() ) return;
   const std::unique_ptr< Message > init( known->init->New() );
   parse( text, *init );
   request.mutable_arg()->PackFrom( *init );
}

void RequestReader::addCommand( const std::string & module, std::istream & in, Batch & batch ) {
   std::string cmd;
   in >> cmd;
   auto & run = runFor( batch, module, cmd );
   const auto * mclass = Vexdp::findModuleClass( classes_[ module ] );
   const auto * known = mclass == nullptr ? nullptr : mclass->command( cmd );
   if ( known == nullptr ) {
      run.add_arg();
      return;
   }
   const std::unique_ptr< Message > arg( known->arg->New() );
   parse( rest( in ), *arg );
   run.set_type( Vexdp::typeName( *arg ) );
   arg->SerializeToString( run.add_arg() );
}

Lines refusals( const BatchReply & reply ) {
   Lines lines;
   for ( const auto & refusal : reply.refusal() )
      lines.push_back( fmt::format( "{} {} {}", refusal.index(), strerrorname_np( refusal.error().code() ),
                                    refusal.error().errmsg() ) );
   return lines;
}

Lines Plane::apply( std::string_view lines ) {
   BatchReply reply;
   engine.apply( reader.batch( lines ), reply );
   return refusals( reply );
}

Lines Plane::dump( std::vector< std::string > modules ) {
   DumpRequest request;
   for ( const auto & module : modules ) request.add_module( module );
   std::unique_ptr< Vexdp::Dump > dump;
   EXPECT_TRUE( engine.dump( request, dump ).ok() );
   Lines lines;
   dump->tell( [ &lines ]( const Batch & batch ) {
      for ( const auto & one : batch.request() ) {
         if ( !one.has_command() ) lines.push_back( shortText( one ) );
         for ( const auto & bytes : one.command().arg() ) {
            const auto * type = DescriptorPool::generated_pool()->FindMessageTypeByName( one.command().type() );
            const std::unique_ptr< Message > arg( MessageFactory::generated_factory()->GetPrototype( type )->New() );
            EXPECT_TRUE( arg->ParseFromString( bytes ) );
            lines.push_back(
                 fmt::format( "{} {} {}", one.command().module(), one.command().cmd(), shortText( *arg ) ) );
         }
      }
      return true;
   } );
   return lines;
}

TracePacketReply Plane::trace( std::string_view text ) {
   TracePacketRequest request;
   parse( text, request );
   TracePacketReply reply;
   engine.trace( request, reply );
   return reply;
}

Refusals refusalTable( std::string_view lines ) {
   Refusals table;
   std::istringstream in{ std::string( lines ) };
   for ( std::string line; std::getline( in, line ); )
      if ( const auto at = line.find( " => " ); at != line.npos )
         table.emplace_back( line.substr( 0, at ), line.substr( at + 4 ) );
   return table;
}

void expectRefusals( std::string_view given, const Refusals & expected ) {
   Plane plane;
   plane.set( given );
   const auto before = plane.dump();
   for ( const auto & [ request, refusal ] : expected ) {
      EXPECT_EQ( plane.apply( request ), Lines{ "0 " + refusal } ) << request;
      EXPECT_EQ( plane.dump(), before ) << request;
   }
}

// Written on its own, so that it doesn't repeat a mistake of the code under test.
namespace {

class Decoder {
 public:
   explicit Decoder( const std::vector< std::uint8_t > & bytes ) : bytes_( bytes ) {}

   std::string ethernet() {
      if ( left() < 14 ) return "short frame";
      const auto text = fmt::format( "{} > {}", mac( 6 ), mac( 0 ) );
      if ( word( 12 ) != 0x0800 ) return text + fmt::format( " type {:#06x}", word( 12 ) );
      at_ += 14;
      return text + " | " + ipv4();
   }

   std::string ipv4() {
      const auto start = at_;
      const std::size_t headerLen = byte( 0 ) % 16 * 4u;
      const std::size_t total = word( 2 );
      std::string text =
           fmt::format( "{} > {} ttl {} tos {} len {}", address( 12 ), address( 16 ), byte( 8 ), byte( 1 ), total );
      if ( headerLen != 20 ) text += fmt::format( " options {}", headerLen - 20 );
      if ( word( 6 ) & 0x4000 ) text += " df";
      const bool fragment = ( word( 6 ) & 0x3fff ) != 0;
      if ( fragment ) text += fmt::format( " frag {}{}", word( 6 ) % 0x2000 * 8, word( 6 ) & 0x2000 ? "+" : "" );
      if ( sum( start, headerLen ) != 0xffff ) text += " BADSUM";
      if ( total != left() ) text += fmt::format( " BADLEN {}", left() );
      const auto proto = byte( 9 );
      const auto pseudo = sum( start + 12, 8 ) + proto + ( total - headerLen );
      at_ += headerLen;
      return fragment ? text : text + l4( proto, pseudo );
   }

 private:
   std::size_t left() const { return bytes_.size() - at_; }
   unsigned byte( std::size_t at ) const { return bytes_.at( at_ + at ); }
   unsigned word( std::size_t at ) const { return byte( at ) * 256 + byte( at + 1 ); }

   std::string mac( std::size_t at ) const {
      std::string text;
      for ( std::size_t i = 0; i < 6; ++i ) text += fmt::format( "{}{:02x}", i == 0 ? "" : ":", byte( at + i ) );
      return text;
   }
   std::string address( std::size_t at ) const {
      return fmt::format( "{}.{}.{}.{}", byte( at ), byte( at + 1 ), byte( at + 2 ), byte( at + 3 ) );
   }
   std::uint64_t sum( std::size_t from, std::size_t len, std::uint64_t start = 0 ) const {
      for ( std::size_t i = 0; i < len; ++i ) start += std::uint64_t( bytes_.at( from + i ) ) << ( i % 2 == 0 ? 8 : 0 );
      while ( start > 0xffff ) start = start / 65536 + start % 65536;
      return start;
   }

   std::string l4( unsigned proto, std::uint64_t pseudo ) {
      const auto good = [ this ]( std::uint64_t start ) {
         return sum( at_, left(), start ) == 0xffff ? "" : " BADSUM";
      };
      switch ( proto ) {
      case 1: return fmt::format( " | icmp {}/{}{}", byte( 0 ), byte( 1 ), good( 0 ) );
      case 6: return fmt::format( " | tcp {} > {}{}{}", word( 0 ), word( 2 ), mss(), good( pseudo ) );
      case 17: return fmt::format( " | udp {} > {}{}", word( 0 ), word( 2 ), good( pseudo ) );
      case 47: return gre();
      default: return fmt::format( " | proto {}", proto );
      }
   }

   std::string mss() const {
      for ( std::size_t at = 20; at + 4 <= byte( 12 ) / 16 * 4; ++at )
         if ( byte( at ) == 2 && byte( at + 1 ) == 4 ) return fmt::format( " mss {}", word( at + 2 ) );
      return "";
   }

   std::string gre() {
      std::string text = fmt::format( " | gre {:#x}", word( 2 ) );
      const bool key = word( 0 ) & 0x2000;
      if ( key ) text += fmt::format( " key {}", word( 4 ) * 65536 + word( 6 ) );
      at_ += key ? 8 : 4;
      return text + " | " + ipv4();
   }

   const std::vector< std::uint8_t > & bytes_;
   std::size_t at_ = 0;
};

} // namespace

std::string decodedFrame( const std::vector< std::uint8_t > & bytes ) { return Decoder( bytes ).ethernet(); }
std::string decodedIpv4( const std::vector< std::uint8_t > & bytes ) { return Decoder( bytes ).ipv4(); }

std::string coreLines() {
   return R"(
      create trap Trap
      create fibIpv4 FibIpv4 max_rules: 1000
      create ForUsClassifyIpv4 ForUsClassifyIpv4
      connect ForUsClassifyIpv4:0 trap:0
      connect fibIpv4:0 ForUsClassifyIpv4:0
      fibIpv4 addVrf vrf: 0
   )";
}

std::string ethernetLines( const std::string & name, unsigned ogate ) {
   const auto mac = "@02:00:00:00:00:0" + name.substr( 2 );
   return fmt::format( R"(
      create rx_{0} PortRx intf_id: {1} intfname: '{0}'
      create tx_{0} PortTx intf_id: {1} intfname: '{0}'
      create classify_{0} EtherClassify intf_id: {1} intfname: '{0}' mac_addr: {2}
      create NextHop_{0} NextHop intf_id: {1} max_nexthops: 16
      create IpOutput_{0} IpOutput ip_mtu: 1500 mss: 0 do_mss_checksum: true
      create IpInput_{0} IpInput mss: 0 do_mss_checksum: true
      connect rx_{0}:0 classify_{0}:0
      connect classify_{0}:0 trap:0
      connect classify_{0}:1 IpInput_{0}:0
      connect IpInput_{0}:0 trap:0
      connect IpInput_{0}:1 fibIpv4:0
      connect fibIpv4:{1} IpOutput_{0}:0
      connect IpOutput_{0}:0 trap:0
      connect IpOutput_{0}:1 NextHop_{0}:0
      connect NextHop_{0}:0 trap:0
      connect NextHop_{0}:1 tx_{0}:0
      NextHop_{0} setSrcMacAddr mac_addr: {2}
      classify_{0} setVrf vrf: 0
      classify_{0} setEtherTypeGate ether_type: 2048 ogate: 1
   )",
                       name, ogate, mac );
}

std::string tunnelLines( const std::string & name, unsigned ogate, const std::string & options ) {
   return fmt::format( R"(
      create rxcp_{0} PortRxCp intf_id: {1} intfname: '{0}'
      create IpOutput_{0} IpOutput ip_mtu: 1476
      create Ip4GreTun_{0} Ip4GreTun intf_id: {1} cp_ingress: false {2}
      create Ip4GreTunCp_{0} Ip4GreTun intf_id: {1} cp_ingress: true {2}
      create NhResolve_{0} NhResolve max_entries: 0
      connect fibIpv4:{1} IpOutput_{0}:0
      connect IpOutput_{0}:0 trap:0
      connect IpOutput_{0}:1 Ip4GreTun_{0}:0
      connect Ip4GreTun_{0}:0 trap:0
      connect Ip4GreTun_{0}:1 NhResolve_{0}:0
      connect rxcp_{0}:0 Ip4GreTunCp_{0}:0
      connect Ip4GreTunCp_{0}:1 fibIpv4:0
   )",
                       name, ogate, options );
}

Lines stepsOf( const TracePacketReply & reply ) {
   Lines lines;
   for ( const auto & step : reply.step() )
      lines.push_back( step.has_ogate() ? fmt::format( "{}: {} -> {}", step.module(), step.action(), step.ogate() )
                                        : fmt::format( "{}: {}", step.module(), step.action() ) );
   switch ( reply.end() ) {
   case TracePacketReply::END_SENT:
      lines.push_back( fmt::format( "sent out of {}, {} bytes", reply.intfname(), reply.length() ) );
      break;
   case TracePacketReply::END_LOCAL:
      lines.push_back( fmt::format( "local at {}: {}", reply.module(), reply.reason() ) );
      break;
   case TracePacketReply::END_DROPPED:
      lines.push_back( fmt::format( "dropped at {}: {}", reply.module(), reply.reason() ) );
      break;
   default: lines.push_back( "error " + reply.error().errmsg() );
   }
   return lines;
}

} // namespace DpTest
