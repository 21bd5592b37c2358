// IPv4 on the bytes of a packet: the header (RFC 791), checksums (RFC 1071, RFC 1624) and the flow.
#pragma once

#include "DpPacket.h"
#include "DpTypes.h"

#include <array>
#include <cstring>
#include <optional>
#include <span>

namespace Vexdp {

inline std::uint16_t get16( const std::uint8_t * at ) { return std::uint16_t( at[ 0 ] << 8 | at[ 1 ] ); }
inline std::uint32_t get32( const std::uint8_t * at ) { return std::uint32_t( get16( at ) ) << 16 | get16( at + 2 ); }
inline void put16( std::uint8_t * at, std::uint16_t value ) {
   at[ 0 ] = std::uint8_t( value >> 8 );
   at[ 1 ] = std::uint8_t( value );
}
inline void put32( std::uint8_t * at, std::uint32_t value ) {
   put16( at, std::uint16_t( value >> 16 ) );
   put16( at + 2, std::uint16_t( value ) );
}

// What is done for every packet that passes stands here, to be put in place where it is called.

// One's complement sum of 16-bit words, not yet complemented. `sum` carries over from an earlier piece of even length.
std::uint16_t onesSum( std::span< const std::uint8_t > bytes, std::uint16_t sum = 0 );

// What becomes of a checksum when one 16-bit word under it changes (RFC 1624, equation 3).
inline std::uint16_t checksumChanged( std::uint16_t checksum, std::uint16_t oldWord, std::uint16_t newWord ) {
   std::uint32_t sum = std::uint32_t( std::uint16_t( ~checksum ) ) + std::uint16_t( ~oldWord ) + newWord;
   sum = ( sum & 0xffff ) + ( sum >> 16 );
   return std::uint16_t( ~( sum + ( sum >> 16 ) ) );
}

class FoundIpv4Header;

// The header at the front of a packet's bytes. It owns nothing, and holds only until the packet's front moves.
class Ipv4Header {
 public:
   static constexpr std::size_t kMinLen = 20;
   static constexpr std::size_t kMaxTotalLen = 65535;

   // Nothing when the bytes are too few for a header, the version is not 4, or the header's length is impossible.
   static FoundIpv4Header of( Packet & packet );

   std::size_t headerLen() const { return std::size_t( at_[ 0 ] & 15 ) * 4; }
   std::uint8_t tos() const { return at_[ 1 ]; }
   std::uint16_t totalLen() const { return get16( at_ + 2 ); }
   std::uint16_t id() const { return get16( at_ + 4 ); }
   bool dontFragment() const { return at_[ 6 ] & 0x40; }
   bool moreFragments() const { return at_[ 6 ] & 0x20; }
   std::size_t fragmentOffset() const { return std::size_t( get16( at_ + 6 ) & 0x1fff ) * 8; }
   bool isFragment() const { return moreFragments() || fragmentOffset() != 0; }
   std::uint8_t ttl() const { return at_[ 8 ]; }
   std::uint8_t proto() const { return at_[ 9 ]; }
   std::uint16_t checksum() const { return get16( at_ + 10 ); }
   Ipv4Addr src() const { return { get32( at_ + 12 ) }; }
   Ipv4Addr dst() const { return { get32( at_ + 16 ) }; }
   std::uint8_t * bytes() { return at_; }

   bool checksumGood() const {
      if ( headerLen() != kMinLen ) return onesSum( { at_, headerLen() } ) == 0xffff;
      std::array< std::uint32_t, kMinLen / 4 > words;
      std::memcpy( words.data(), at_, kMinLen );
      std::uint64_t sum = 0;
      for ( const auto word : words ) sum += word;
      sum = ( sum & 0xffffffff ) + ( sum >> 32 );
      sum = ( sum & 0xffff ) + ( sum >> 16 & 0xffff ) + ( sum >> 32 );
      return ( sum & 0xffff ) + ( sum >> 16 ) == 0xffff;
   }
   void checksumRenew();
   // Keeps the lower two bits of the TOS, which are of ECN (RFC 3168), and the checksum right. REQUIRES: dscp < 64
   void dscpIs( std::uint8_t dscp );
   // Sets the lower two bits of the TOS, and keeps the checksum right. REQUIRES: ecn < 4
   void ecnIs( std::uint8_t ecn );
   // Takes one from the TTL and keeps the checksum right. REQUIRES: ttl() > 0
   void ttlDecrement() {
      const auto before = get16( at_ + 8 );
      --at_[ 8 ];
      put16( at_ + 10, checksumChanged( checksum(), before, std::uint16_t( before - 0x100 ) ) );
   }

