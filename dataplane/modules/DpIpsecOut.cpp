#include "DpIpsecOut.h"

#include "DpEsp.h"
#include "DpGraph.h"
#include "DpModuleClass.h"
#include "DpWalk.h"

namespace Vexdp {

using vex::pb::IpsecTunnelEgressArg;

namespace {

constexpr GateId kEncrypted = 0;

Fate seal( IpsecSa & sa, Packet & packet, Context & context ) {
   if ( const auto * why = espSeal( sa, packet, context.counting(), context.seat() ) )
      return context.drop( kNoCounter, "SA {:#010x}: {}", sa.spi(), why );
   noteSa( sa, context );
   const auto header = Ipv4Header::of( packet );
   const auto sequenceAt = header->headerLen() + ( sa.udp() ? 8 : 0 ) + 4;
   context.note( "{} from {} to {}, sequence {}", sa.udp() ? "ESP in UDP" : "ESP", header->src(), header->dst(),
                 get32( packet.data() + sequenceAt ) );
   return context.forward( kEncrypted );
}

} // namespace

const ModuleClass & IpsecTunnelEgress::moduleClass() {
   static const ModuleClass self = describe< IpsecTunnelEgress, IpsecTunnelEgressArg >(
        "IpsecTunnelEgress", "protects what leaves by a tunnel interface", { .igates = kMaxGates, .ogates = 1 }, {} );
   return self;
}

Outcome IpsecTunnelEgress::check( const IpsecTunnelEgressArg & init ) {
   if ( auto out = requireFields( { { init.has_vrf(), "vrf" }, { init.has_encap_id(), "encap_id" } } ); !out.ok() )
      return out;
   return requireAtMost( "local_out", init.local_out(), 1 );
}

IpsecTunnelEgress::IpsecTunnelEgress( Identity identity, const IpsecTunnelEgressArg & init ) :
     Module( std::move( identity ) ), vrf_( init.vrf() ), encapId_( init.encap_id() ),
     localOut_( init.local_out() != 0 ) {}

Fate IpsecTunnelEgress::process( Packet & packet, Context & context ) {
   auto header = Ipv4Header::of( packet );
   if ( !header ) return context.drop( kNoCounter, "not an IPv4 packet" );
   const auto * management = graph().shared< IpsecManagement >();
   auto * sa = management == nullptr ? nullptr : management->outbound( vrf_, encapId_ );
   if ( sa == nullptr ) return context.drop( kNoCounter, "connection {} in VRF {} has no outbound SA", encapId_, vrf_ );
   if ( localOut_ ) packet.meta.own = true;
   if ( !takeHop( *header, packet ) ) return context.handUp( "the TTL expired" );
   return seal( *sa, packet, context );
}

bool IpsecTunnelEgress::punts( const Packet & packet ) const {
   const auto * management = graph().shared< IpsecManagement >();
   return !localOut_ && !hasHop( packet ) && management != nullptr && management->outbound( vrf_, encapId_ ) != nullptr;
}

std::string IpsecTunnelEgress::desc() const {
   return fmt::format( "connection {} in VRF {}{}", encapId_, vrf_, localOut_ ? ", own packets" : "" );
}

const ModuleClass & IpsecEncrypt::moduleClass() {
   static const ModuleClass self = describe< IpsecEncrypt, bess::pb::EmptyArg >(
        "IpsecEncrypt", "protects what goes from one host to another", { .igates = kMaxGates, .ogates = 1 }, {} );
   return self;
}

Fate IpsecEncrypt::process( Packet & packet, Context & context ) {
   const auto header = Ipv4Header::of( packet );
   if ( !header ) return context.drop( kNoCounter, "not an IPv4 packet" );
   const auto * management = graph().shared< IpsecManagement >();
   auto * sa = management == nullptr ? nullptr : management->outboundTransport( header->src(), header->dst() );
   if ( sa != nullptr ) return seal( *sa, packet, context );
   context.note( "no SA from {} to {}", header->src(), header->dst() );
   return context.forward( kEncrypted );
}

} // namespace Vexdp
