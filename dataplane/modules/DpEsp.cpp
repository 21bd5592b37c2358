#include "DpEsp.h"

#include "DpWalk.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace Vexdp {

namespace {

constexpr std::size_t kHeaderLen = 8;
constexpr std::size_t kTrailerLen = 2; // length of the padding, next header
constexpr std::size_t kUdpLen = 8;
constexpr std::uint8_t kProtoIpv4 = 4;  // IPv4 in IP
constexpr std::uint8_t kProtoNone = 59; // a dummy packet (RFC 4303, section 2.6)
constexpr std::uint8_t kOuterTtl = 64;

bool isWhole( const Ipv4Header & header, const Packet & packet ) {
   return header.totalLen() >= header.headerLen() && header.totalLen() <= packet.size();
}

EspPieces piecesOf( const IpsecSa & sa, ByteSpan esp ) {
   const auto ivLen = espIvLen( sa.cipher() );
   const auto payloadLen = esp.size() - kHeaderLen - ivLen - sa.icvLen();
   return { esp.first( kHeaderLen ), esp.subspan( kHeaderLen, ivLen ), esp.subspan( kHeaderLen + ivLen, payloadLen ),
            esp.last( sa.icvLen() ) };
}

// Behind the first `len` bytes: padding of 1, 2, 3 ..., its length and the next header.
void writeTrailer( ByteSpan payload, std::size_t len, std::uint8_t next ) {
   const auto padLen = payload.size() - len - kTrailerLen;
   for ( std::size_t i = 0; i < padLen; ++i ) payload[ len + i ] = std::uint8_t( i + 1 );
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

// What the header of the packet inside says, before it moves.
struct Inner {
   explicit Inner( const Ipv4Header & header ) :
        headerLen( header.headerLen() ), totalLen( header.totalLen() ), tos( header.tos() ), proto( header.proto() ),
        dontFragment( header.dontFragment() ) {}
   const std::size_t headerLen;
   const std::size_t totalLen;
   const std::uint8_t tos;
   const std::uint8_t proto;
   const bool dontFragment;
};

// The header in front of ESP, and UDP's where there is one. In transport mode the packet's own header is there.
void writeFront( const IpsecSa & sa, const Inner & inner, Packet & packet, std::size_t headerLen, std::uint16_t id ) {
   const auto proto = sa.udp() ? kProtoUdp : kProtoEsp;
   auto * at = packet.data();
   if ( sa.tunnelMode() ) {
      writeIpv4Header( at, { .tos = inner.tos,
                             .totalLen = std::uint16_t( packet.size() ),
                             .id = id,
                             .dontFragment = inner.dontFragment,
                             .ttl = kOuterTtl,
                             .proto = proto,
                             .src = sa.src(),
                             .dst = sa.dst() } );
   } else {
      put16( at + 2, std::uint16_t( packet.size() ) );
      put16( at + 4, id );
      at[ 9 ] = proto;
      Ipv4Header::of( packet )->checksumRenew();
   }
   if ( !sa.udp() ) return;
   // Without a checksum (RFC 3948, section 2.1).
   put16( at + headerLen, std::uint16_t( sa.entry().encap_src_port() ) );
   put16( at + headerLen + 2, std::uint16_t( sa.entry().encap_dst_port() ) );
   put16( at + headerLen + 4, std::uint16_t( packet.size() - headerLen ) );
}

// The same bytes with all the room that ESP can need, where the packet's own buffer has less.
void makeRoom( Packet & packet ) {
   Packet roomy( packet );
   packet = std::move( roomy );
}

// The bytes of ESP in a packet that is long enough for the headers before; none when UDP's length is wrong.
std::optional< std::pair< std::size_t, std::size_t > > espWithin( const Ipv4Header & header, const Packet & packet ) {
   auto begin = header.headerLen();
   std::size_t end = header.totalLen();
   if ( header.proto() == kProtoUdp ) {
      if ( end < begin + kUdpLen ) return std::nullopt;
      const std::size_t udpLen = get16( packet.data() + begin + 4 );
      if ( udpLen < kUdpLen || begin + udpLen > end ) return std::nullopt;
      end = begin + udpLen;
      begin += kUdpLen;
   }
   if ( end < begin + kHeaderLen ) return std::nullopt;
   return std::pair( begin, end - begin );
}

// With `comes` it has, and doesn't come again. Two workers may have the same packet: what the first look let in is
// looked at once more when it is noted.
bool mayCome( IpsecSa & sa, std::uint32_t sequence, bool comes, const Seat & seat ) {
   const OneAtATime one( sa.use().lock, seat.shared() );
   auto & replay = sa.replay();
   if ( ( !comes || seat.shared() ) && !replay.admits( sequence ) ) return false;
   if ( comes ) replay.note( sequence );
   return true;
}

// Anew, over the addresses that the packet has.
void renewL4Checksum( Ipv4Header & header, Packet & packet ) {
   const bool tcp = header.proto() == kProtoTcp;
   const std::size_t at = tcp ? 16 : 6; // place in the header
   ByteSpan l4( packet.data() + header.headerLen(), packet.size() - header.headerLen() );
   if ( ( !tcp && header.proto() != kProtoUdp ) || l4.size() < at + 2 ) return;
   if ( !tcp && get16( &l4[ at ] ) == 0 ) return; // it has none
   put16( &l4[ at ], 0 );
   const auto sum = onesSum( l4, pseudoHeaderSum( header.src(), header.dst(), header.proto(), l4.size() ) );
   put16( &l4[ at ], !tcp && sum == 0xffff ? std::uint16_t( 0xffff ) : std::uint16_t( ~sum ) );
}

EspFailure finishTunnel( Packet & packet, std::uint8_t outerTos ) {
   auto inner = Ipv4Header::of( packet );
   if ( !inner || !isWhole( *inner, packet ) ) return "what it holds is not an IPv4 packet";
   if ( !inner->checksumGood() ) return "what it holds has a bad header checksum";
   packet.trim( inner->totalLen() );
   return takeOuterEcn( *inner, outerTos ) ? nullptr : "congestion on the way of what has no ECN";
}

void finishTransport( const IpsecSa & sa, Packet & packet, std::uint8_t next ) {
   put16( packet.data() + 2, std::uint16_t( packet.size() ) );
   packet.data()[ 9 ] = next;
   auto header = *Ipv4Header::of( packet );
   header.checksumRenew();
   if ( sa.udp() ) renewL4Checksum( header, packet );
}

} // namespace

EspFailure espSeal( IpsecSa & sa, Packet & packet, bool advance, const Seat & seat ) {
   const auto header = Ipv4Header::of( packet );
   if ( !header || !isWhole( *header, packet ) ) return "not an IPv4 packet";
   if ( !sa.tunnelMode() && header->isFragment() ) return "a fragment in transport mode";
   const Inner inner( *header );

   const auto headerLen = sa.tunnelMode() ? Ipv4Header::kMinLen : inner.headerLen;
   const auto len = sa.tunnelMode() ? inner.totalLen : inner.totalLen - headerLen;
   const auto block = espBlockLen( sa.cipher() );
   const auto payloadLen = ( len + kTrailerLen + block - 1 ) / block * block;
   const auto front = headerLen + ( sa.udp() ? kUdpLen : 0 );
   const auto before = front + kHeaderLen + espIvLen( sa.cipher() ); // of the payload
   const auto size = before + payloadLen + sa.icvLen();
   if ( size > Ipv4Header::kMaxTotalLen ) return "it would be too long";
   const auto sequence = sa.use().nextSequence( advance, seat.shared() );
   if ( sequence == 0 ) return "its sequence numbers are used up";

   packet.trim( inner.totalLen );
   const auto opened = sa.tunnelMode() ? before : before - headerLen;
   if ( !packet.append( size - opened - inner.totalLen ) ) {
      makeRoom( packet );
      if ( !packet.append( size - opened - inner.totalLen ) ) return "no room behind it";
   }
   if ( packet.prepend( opened ) == nullptr ) {
      makeRoom( packet );
      if ( packet.prepend( opened ) == nullptr ) return "no room before it";
   }
   if ( !sa.tunnelMode() ) std::memmove( packet.data(), packet.data() + opened, headerLen );

   const auto id = inner.dontFragment ? std::uint16_t( 0 )
                   : advance          ? countUp( sa.nextId(), seat.shared() )
                                      : sa.nextId().load( std::memory_order_relaxed );
   writeFront( sa, inner, packet, headerLen, id );
   const auto pieces = piecesOf( sa, ByteSpan( packet.data(), size ).subspan( front ) );
   put32( pieces.header.data(), sa.spi() );
   put32( pieces.header.data() + 4, sequence );
   writeTrailer( pieces.payload, len, sa.tunnelMode() ? kProtoIpv4 : inner.proto );
   if ( !sa.session().encrypt( sa.use().ivStart + sequence, pieces, seat.worker ) ) return "the crypto device failed";
   return nullptr;
}

std::optional< EspId > EspId::of( Packet & packet ) {
   const auto header = Ipv4Header::of( packet );
   if ( !header || !isWhole( *header, packet ) || header->isFragment() ) return std::nullopt;
   const bool udp = header->proto() == kProtoUdp;
   if ( !udp && header->proto() != kProtoEsp ) return std::nullopt;
   const auto esp = espWithin( *header, packet );
   if ( !esp ) return std::nullopt;
   EspId id{ get32( packet.data() + esp->first ), header->dst(), std::nullopt };
   if ( !udp ) return id;
   // SPI 0 marks a packet of the key exchange (RFC 3948, section 2.2).
   if ( id.spi == 0 ) return std::nullopt;
   id.udpPort = get16( packet.data() + header->headerLen() + 2 );
   return id;
}

EspFailure espOpen( IpsecSa & sa, Packet & packet, bool advance, const Seat & seat ) {
   const auto outer = Ipv4Header::of( packet );
   const auto outerLen = outer->headerLen();
   const auto outerTos = outer->tos();
   const auto esp = espWithin( *outer, packet );
   if ( !esp ) return "its length is wrong";
   const auto [ at, espLen ] = *esp;
   const auto overhead = kHeaderLen + espIvLen( sa.cipher() ) + sa.icvLen();
   const auto block = espBlockLen( sa.cipher() );
   if ( espLen < overhead + block || ( espLen - overhead ) % block != 0 ) return "its length is wrong";
   const auto sequence = get32( packet.data() + at + 4 );
   constexpr EspFailure kReplayed = "its sequence number has come before, or is too old";
   if ( advance ? !mayCome( sa, sequence, false, seat ) : !sa.wouldAdmit( sequence ) ) return kReplayed;

   const auto pieces = piecesOf( sa, ByteSpan( packet.data() + at, espLen ) );
   if ( !sa.session().decrypt( pieces, seat.worker ) ) return "it is not authentic";
   if ( advance && !mayCome( sa, sequence, true, seat ) ) return kReplayed;
   const auto bytes = withoutPadding( pieces.payload );
   if ( !bytes ) return "its padding is wrong";
   const auto next = pieces.payload.back();
   if ( next == kProtoNone ) return "a dummy packet";
   if ( sa.tunnelMode() && next != kProtoIpv4 ) return "it is not of the association's mode";

   const auto kept = sa.tunnelMode() ? 0 : outerLen; // of the header in front
   const auto inFront = std::size_t( bytes->data() - packet.data() ) - kept;
   const auto size = kept + bytes->size();
   std::memmove( packet.data() + inFront, packet.data(), kept );
   packet.pull( inFront );
   packet.trim( size );
   if ( sa.tunnelMode() ) return finishTunnel( packet, outerTos );
   finishTransport( sa, packet, next );
   return nullptr;
}

void noteSa( const IpsecSa & sa, Context & context ) {
   if ( !context.noting() ) return;
   context.note( "SA {:#010x}, {} mode, {}", sa.spi(), sa.tunnelMode() ? "tunnel" : "transport", sa.desc() );
}

} // namespace Vexdp