 private:
   friend class FoundIpv4Header;
   explicit Ipv4Header( std::uint8_t * at ) : at_( at ) {}
   std::uint8_t * at_;
};

// A header or nothing. Used as std::optional is, which compilers keep in memory, and wait for at each step of each
// packet.
class FoundIpv4Header {
 public:
   FoundIpv4Header( std::nullopt_t ) : header_( nullptr ) {}
   explicit operator bool() const { return header_.at_ != nullptr; }
   const Ipv4Header & operator*() const { return header_; }
   Ipv4Header & operator*() { return header_; }
   const Ipv4Header * operator->() const { return &header_; }
   Ipv4Header * operator->() { return &header_; }

 private:
   friend class Ipv4Header;
   explicit FoundIpv4Header( Ipv4Header header ) : header_( header ) {}
   Ipv4Header header_;
};

[[gnu::always_inline]] inline FoundIpv4Header Ipv4Header::of( Packet & packet ) {
   if ( packet.size() < kMinLen || packet.data()[ 0 ] >> 4 != 4 ) return std::nullopt;
   const Ipv4Header header( packet.data() );
   if ( header.headerLen() < kMinLen || header.headerLen() > packet.size() ) return std::nullopt;
   return FoundIpv4Header( header );
}

// Takes this router's hop from the TTL, once on the packet's way, and not from the router's own packets. False: the TTL
// ends here (RFC 1812, section 5.3.1). REQUIRES: the header is the packet's
inline bool takeHop( Ipv4Header & header, Packet & packet ) {
   if ( packet.meta.own || packet.meta.ttlDone ) return true;
   if ( header.ttl() <= 1 ) return false;
   header.ttlDecrement();
   packet.meta.ttlDone = true;
   return true;
}
// Whether takeHop() is true of it.
inline bool hasHop( const Packet & packet ) {
   constexpr std::size_t kTtl = 8; // place in the header
   return packet.meta.own || packet.meta.ttlDone || packet.size() < Ipv4Header::kMinLen || packet.data()[ kTtl ] > 1;
}

// What the header of a tunnel says of congestion goes over to the header inside (RFC 6040, figure 4). False: the packet
// is to be dropped, its sender would not hear of it.
bool takeOuterEcn( Ipv4Header & inner, std::uint8_t outerTos );

// Fields of a header without options, to be written whole.
struct Ipv4Fields {
   std::uint8_t tos = 0;
   std::uint16_t totalLen = 0;
   std::uint16_t id = 0;
   bool dontFragment = false;
   std::uint8_t ttl = 0;
   std::uint8_t proto = 0;
   Ipv4Addr src;
   Ipv4Addr dst;
};
// Writes Ipv4Header::kMinLen bytes with a right checksum.
void writeIpv4Header( std::uint8_t * at, const Ipv4Fields & fields );

// Sum of the pseudo-header that TCP and UDP checksums cover (RFC 793, RFC 768), to go on with onesSum().
std::uint16_t pseudoHeaderSum( Ipv4Addr src, Ipv4Addr dst, std::uint8_t proto, std::size_t l4Len );

// Why a router must not forward between these addresses, such as "a source of class E" (RFC 1812, section 5.3.7;
// RFC 3927, section 7); null when it may.
const char * whyMartian( Ipv4Addr src, Ipv4Addr dst );
inline const char * martian( Ipv4Addr src, Ipv4Addr dst ) {
   constexpr std::uint32_t kLinkLocal = 0xa9fe;
   const auto plain = []( Ipv4Addr addr, std::uint32_t end ) {
      const auto net = addr.value >> 24;
      return net - 1 < end - 1 && net != 127 && addr.value >> 16 != kLinkLocal;
   };
   return plain( src, 224 ) && plain( dst, 240 ) ? nullptr : whyMartian( src, dst );
}

// What tells flows apart. Ports are 0 where there are none, and in every fragment, so that the fragments of a packet
// stay together.
struct Flow {
   Ipv4Addr src;
   Ipv4Addr dst;
   std::uint8_t proto = 0;
   std::uint16_t sport = 0;
   std::uint16_t dport = 0;

   static Flow of( const Ipv4Header & header, const Packet & packet );
   // The same in every process and release: a restart moves no flow.
   std::uint32_t hash() const;
};

} // namespace Vexdp
