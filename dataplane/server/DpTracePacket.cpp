#include "DpTracePacket.h"

#include "DpEtherClassify.h"
#include "DpEthernet.h"
#include "DpPorts.h"
#include "DpWalk.h"

#include <cerrno>

namespace Vexdp {

using vex::pb::TracePacketReply;
using vex::pb::TracePacketRequest;

namespace {

constexpr std::uint8_t kDefaultTtl = 64;
constexpr std::uint8_t kSyn = 0x02;
constexpr std::size_t kMssOptionLen = 4;
constexpr std::uint16_t kAnnouncedMss = 1460;
constexpr std::size_t kTcpLen = 20;
constexpr std::size_t kUdpLen = 8;
constexpr std::size_t kIcmpLen = 8;

// A neighbour that exists nowhere (locally administered).
constexpr MacAddr kSender{ { 0x02, 0, 0, 0, 0, 0x01 } };

Outcome requireFitting( const TracePacketRequest & request ) {
   struct {
      const char * field;
      std::uint32_t value;
      std::uint32_t limit;
   } const fields[] = {
        { "proto", request.proto(), 255 },
        { "sport", request.sport(), 65535 },
        { "dport", request.dport(), 65535 },
        { "ttl", request.ttl(), 255 },
        { "dscp", request.dscp(), 63 },
        { "length", request.length(), 65535 },
        { "tcp_flags", request.tcp_flags(), 255 },
        { "icmp_type", request.icmp_type(), 255 },
        { "icmp_code", request.icmp_code(), 255 },
   };
   for ( const auto & field : fields )
      if ( auto out = requireAtMost( field.field, field.value, field.limit ); !out.ok() ) return out;
   return {};
}

std::size_t l4HeaderLen( const TracePacketRequest & request ) {
   if ( !request.payload().empty() ) return request.payload().size();
   switch ( request.proto() ) {
   case kProtoTcp: {
      const bool room = request.length() == 0 || request.length() >= Ipv4Header::kMinLen + kTcpLen + kMssOptionLen;
      return request.tcp_flags() & kSyn && room ? kTcpLen + kMssOptionLen : kTcpLen;
   }
   case kProtoUdp: return kUdpLen;
   case kProtoIcmp: return kIcmpLen;
   default: return 0;
   }
}

void writeTcp( std::span< std::uint8_t > l4, std::size_t headerLen, const TracePacketRequest & request ) {
   put16( &l4[ 0 ], std::uint16_t( request.sport() ) );
   put16( &l4[ 2 ], std::uint16_t( request.dport() ) );
   l4[ 12 ] = std::uint8_t( headerLen / 4 << 4 );
   l4[ 13 ] = std::uint8_t( request.tcp_flags() );
   put16( &l4[ 14 ], 0xffff );
   if ( headerLen > kTcpLen ) {
      l4[ kTcpLen ] = 2;
      l4[ kTcpLen + 1 ] = kMssOptionLen;
      put16( &l4[ kTcpLen + 2 ], kAnnouncedMss );
   }
   put16( &l4[ 16 ], std::uint16_t( ~onesSum(
                          l4, pseudoHeaderSum( { request.src() }, { request.dst() }, kProtoTcp, l4.size() ) ) ) );
}

void writeUdp( std::span< std::uint8_t > l4, const TracePacketRequest & request ) {
   put16( &l4[ 0 ], std::uint16_t( request.sport() ) );
   put16( &l4[ 2 ], std::uint16_t( request.dport() ) );
   put16( &l4[ 4 ], std::uint16_t( l4.size() ) );
   const auto sum = onesSum( l4, pseudoHeaderSum( { request.src() }, { request.dst() }, kProtoUdp, l4.size() ) );
   // 0 would say that there is no checksum (RFC 768).
   put16( &l4[ 6 ], sum == 0xffff ? std::uint16_t( 0xffff ) : std::uint16_t( ~sum ) );
}

void writeIcmp( std::span< std::uint8_t > l4, const TracePacketRequest & request ) {
   l4[ 0 ] = std::uint8_t( request.icmp_type() );
   l4[ 1 ] = std::uint8_t( request.icmp_code() );
   put16( &l4[ 2 ], std::uint16_t( ~onesSum( l4 ) ) );
}

void writeL4( std::span< std::uint8_t > l4, std::size_t headerLen, const TracePacketRequest & request ) {
   if ( const auto & payload = request.payload(); !payload.empty() ) {
      std::ranges::copy( payload, l4.begin() );
      return;
   }
   switch ( request.proto() ) {
   case kProtoTcp: return writeTcp( l4, headerLen, request );
   case kProtoUdp: return writeUdp( l4, request );
   case kProtoIcmp: return writeIcmp( l4, request );
   default: return;
   }
}

// The address that a neighbour would send the packet to. Nothing when the interface has no frames.
std::optional< MacAddr > frameDestination( const PortRx & source, Ipv4Addr dst ) {
   const auto & gates = source.ogates();
   const auto * classify = gates.empty() ? nullptr : dynamic_cast< const EtherClassify * >( gates[ 0 ].peer );
   if ( classify == nullptr || !classify->mac() ) return std::nullopt;
   if ( dst.value == 0xffffffff ) return MacAddr{ { 0xff, 0xff, 0xff, 0xff, 0xff, 0xff } };
   if ( dst.value >> 28 != 0xe ) return classify->mac();
   // RFC 1112, section 6.4
   return MacAddr{ { 0x01, 0x00, 0x5e, std::uint8_t( dst.value >> 16 & 0x7f ), std::uint8_t( dst.value >> 8 ),
                     std::uint8_t( dst.value ) } };
}

} // namespace

Outcome describedPacket( const TracePacketRequest & request, Packet & packet ) {
   if ( auto out = requireFitting( request ); !out.ok() ) return out;
   const auto l4HeaderLength = l4HeaderLen( request );
   const auto headers = Ipv4Header::kMinLen + l4HeaderLength;
   const std::size_t length = request.length() == 0 ? headers : request.length();
   if ( length < headers )
      return refuse( EINVAL, "length {} is less than the headers of protocol {}, {} bytes", length, request.proto(),
                     headers );
   packet = Packet( length );
   writeIpv4Header( packet.data(), { .tos = std::uint8_t( request.dscp() << 2 ),
                                     .totalLen = std::uint16_t( length ),
                                     .ttl = request.ttl() == 0 ? kDefaultTtl : std::uint8_t( request.ttl() ),
                                     .proto = std::uint8_t( request.proto() ),
                                     .src = { request.src() },
                                     .dst = { request.dst() } } );
   writeL4( { packet.data() + Ipv4Header::kMinLen, length - Ipv4Header::kMinLen }, l4HeaderLength, request );
   return {};
}

const PortRx * sourceOf( const Graph & graph, const std::string & intfname ) {
   for ( const auto & [ name, module ] : graph.modules() )
      if ( const auto * port = dynamic_cast< const PortRx * >( module.get() ); port && port->intfname() == intfname )
         return port;
   return nullptr;
}

Outcome tracePacket( const Graph & graph, const PortRx & source, Walk & walk, const TracePacketRequest & request,
                     TracePacketReply & reply ) {
   Packet packet( 0 );
   if ( auto out = describedPacket( request, packet ); !out.ok() ) return out;
   if ( const auto dst = frameDestination( source, { request.dst() } ) )
      prependEthernet( packet, *dst, kSender, kEtherTypeIpv4 );
   walk.run( *graph.find( source.name() ), std::move( packet ), &reply );
   return {};
}

Outcome tracePacket( const Graph & graph, CounterTable & counters, const TracePacketRequest & request,
                     TracePacketReply & reply ) {
   const auto * source = sourceOf( graph, request.intfname() );
   if ( source == nullptr ) return refuse( ENOENT, "no PortRx has the interface \"{}\"", request.intfname() );
   Walk walk( counters, request.count() ? Purpose::counted : Purpose::described );
   return tracePacket( graph, *source, walk, request, reply );
}

} // namespace Vexdp
