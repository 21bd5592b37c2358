#include "DpIp4GreTun.h"

#include "DpGraph.h"
#include "DpIpv4.h"
#include "DpModuleClass.h"
#include "DpWalk.h"

#include <cerrno>

namespace Vexdp {

using namespace vex::pb;

namespace {

constexpr GateId kGreOut = 1;
constexpr std::uint16_t kKeyPresent = 0x2000;

Ipv4Addr sourceOf( const Ip4GreTunArg & init ) { return { init.ip_encap_arg().tun_src_ip() }; }
std::uint8_t outerProto( const Ip4GreTunArg & init ) {
   return init.ip_encap_arg().has_proto() ? std::uint8_t( init.ip_encap_arg().proto() ) : kProtoGre;
}
Ipv4Addr destinationOf( const Ip4GreTunArg & init ) { return { init.ip_encap_arg().tun_dst_ip() }; }

} // namespace

const ModuleClass & Ip4GreTun::moduleClass() {
   static const ModuleClass self = describe< Ip4GreTun, Ip4GreTunArg >(
        "Ip4GreTun", "prepends GRE and an outer IPv4 header", { .igates = 1, .ogates = 2 },
        { command< &Ip4GreTun::setIp4TunTos >( "setIp4TunTos" ),
          command< &Ip4GreTun::setIp4TunTtl >( "setIp4TunTtl" ) } );
   return self;
}

Outcome Ip4GreTun::check( const Ip4GreTunArg & init ) {
   const auto & encap = init.ip_encap_arg();
   if ( auto out = requireFields( { { encap.has_tun_src_ip(), "ip_encap_arg.tun_src_ip" },
                                    { encap.has_tun_dst_ip(), "ip_encap_arg.tun_dst_ip" } } );
        !out.ok() )
      return out;
   if ( auto out = requireAtMost( "proto", encap.proto(), 255 ); !out.ok() ) return out;
   if ( auto out = requireAtMost( "tun_tos", encap.tun_tos(), 255 ); !out.ok() ) return out;
   return requireAtMost( "tun_ttl", encap.tun_ttl(), 255 );
}

Ip4GreTun::Ip4GreTun( Identity identity, const Ip4GreTunArg & init ) :
     Module( std::move( identity ) ), init_( init ),
     nextId_( graph().kept< OuterIds >().of( sourceOf( init ), destinationOf( init ), outerProto( init ) ) ) {}

Outcome Ip4GreTun::setIp4TunTos( const TunTosArg & arg ) {
   if ( auto out = requireFields( { { arg.has_tun_tos(), "tun_tos" } } ); !out.ok() ) return out;
   copyTos_ = arg.tun_tos();
   return {};
}

Outcome Ip4GreTun::setIp4TunTtl( const TunTtlArg & arg ) {
   if ( auto out = requireFields( { { arg.has_ttl_from_inner_header(), "ttl_from_inner_header" } } ); !out.ok() )
      return out;
   innerTtl_ = arg.ttl_from_inner_header();
   return {};
}

Fate Ip4GreTun::process( Packet & packet, Context & context ) {
   auto inner = Ipv4Header::of( packet );
   if ( !inner ) return context.drop( kNoCounter, "not an IPv4 packet" );
   if ( destinationOf( init_ ).value == 0 ) return context.drop( kNoCounter, "the tunnel has no destination" );
   if ( init_.cp_ingress() ) packet.meta.own = true;
   if ( !takeHop( *inner, packet ) ) return context.punt( "the TTL expired" );
   const auto within = inner->ttl();
   const auto without = outerTtl( within );
   if ( !encapsulate( packet, without, context ) )
      return context.drop( kNoCounter, "no room for the tunnel's headers" );
   context.note( "TTL {}, GRE from {} to {}, key {}, outer TTL {}", within, sourceOf( init_ ), destinationOf( init_ ),
                 init_.gre_key(), without );
   return context.forward( kGreOut );
}

void Ip4GreTun::processAll( Packets packets, Context & context ) { context.each( packets, *this ); }

bool Ip4GreTun::punts( const Packet & packet ) const {
   return destinationOf( init_ ).value != 0 && !init_.cp_ingress() && !hasHop( packet );
}

std::uint8_t Ip4GreTun::outerTtl( std::uint8_t inner ) const {
   const auto configured = std::uint8_t( init_.ip_encap_arg().tun_ttl() );
   return innerTtl_.value_or( false ) || configured == 0 ? inner : configured;
}

bool Ip4GreTun::encapsulate( Packet & packet, std::uint8_t ttl, const Context & context ) {
   const bool key = init_.gre_key() != 0;
   const std::size_t greLen = key ? 8 : 4;
   const auto totalLen = Ipv4Header::kMinLen + greLen + packet.size();
   if ( totalLen > Ipv4Header::kMaxTotalLen ) return false;
   auto * outer = packet.prepend( Ipv4Header::kMinLen + greLen );
   if ( outer == nullptr ) return false;

   const auto & encap = init_.ip_encap_arg();
   writeIpv4Header( outer, { .tos = copyTos_.value_or( true ) ? std::uint8_t( encap.tun_tos() ) : std::uint8_t( 0 ),
                             .totalLen = std::uint16_t( totalLen ),
                             .id = countUp( *nextId_, context.seat().shared() ),
                             .ttl = ttl,
                             .proto = outerProto( init_ ),
                             .src = sourceOf( init_ ),
                             .dst = destinationOf( init_ ) } );
   auto * gre = outer + Ipv4Header::kMinLen;
   put16( gre, key ? kKeyPresent : 0 );
   put16( gre + 2, kEtherTypeIpv4 );
   if ( key ) put32( gre + 4, init_.gre_key() );
   return true;
}

CommandSource Ip4GreTun::commands() const {
   return [ copyTos = copyTos_, innerTtl = innerTtl_ ]( CommandSink & sink ) {
      if ( copyTos ) {
         TunTosArg arg;
         arg.set_tun_tos( *copyTos );
         sink.command( "setIp4TunTos", arg );
      }
      if ( innerTtl ) {
         TunTtlArg arg;
         arg.set_ttl_from_inner_header( *innerTtl );
         sink.command( "setIp4TunTtl", arg );
      }
   };
}

std::string Ip4GreTun::desc() const { return fmt::format( "{} -> {}", sourceOf( init_ ), destinationOf( init_ ) ); }

} // namespace Vexdp
