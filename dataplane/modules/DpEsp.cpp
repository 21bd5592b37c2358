#include "DpEsp.h"

#include "DpEspCrypto.h"

#include <algorithm>
#include <limits>

namespace Vexdp {

namespace {

constexpr std::size_t kHeaderLen = 8;
constexpr std::size_t kTrailerLen = 2; // length of the padding, next header
constexpr std::size_t kUdpLen = 8;
constexpr std::uint8_t kProtoIpv4 = 4; // IPv4 in IP
constexpr std::uint8_t kOuterTtl = 64;

bool isFragment( const Ipv4Header & header ) { return header.moreFragments() || header.fragmentOffset() != 0; }

bool isWhole( const Ipv4Header & header, const Packet & packet ) {
   return header.totalLen() >= header.headerLen() && header.totalLen() <= packet.size();
}

EspPieces piecesOf( const IpsecSa & sa, ByteSpan esp ) {
   const auto ivLen = espIvLen( sa.cipher() );
   const auto payloadLen = esp.size() - kHeaderLen - ivLen - sa.icvLen();
   return { esp.first( kHeaderLen ), esp.subspan( kHeaderLen, ivLen ), esp.subspan( kHeaderLen + ivLen, payloadLen ),
            esp.last( sa.icvLen() ) };
}

// The bytes, padding of 1, 2, 3 ..., its length and the next header.
void writePayload( ByteSpan payload, ConstByteSpan bytes, std::uint8_t next ) {
   std::ranges::copy( bytes, payload.begin() );
   const auto padLen = payload.size() - bytes.size() - kTrailerLen;
   for ( std::size_t i = 0; i < padLen; ++i ) payload[ bytes.size() + i ] = std::uint8_t( i + 1 );
   payload[ payload.size() - 2 ] = std::uint8_t( padLen );
   payload[ payload.size() - 1 ] = next;
}

// What was before the padding; nothing when the padding is wrong.
std::optional< ByteSpan > withoutPadding( ByteSpan payload ) {
   const std::size_t padLen = payload[ payload.size() - 2 ];
   if ( padLen + kTrailerLen > payload.size() ) return std::nullopt;
   const auto bytes = payload.first( payload.size() - kTrailerLen - padLen );
   for ( std::size_t i = 0; i < padLen; ++i )
      if ( payload[ bytes.size() + i ] != i + 1 ) return std::nullopt;
   return bytes;
}

// The header in front of ESP, and UDP's where there is one.
void writeFront( const IpsecSa & sa, std::uint32_t sequence, Ipv4Header & inner, Packet & out, std::size_t headerLen ) {
   const auto proto = sa.udp() ? kProtoUdp : kProtoEsp;
   auto * at = out.data();
   if ( sa.tunnelMode() ) {
      writeIpv4Header( at, { .tos = inner.tos(),
                             .totalLen = std::uint16_t( out.size() ),
                             .id = std::uint16_t( sequence ),
                             .ttl = kOuterTtl,
                             .proto = proto,
                             .src = sa.src(),
                             .dst = sa.dst() } );
   } else {
      std::copy_n( inner.bytes(), headerLen, at );
      put16( at + 2, std::uint16_t( out.size() ) );
      at[ 9 ] = proto;
      Ipv4Header::of( out )->checksumRenew();
   }
   if ( !sa.udp() ) return;
   // Without a checksum (RFC 3948, section 2.1).
   put16( at + headerLen, std::uint16_t( sa.entry().encap_src_port() ) );
   put16( at + headerLen + 2, std::uint16_t( sa.entry().encap_dst_port() ) );
   put16( at + headerLen + 4, std::uint16_t( out.size() - headerLen ) );
}

std::size_t frontLen( const Ipv4Header & header, bool udp ) { return header.headerLen() + ( udp ? kUdpLen : 0 ); }

void takePlaceOf( Packet & packet, Packet && with ) {
   with.meta = packet.meta;
   packet = std::move( with );
}

} // namespace

EspFailure espSeal( IpsecSa & sa, Packet & packet, bool advance ) {
   auto inner = Ipv4Header::of( packet );
   if ( !inner || !isWhole( *inner, packet ) ) return "not an IPv4 packet";
   if ( !sa.tunnelMode() && isFragment( *inner ) ) return "a fragment in transport mode";
   if ( sa.sequence == std::numeric_limits< std::uint32_t >::max() ) return "its sequence numbers are used up";

   const auto headerLen = sa.tunnelMode() ? Ipv4Header::kMinLen : inner->headerLen();
   const auto whole = packet.span().first( inner->totalLen() );
   const auto bytes = sa.tunnelMode() ? whole : whole.subspan( headerLen );
   const auto block = espBlockLen( sa.cipher() );
   const auto payloadLen = ( bytes.size() + kTrailerLen + block - 1 ) / block * block;
   const auto front = headerLen + ( sa.udp() ? kUdpLen : 0 );
   const auto size = front + kHeaderLen + espIvLen( sa.cipher() ) + payloadLen + sa.icvLen();
   if ( size > Ipv4Header::kMaxTotalLen ) return "it would be too long";

   Packet out( size );
   const auto sequence = sa.sequence + 1;
   writeFront( sa, sequence, *inner, out, headerLen );
   const auto pieces = piecesOf( sa, ByteSpan( out.data(), size ).subspan( front ) );
   put32( pieces.header.data(), sa.spi() );
   put32( pieces.header.data() + 4, sequence );
   writePayload( pieces.payload, bytes, sa.tunnelMode() ? kProtoIpv4 : inner->proto() );
   if ( !espEncrypt( sa, sequence, pieces ) ) return "the crypto device failed";
   if ( advance ) sa.sequence = sequence;
   takePlaceOf( packet, std::move( out ) );
   return nullptr;
}

std::optional< EspId > EspId::of( Packet & packet ) {
   const auto header = Ipv4Header::of( packet );
   if ( !header || !isWhole( *header, packet ) || isFragment( *header ) ) return std::nullopt;
   const bool udp = header->proto() == kProtoUdp;
   if ( !udp && header->proto() != kProtoEsp ) return std::nullopt;
   const auto front = frontLen( *header, udp );
   if ( header->totalLen() < front + kHeaderLen ) return std::nullopt;
   EspId id{ get32( packet.data() + front ), header->dst(), std::nullopt };
   if ( udp ) id.udpPort = get16( packet.data() + header->headerLen() + 2 );
   // SPI 0 marks a packet of the key exchange (RFC 3948, section 2.2).
   return id.spi == 0 ? std::nullopt : std::optional( id );
}

EspFailure espOpen( IpsecSa & sa, Packet & packet, bool advance ) {
   auto outer = Ipv4Header::of( packet );
   const auto front = frontLen( *outer, sa.udp() );
   const auto overhead = kHeaderLen + espIvLen( sa.cipher() ) + sa.icvLen();
   const auto espLen = outer->totalLen() - front;
   const auto block = espBlockLen( sa.cipher() );
   if ( espLen < overhead + block || ( espLen - overhead ) % block != 0 ) return "its length is wrong";
   const auto sequence = get32( packet.data() + front + 4 );
   if ( !sa.replay.admits( sequence ) ) return "its sequence number has come before, or is too old";

   Packet work = packet;
   const auto pieces = piecesOf( sa, ByteSpan( work.data() + front, espLen ) );
   if ( !espDecrypt( sa, pieces ) ) return "it is not authentic";
   const auto bytes = withoutPadding( pieces.payload );
   if ( !bytes ) return "its padding is wrong";
   const auto next = pieces.payload.back();
   if ( sa.tunnelMode() != ( next == kProtoIpv4 ) ) return "it is not of the association's mode";

   const auto headerLen = sa.tunnelMode() ? 0 : outer->headerLen();
   Packet out( headerLen + bytes->size() );
   std::copy_n( packet.data(), headerLen, out.data() );
   std::ranges::copy( *bytes, out.data() + headerLen );
   if ( !sa.tunnelMode() ) {
      put16( out.data() + 2, std::uint16_t( out.size() ) );
      out.data()[ 9 ] = next;
      Ipv4Header::of( out )->checksumRenew();
   }
   const auto inner = Ipv4Header::of( out );
   if ( !inner || !isWhole( *inner, out ) ) return "what it holds is not an IPv4 packet";
   out.trim( inner->totalLen() );
   if ( advance ) sa.replay.note( sequence );
   takePlaceOf( packet, std::move( out ) );
   return nullptr;
}

} // namespace Vexdp
