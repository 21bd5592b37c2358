// Numbers and addresses that every module speaks of, with their text forms.
#pragma once

#include <fmt/format.h>

#include <array>
#include <compare>
#include <cstdint>
#include <cstring>

namespace Vexdp {

using GateId = std::uint32_t;
using CounterId = std::uint32_t;

// All ones says "none" on the wire.
inline constexpr GateId kNoGate = 0xffffffff;
inline constexpr CounterId kNoCounter = 0xffffffff;

// Gates of one side of a module, of any class, are numbered below this.
inline constexpr GateId kMaxGates = 8192;

// IANA EtherTypes and IP protocol numbers.
inline constexpr std::uint16_t kEtherTypeIpv4 = 0x0800;
inline constexpr std::uint16_t kEtherTypeIpv6 = 0x86dd;
inline constexpr std::uint8_t kProtoIcmp = 1;
inline constexpr std::uint8_t kProtoTcp = 6;
inline constexpr std::uint8_t kProtoUdp = 17;
inline constexpr std::uint8_t kProtoGre = 47;
inline constexpr std::uint8_t kProtoEsp = 50; // RFC 4303

struct MacAddr {
   std::array< std::uint8_t, 6 > bytes{};

   // Broadcast or multicast (IEEE 802, the I/G bit).
   bool isGroup() const { return bytes[ 0 ] & 1; }
   friend auto operator<=>( const MacAddr &, const MacAddr & ) = default;
   friend bool operator==( const MacAddr & a, const MacAddr & b ) {
      return std::memcmp( a.bytes.data(), b.bytes.data(), sizeof a.bytes ) == 0;
   }
};

// Host byte order.
struct Ipv4Addr {
   std::uint32_t value = 0;

   bool isMulticast() const { return value >> 28 == 0xe; }
   friend auto operator<=>( const Ipv4Addr &, const Ipv4Addr & ) = default;
};

// The bits of a prefix of this length. REQUIRES: len <= 32
constexpr std::uint32_t maskOf( unsigned len ) { return len == 0 ? 0 : ~std::uint32_t( 0 ) << ( 32 - len ); }

struct Ipv4Prefix {
   Ipv4Addr addr;
   std::uint8_t len = 0;
   friend auto operator<=>( const Ipv4Prefix &, const Ipv4Prefix & ) = default;
};

} // namespace Vexdp

template <>
struct fmt::formatter< Vexdp::MacAddr > {
   constexpr auto parse( format_parse_context & ctx ) { return ctx.begin(); }
   auto format( const Vexdp::MacAddr & mac, format_context & ctx ) const {
      return fmt::format_to( ctx.out(), "{:02x}", fmt::join( mac.bytes, ":" ) );
   }
};

template <>
struct fmt::formatter< Vexdp::Ipv4Addr > {
   constexpr auto parse( format_parse_context & ctx ) { return ctx.begin(); }
   auto format( const Vexdp::Ipv4Addr & addr, format_context & ctx ) const {
      const auto v = addr.value;
      return fmt::format_to( ctx.out(), "{}.{}.{}.{}", v >> 24, v >> 16 & 255, v >> 8 & 255, v & 255 );
   }
};

template <>
struct fmt::formatter< Vexdp::Ipv4Prefix > {
   constexpr auto parse( format_parse_context & ctx ) { return ctx.begin(); }
   auto format( const Vexdp::Ipv4Prefix & prefix, format_context & ctx ) const {
      return fmt::format_to( ctx.out(), "{}/{}", prefix.addr, prefix.len );
   }
};
