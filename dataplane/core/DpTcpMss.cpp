#include "DpTcpMss.h"

#include "DpWalk.h"

namespace Vexdp {

namespace {

constexpr std::size_t kTcpMinLen = 20;
constexpr std::size_t kFlagsAt = 13;
constexpr std::uint8_t kSyn = 0x02;
constexpr std::size_t kChecksumAt = 16;

enum Option : std::uint8_t { endOfList = 0, noOperation = 1, maxSegmentSize = 2 };
constexpr std::size_t kMssOptionLen = 4;

// Offset of the first MSS option in a TCP header from `at` on, 0 when there is none.
std::size_t mssOptionAt( std::span< const std::uint8_t > tcp, std::size_t at ) {
   while ( at < tcp.size() && tcp[ at ] != endOfList ) {
      if ( tcp[ at ] == noOperation ) {
         ++at;
         continue;
      }
      if ( at + 2 > tcp.size() ) return 0;
      const std::size_t len = tcp[ at + 1 ];
      if ( len < 2 || at + len > tcp.size() ) return 0;
      if ( tcp[ at ] == maxSegmentSize && len == kMssOptionLen ) return at;
      at += len;
   }
   return 0;
}

// A 16-bit field at an odd offset lies across two of the words that are summed: its bytes count the other way round.
std::uint16_t asSummed( std::uint16_t value, std::size_t at ) {
   return at % 2 == 0 ? value : std::uint16_t( value << 8 | value >> 8 );
}

} // namespace

std::optional< vex::pb::TcpMssAdjustArg > TcpMssClamp::changeFrom( const TcpMssClamp & before ) const {
   if ( *this == before ) return std::nullopt;
   vex::pb::TcpMssAdjustArg arg;
   if ( mss != before.mss ) arg.set_mss( mss );
   if ( doChecksum != before.doChecksum ) arg.set_do_mss_checksum( doChecksum );
   return arg;
}

void TcpMssClamp::apply( const Ipv4Header & header, Packet & packet, Context & context ) const {
   if ( mss == 0 || header.proto() != kProtoTcp || header.fragmentOffset() != 0 ) return;
   const std::span l4( packet.data() + header.headerLen(), packet.size() - header.headerLen() );
   if ( l4.size() < kTcpMinLen || ( l4[ kFlagsAt ] & kSyn ) == 0 ) return;
   const std::size_t headerLen = std::size_t( l4[ 12 ] >> 4 ) * 4;
   if ( headerLen < kTcpMinLen || headerLen > l4.size() ) return;
   const auto tcp = l4.first( headerLen );
   for ( auto at = mssOptionAt( tcp, kTcpMinLen ); at != 0; at = mssOptionAt( tcp, at + kMssOptionLen ) ) {
      const auto announced = get16( &tcp[ at + 2 ] );
      if ( announced <= mss ) continue;
      put16( &tcp[ at + 2 ], std::uint16_t( mss ) );
      if ( doChecksum )
         put16( &tcp[ kChecksumAt ], checksumChanged( get16( &tcp[ kChecksumAt ] ), asSummed( announced, at ),
                                                      asSummed( std::uint16_t( mss ), at ) ) );
      context.note( "MSS {} clamped to {}", announced, mss );
   }
}

} // namespace Vexdp
