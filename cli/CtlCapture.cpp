#include "CtlCapture.h"

#include "CtlGraph.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>

namespace Ctl {

namespace {

std::string timeInWords( std::uint64_t ns ) {
   const auto seconds = std::time_t( ns / 1000000000 );
   return fmt::format( "{:%H:%M:%S}.{:06}", fmt::localtime( seconds ), ns % 1000000000 / 1000 );
}

std::string bytesOf( const std::string & hex ) {
   const auto digit = []( char c ) { return c <= '9' ? c - '0' : c - 'a' + 10; };
   std::string bytes( hex.size() / 2, 0 );
   for ( size_t i = 0; i < bytes.size(); ++i )
      bytes[ i ] = char( digit( hex[ 2 * i ] ) << 4 | digit( hex[ 2 * i + 1 ] ) );
   return bytes;
}

unsigned at8( const std::string & bytes, size_t at ) { return static_cast< unsigned char >( bytes[ at ] ); }
unsigned at16( const std::string & bytes, size_t at ) { return at8( bytes, at ) << 8 | at8( bytes, at + 1 ); }
std::string addressAt( const std::string & bytes, size_t at ) {
   return fmt::format( "{}.{}.{}.{}", at8( bytes, at ), at8( bytes, at + 1 ), at8( bytes, at + 2 ),
                       at8( bytes, at + 3 ) );
}

std::string ipInWords( const std::string & bytes ) {
   if ( bytes.size() < 20 || at8( bytes, 0 ) >> 4 != 4 ) return fmt::format( "{} bytes", bytes.size() );
   static const std::map< unsigned, const char * > names{ { 1, "ICMP" }, { 6, "TCP" },  { 17, "UDP" },
                                                          { 47, "GRE" }, { 50, "ESP" }, { 89, "OSPF" } };
   const auto proto = at8( bytes, 9 );
   const auto name = names.find( proto );
   const size_t behind = size_t( at8( bytes, 0 ) & 15 ) * 4;
   const bool ports = ( proto == 6 || proto == 17 ) && ( at16( bytes, 6 ) & 0x1fff ) == 0 && bytes.size() >= behind + 4;
   return fmt::format( "{}{} > {}{} {} ttl {}", addressAt( bytes, 12 ),
                       ports ? fmt::format( ":{}", at16( bytes, behind ) ) : "", addressAt( bytes, 16 ),
                       ports ? fmt::format( ":{}", at16( bytes, behind + 2 ) ) : "",
                       name == names.end() ? fmt::format( "protocol {}", proto ) : name->second, at8( bytes, 8 ) );
}

std::string packetInWords( const std::string & bytes, bool ethernet ) {
   constexpr size_t header = 14;
   if ( !ethernet || bytes.size() < header ) return ipInWords( bytes );
   const auto type = at16( bytes, 12 );
   if ( type == 0x0800 ) return ipInWords( bytes.substr( header ) );
   return type == 0x0806 ? "ARP" : type == 0x86dd ? "IPv6" : fmt::format( "EtherType {:#06x}", type );
}

// The parts of pcapng are written in the machine's order of bytes, which the first block tells.
template < typename T >
std::string raw( T value ) {
   return { reinterpret_cast< const char * >( &value ), sizeof value };
}

std::string padded( std::string bytes ) {
   bytes.resize( ( bytes.size() + 3 ) / 4 * 4 );
   return bytes;
}

std::string option( std::uint16_t code, const std::string & value ) {
   return raw( code ) + raw( std::uint16_t( value.size() ) ) + padded( value );
}

std::string block( std::uint32_t type, const std::string & body ) {
   const auto length = raw( std::uint32_t( body.size() + 12 ) );
   return raw( type ) + length + body + length;
}

std::string sectionHeader() {
   return block( 0x0a0d0d0a, raw( std::uint32_t( 0x1a2b3c4d ) ) + raw( std::uint16_t( 1 ) ) +
                                  raw( std::uint16_t( 0 ) ) + raw( std::int64_t( -1 ) ) + option( 4, "vexctl" ) +
                                  option( 0, "" ) );
}

std::string lostInWords( const Json & end ) {
   const auto lost = end.value( "lost", std::uint64_t( 0 ) );
   return lost == 0 ? std::string() : fmt::format( ", {} lost for want of room", lost );
}

} // namespace

void CaptureView::row( const Json & row ) {
   const auto bytes = bytesOf( row.value( "data", std::string() ) );
   out() << fmt::format( "{} {} {} bytes: {}\n", timeInWords( row.value( "time", std::uint64_t( 0 ) ) ),
                         member( row, "module" ), row.value( "length", 0u ),
                         packetInWords( bytes, row.value( "ethernet", false ) ) )
         << std::flush;
}

void CaptureView::end( const Json & end ) {
   std::cerr << end.value( "rows", 0u ) << " packets" << lostInWords( end ) << '\n';
}

PcapView::PcapView( const std::string & path, std::ostream & out ) :
     View( out ), file_( path == "-" ? std::ofstream() : std::ofstream( path, std::ios::binary | std::ios::trunc ) ),
     to_( path == "-" ? out : file_ ), path_( path ) {
   if ( !to_ ) throw Error{ "usage", path + ": " + std::strerror( errno ) };
   write( sectionHeader() );
}

void PcapView::write( const std::string & bytes ) {
   to_ << bytes << std::flush;
   if ( !to_ ) throw Error{ "refused", path_ + ": " + std::strerror( errno ) };
}

unsigned PcapView::interfaceOf( const Json & row ) {
   constexpr std::uint16_t ethernetFrames = 1, barePackets = 101; // LINKTYPE_*
   const auto module = member( row, "module" ), intf = member( row, "interface" );
   const bool ethernet = row.value( "ethernet", false );
   const auto [ at, isNew ] = interfaces_.try_emplace( { module, ethernet }, unsigned( interfaces_.size() ) );
   if ( isNew )
      write( block( 1, raw( ethernet ? ethernetFrames : barePackets ) + raw( std::uint16_t( 0 ) ) +
                            raw( std::uint32_t( 2048 ) ) + option( 2, intf.empty() ? module : intf ) +
                            option( 3, module ) + option( 9, "\x09" ) + option( 0, "" ) ) );
   return at->second;
}

void PcapView::row( const Json & row ) {
   const auto bytes = bytesOf( row.value( "data", std::string() ) );
   const auto time = row.value( "time", std::uint64_t( 0 ) );
   const auto number = interfaceOf( row );
   ++packets_;
   write( block( 6, raw( std::uint32_t( number ) ) + raw( std::uint32_t( time >> 32 ) ) + raw( std::uint32_t( time ) ) +
                         raw( std::uint32_t( bytes.size() ) ) + raw( row.value( "length", std::uint32_t( 0 ) ) ) +
                         padded( bytes ) ) );
}

void PcapView::end( const Json & end ) { std::cerr << packets_ << " packets" << lostInWords( end ) << '\n'; }

void WayView::row( const Json & row ) {
   out() << timeInWords( row.value( "time", std::uint64_t( 0 ) ) ) << ' ' << member( row, "interface" ) << '\n';
   PacketView packet( out() );
   for ( const auto & step : row.value( "steps", Json::array() ) ) packet.row( step );
   auto end = row;
   end[ "interface" ] = member( row, "out" );
   packet.end( end );
   out() << std::endl;
}

void WayView::end( const Json & end ) {
   std::cerr << end.value( "rows", 0u ) << " packets" << lostInWords( end ) << '\n';
}

} // namespace Ctl
