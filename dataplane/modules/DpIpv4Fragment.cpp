#include "DpIpv4Fragment.h"

#include "DpIpv4.h"

#include <algorithm>
#include <cassert>

namespace Vexdp {

namespace {

constexpr std::size_t kUnit = 8; // offsets count in these
constexpr std::size_t kMaxOffset = 0x1fff * kUnit;

// The header of the fragments after the first: of the options only those whose copied flag is set, padded to words.
// From one whose length is wrong on nobody can tell options apart, and all goes as its flag says.
std::vector< std::uint8_t > laterHeader( std::span< const std::uint8_t > header ) {
   std::vector< std::uint8_t > later( header.begin(), header.begin() + Ipv4Header::kMinLen );
   for ( std::size_t at = Ipv4Header::kMinLen; at < header.size() && header[ at ] != 0; ) {
      const std::size_t len = header[ at ] == 1 ? 1 : at + 1 < header.size() ? header[ at + 1 ] : 0;
      const bool noOperation = header[ at ] == 1;
      const bool broken = at + len > header.size() || ( len < 2 && !noOperation );
      const auto take = broken ? header.size() - at : len;
      if ( header[ at ] & 0x80 )
         later.insert( later.end(), header.begin() + long( at ), header.begin() + long( at + take ) );
      at += take;
   }
   later.resize( ( later.size() + 3 ) / 4 * 4 );
   later[ 0 ] = std::uint8_t( 0x40 | later.size() / 4 );
   return later;
}

Packet fragment( std::span< const std::uint8_t > header, std::span< const std::uint8_t > payload, std::size_t offset,
                 bool more, const Packet::Meta & meta ) {
   Packet packet( header.size() + payload.size() );
   packet.meta = meta;
   std::ranges::copy( header, packet.data() );
   std::ranges::copy( payload, packet.data() + header.size() );
   put16( packet.data() + 2, std::uint16_t( packet.size() ) );
   put16( packet.data() + 6, std::uint16_t( ( more ? 0x2000 : 0 ) | offset / kUnit ) );
   auto written = Ipv4Header::of( packet );
   assert( written );
   written->checksumRenew();
   return packet;
}

} // namespace

std::vector< Packet > fragmented( Packet & packet, std::size_t mtu ) {
   const auto whole = Ipv4Header::of( packet );
   assert( whole );
   const auto first = packet.span().first( whole->headerLen() );
   const auto later = laterHeader( first );
   auto payload = packet.span().subspan( whole->headerLen() );
   auto offset = whole->fragmentOffset();
   const bool moreBehind = whole->moreFragments();

   std::vector< Packet > fragments;
   while ( !payload.empty() ) {
      const std::span< const std::uint8_t > header = fragments.empty() ? first : std::span( later );
      if ( mtu < header.size() + kUnit || offset > kMaxOffset ) return {};
      const auto fits = ( mtu - header.size() ) / kUnit * kUnit;
      const bool last = header.size() + payload.size() <= mtu;
      const auto take = last ? payload.size() : fits;
      fragments.push_back( fragment( header, payload.first( take ), offset, moreBehind || !last, packet.meta ) );
      payload = payload.subspan( take );
      offset += take;
   }
   return fragments;
}

} // namespace Vexdp
