#include "DpIpv4.h"

#include <arpa/inet.h>

#include <cstring>

namespace Vexdp {

namespace {

std::uint16_t folded( std::uint64_t sum ) {
   while ( sum >> 16 ) sum = ( sum & 0xffff ) + ( sum >> 16 );
   return std::uint16_t( sum );
}

// The finalizer of splitmix64: every input bit reaches every output bit.
std::uint64_t mixed( std::uint64_t x ) {
   x = ( x ^ x >> 30 ) * 0xbf58476d1ce4e5b9;
   x = ( x ^ x >> 27 ) * 0x94d049bb133111eb;
   return x ^ x >> 31;
}

} // namespace

std::uint16_t onesSum( std::span< const std::uint8_t > bytes, std::uint16_t sum ) {
   // The sum of words in the machine's order of bytes is the sum in that order (RFC 1071, section 2).
   std::uint64_t total = 0;
   std::size_t i = 0;
   for ( ; i + 4 <= bytes.size(); i += 4 ) {
      std::uint32_t words = 0;
      std::memcpy( &words, bytes.data() + i, 4 );
      total += words;
   }
   std::uint32_t rest = 0;
   std::memcpy( &rest, bytes.data() + i, bytes.size() - i );
   return folded( std::uint64_t( ntohs( folded( total + rest ) ) ) + sum );
}

void Ipv4Header::checksumRenew() {
   put16( at_ + 10, 0 );
   put16( at_ + 10, std::uint16_t( ~onesSum( { at_, headerLen() } ) ) );
}

void Ipv4Header::dscpIs( std::uint8_t dscp ) {
   const auto before = get16( at_ );
   at_[ 1 ] = std::uint8_t( dscp << 2 | ( at_[ 1 ] & 3 ) );
   put16( at_ + 10, checksumChanged( checksum(), before, get16( at_ ) ) );
}

void Ipv4Header::ecnIs( std::uint8_t ecn ) {
   const auto before = get16( at_ );
   at_[ 1 ] = std::uint8_t( ( at_[ 1 ] & ~3 ) | ecn );
   put16( at_ + 10, checksumChanged( checksum(), before, get16( at_ ) ) );
}

bool takeOuterEcn( Ipv4Header & inner, std::uint8_t outerTos ) {
   enum Ecn : std::uint8_t { notEct = 0, ect1 = 1, ect0 = 2, ce = 3 };
   const auto outer = outerTos & 3;
   const auto within = inner.tos() & 3;
   if ( within == notEct ) return outer != ce;
   if ( outer == ce || ( outer == ect1 && within == ect0 ) ) inner.ecnIs( std::uint8_t( outer ) );
   return true;
}

void writeIpv4Header( std::uint8_t * at, const Ipv4Fields & fields ) {
   at[ 0 ] = 0x45;
   at[ 1 ] = fields.tos;
   put16( at + 2, fields.totalLen );
   put16( at + 4, fields.id );
   put16( at + 6, fields.dontFragment ? 0x4000 : 0 );
   at[ 8 ] = fields.ttl;
   at[ 9 ] = fields.proto;
   put16( at + 10, 0 );
   put32( at + 12, fields.src.value );
   put32( at + 16, fields.dst.value );
   put16( at + 10, std::uint16_t( ~onesSum( { at, Ipv4Header::kMinLen } ) ) );
}

std::uint16_t pseudoHeaderSum( Ipv4Addr src, Ipv4Addr dst, std::uint8_t proto, std::size_t l4Len ) {
   const std::uint64_t sum = std::uint64_t( src.value >> 16 ) + ( src.value & 0xffff ) + ( dst.value >> 16 ) +
                             ( dst.value & 0xffff ) + proto + l4Len;
   return folded( sum );
}

const char * whyMartian( Ipv4Addr src, Ipv4Addr dst ) {
   const auto from = src.value >> 24;
   const auto to = dst.value >> 24;
   constexpr std::uint32_t kLinkLocal = 0xa9fe;
   if ( from == 0 ) return "a source of this network";
   if ( from == 127 ) return "a loopback source";
   if ( from >= 240 ) return "a source of class E";
   if ( from >= 224 ) return "a source of class D";
   if ( to == 0 ) return "a destination of this network";
   if ( to == 127 ) return "a loopback destination";
   if ( to >= 240 ) return "a destination of class E";
   if ( src.value >> 16 == kLinkLocal || dst.value >> 16 == kLinkLocal ) return "a link-local address";
   return nullptr;
}

Flow Flow::of( const Ipv4Header & header, const Packet & packet ) {
   Flow flow{ header.src(), header.dst(), header.proto() };
   const bool ports = flow.proto == kProtoTcp || flow.proto == kProtoUdp;
   const bool fragment = header.moreFragments() || header.fragmentOffset() != 0;
   if ( !ports || fragment || packet.size() < header.headerLen() + 4 ) return flow;
   const auto * l4 = packet.data() + header.headerLen();
   flow.sport = get16( l4 );
   flow.dport = get16( l4 + 2 );
   return flow;
}

std::uint32_t Flow::hash() const {
   const auto addresses = std::uint64_t( src.value ) << 32 | dst.value;
   const auto rest = std::uint64_t( proto ) << 32 | std::uint64_t( sport ) << 16 | dport;
   return std::uint32_t( mixed( mixed( addresses + 0x9e3779b97f4a7c15 ) ^ rest ) >> 32 );
}

} // namespace Vexdp
