#include "DpTunnelIngress.h"

#include "DpModuleClass.h"
#include "DpWalk.h"

#include <cerrno>

namespace Vexdp {

using vex::pb::TunnelEndArg;

namespace {

// Flags of the first word (RFC 2784, section 2.1; RFC 2890, section 2).
constexpr std::uint16_t kGreChecksum = 0x8000;
constexpr std::uint16_t kGreKey = 0x2000;
constexpr std::uint16_t kGreSequence = 0x1000;
constexpr std::uint16_t kGreRefused = 0x4c00; // a receiver of RFC 2784 discards what has one of them
constexpr std::uint16_t kGreVersion = 0x0007;

struct Gre {
   std::size_t len = 4;
   std::uint32_t key = 0;

   // Nothing when the bytes are too few.
   static std::optional< Gre > of( std::span< const std::uint8_t > bytes ) {
      Gre gre;
      if ( bytes.size() < gre.len ) return std::nullopt;
      const auto flags = get16( bytes.data() );
      if ( flags & kGreChecksum ) gre.len += 4;
      const auto keyAt = gre.len;
      if ( flags & kGreKey ) gre.len += 4;
      if ( flags & kGreSequence ) gre.len += 4;
      if ( bytes.size() < gre.len ) return std::nullopt;
      if ( flags & kGreKey ) gre.key = get32( &bytes[ keyAt ] );
      return gre;
   }
};

} // namespace

const ModuleClass & TunnelIngress::moduleClass() {
   static const ModuleClass self = shared( describe< TunnelIngress, bess::pb::EmptyArg >(
        "TunnelIngress", "the ends of tunnels: finds the tunnel interface, and takes GRE off",
        { .igates = kMaxGates, .ogates = kMaxGates },
        { command< &TunnelIngress::addTunnel >( "addTunnel" ),
          command< &TunnelIngress::delTunnel >( "delTunnel" ) } ) );
   return self;
}

TunnelIngress::GreEnd TunnelIngress::greEndOf( const TunnelEndArg & arg ) {
   return { arg.vrf(), { arg.local_ip() }, { arg.remote_ip() }, arg.gre_key(), arg.encap_id() };
}

Outcome TunnelIngress::addTunnel( const TunnelEndArg & arg ) {
   if ( auto out = requireFields( { { arg.has_ogate(), "ogate" },
                                    { arg.has_vrf(), "vrf" },
                                    { arg.has_local_ip(), "local_ip" },
                                    { arg.has_remote_ip(), "remote_ip" } } );
        !out.ok() )
      return out;
   if ( auto out = requireAtMost( "ogate", arg.ogate(), mclass().gates.ogates - 1 ); !out.ok() ) return out;
   if ( arg.ogate() == Context::kTrapGate ) return refuse( EINVAL, "ogate 0 leads to the trap" );
   if ( !arg.gre() && arg.encap_id() == 0 ) return refuse( EINVAL, "a tunnel without GRE has no encap_id" );
   if ( tunnels_.contains( arg.ogate() ) ) return refuse( EEXIST, "gate {} has a tunnel already", arg.ogate() );
   if ( arg.gre() ) {
      const auto [ at, added ] = gre_.try_emplace( greEndOf( arg ), arg.ogate() );
      if ( !added )
         return refuse( EEXIST, "gate {} has the tunnel from {} to {} with key {}", at->second,
                        Ipv4Addr{ arg.remote_ip() }, Ipv4Addr{ arg.local_ip() }, arg.gre_key() );
   } else {
      // Of the several interfaces that a connection may have, what comes in enters the first.
      bare_.try_emplace( BareEnd( arg.vrf(), arg.encap_id() ), arg.ogate() );
   }
   if ( arg.gre() ) ++ends_[ { arg.vrf(), arg.local_ip(), arg.remote_ip() } ];
   tunnels_.emplace( arg.ogate(), arg );
   return {};
}

Outcome TunnelIngress::delTunnel( const TunnelEndArg & arg ) {
   if ( auto out = requireFields( { { arg.has_ogate(), "ogate" } } ); !out.ok() ) return out;
   const auto at = tunnels_.extract( arg.ogate() );
   if ( at.empty() ) return refuse( ENOENT, "gate {} has no tunnel", arg.ogate() );
   const auto & gone = at.mapped();
   if ( gone.gre() ) {
      gre_.erase( greEndOf( gone ) );
      const std::tuple end( gone.vrf(), gone.local_ip(), gone.remote_ip() );
      if ( --ends_[ end ] == 0 ) ends_.erase( end );
      return {};
   }
   const BareEnd end( gone.vrf(), gone.encap_id() );
   if ( bare_.at( end ) != gone.ogate() ) return {};
   bare_.erase( end );
   for ( const auto & [ gate, other ] : tunnels_ )
      if ( !other.gre() && BareEnd( other.vrf(), other.encap_id() ) == end ) bare_.try_emplace( end, gate );
   return {};
}

Fate TunnelIngress::process( Packet & packet, Context & context ) {
   Found found;
   return process( packet, context, found );
}

void TunnelIngress::processAll( Packets packets, Context & context ) {
   Found found;
   context.each( packets, [ & ]( Packet & packet ) { return process( packet, context, found ); } );
}

Fate TunnelIngress::process( Packet & packet, Context & context, Found & found ) {
   const auto header = Ipv4Header::of( packet );
   if ( !header ) return context.drop( kNoCounter, "not an IPv4 packet" );
   const auto encapId = packet.meta.encapId;
   if ( encapId != 0 ) {
      const auto at = bare_.find( BareEnd( packet.meta.vrf, encapId ) );
      if ( at != bare_.end() ) return enter( at->second, packet, context );
   }
   if ( header->proto() != kProtoGre || header->isFragment() ) return noTunnel( packet, context );
   return openGre( *header, packet, context, found );
}

const GateId * TunnelIngress::gateOf( const GreEnd & end, Found & found ) const {
   if ( found.gate != nullptr && found.end == end ) return found.gate;
   const auto at = gre_.find( end );
   if ( at == gre_.end() ) return nullptr;
   found = { end, &at->second };
   return found.gate;
}

Fate TunnelIngress::openGre( const Ipv4Header & outer, Packet & packet, Context & context, Found & found ) {
   const auto bytes = packet.span().subspan( outer.headerLen() );
   const auto gre = Gre::of( bytes );
   if ( !gre ) return context.drop( kNoCounter, "GRE of {} bytes", bytes.size() );
   const auto * const gate =
        gateOf( { packet.meta.vrf, outer.dst(), outer.src(), gre->key, packet.meta.encapId }, found );
   const auto flags = get16( bytes.data() );
   if ( gate == nullptr || ( flags & kGreVersion ) != 0 ) return noTunnel( packet, context );
   if ( flags & kGreRefused ) return context.drop( kNoCounter, "GRE flags {:#06x}", flags );
   if ( flags & kGreChecksum && onesSum( bytes ) != 0xffff ) return context.drop( kNoCounter, "a bad GRE checksum" );
   const bool ipv4 = get16( bytes.data() + 2 ) == kEtherTypeIpv4;
   if ( !ipv4 && get16( bytes.data() + 2 ) != kEtherTypeIpv6 ) return noTunnel( packet, context );
   context.note( "GRE from {}, key {}", outer.src(), gre->key );
   const auto outerTos = outer.tos();
   packet.pull( outer.headerLen() + gre->len );
   if ( auto inner = ipv4 ? Ipv4Header::of( packet ) : std::nullopt; inner && !takeOuterEcn( *inner, outerTos ) )
      return context.drop( kNoCounter, "congestion on the way of what has no ECN" );
   return enter( *gate, packet, context );
}

Fate TunnelIngress::noTunnel( Packet & packet, Context & context ) {
   packet.meta.forKernel = true;
   if ( packet.meta.encapId == 0 ) return context.punt( "it is for no tunnel" );
   return context.drop( kNoCounter, "connection {} has no tunnel for it", packet.meta.encapId );
}

// As if it had just come in there.
Fate TunnelIngress::enter( GateId gate, Packet & packet, Context & context ) {
   auto & meta = packet.meta;
   meta.encapId = 0;
   meta.ttlDone = false;
   meta.own = false;
   meta.linkGroup = false;
   context.note( "into the tunnel" );
   return context.forward( gate );
}

CommandSource TunnelIngress::commands() const {
   return [ tunnels = tunnels_ ]( CommandSink & sink ) {
      for ( const auto & [ gate, tunnel ] : tunnels ) sink.command( "addTunnel", tunnel );
   };
}

std::string TunnelIngress::desc() const { return fmt::format( "{} tunnels", tunnels_.size() ); }

} // namespace Vexdp
