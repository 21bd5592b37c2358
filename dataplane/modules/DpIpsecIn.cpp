#include "DpIpsecIn.h"

#include "DpEsp.h"
#include "DpGraph.h"
#include "DpModuleClass.h"
#include "DpWalk.h"

namespace Vexdp {

namespace {

constexpr GateId kDecrypted = 0;

// Null when there is none for such packets.
IpsecSa * inboundOf( const Graph & graph, const EspId & id ) {
   const auto * management = graph.shared< IpsecManagement >();
   auto * sa = management == nullptr ? nullptr : management->inbound( id.spi, id.dst );
   if ( sa == nullptr || sa->udp() != id.udpPort.has_value() ) return nullptr;
   return sa->udp() && sa->entry().encap_dst_port() != *id.udpPort ? nullptr : sa;
}

// From a peer's address to one of an association, or to the UDP port of one: an address of UDP may be a NAT's.
bool isOfPeer( const Graph & graph, const EspId & id, Packet & packet ) {
   const auto * management = graph.shared< IpsecManagement >();
   if ( management == nullptr ) return false;
   return id.udpPort ? management->udpEnd( id.dst, *id.udpPort )
                     : management->bareEnd( Ipv4Header::of( packet )->src(), id.dst );
}

Fate open( IpsecSa * sa, const EspId & id, Packet & packet, Context & context ) {
   if ( sa == nullptr ) return context.drop( kNoCounter, "there is no inbound SA {:#010x} to {}", id.spi, id.dst );
   if ( const auto * why = espOpen( *sa, packet, context.counting(), context.seat() ) )
      return context.drop( kNoCounter, "SA {:#010x}: {}", id.spi, why );
   // A packet of its own: this router's hop is still to be taken from it.
   packet.meta.ttlDone = false;
   packet.meta.own = false;
   packet.meta.encapId = sa->encapId();
   noteSa( *sa, context );
   return context.forward( kDecrypted );
}

} // namespace

const ModuleClass & IpsecTunnelIngress::moduleClass() {
   static const ModuleClass self = describe< IpsecTunnelIngress, bess::pb::EmptyArg >(
        "IpsecTunnelIngress", "opens what comes in for the tunnels", { .igates = kMaxGates, .ogates = 1 }, {} );
   return self;
}

Fate IpsecTunnelIngress::process( Packet & packet, Context & context ) {
   const auto id = EspId::of( packet );
   auto * const sa = id ? inboundOf( graph(), *id ) : nullptr;
   if ( sa != nullptr || ( id && isOfPeer( graph(), *id, packet ) ) ) return open( sa, *id, packet, context );
   packet.meta.forKernel = true;
   return context.handUp( "it holds no ESP of a peer's" );
}

const ModuleClass & IpsecDecrypt::moduleClass() {
   static const ModuleClass self = describe< IpsecDecrypt, bess::pb::EmptyArg >(
        "IpsecDecrypt", "opens ESP among other packets", { .igates = kMaxGates, .ogates = 1 }, {} );
   return self;
}

Fate IpsecDecrypt::process( Packet & packet, Context & context ) {
   if ( const auto id = EspId::of( packet ) ) {
      auto * sa = inboundOf( graph(), *id );
      if ( sa != nullptr || !id->udpPort ) return open( sa, *id, packet, context );
   }
   context.note( "it holds no ESP" );
   return context.forward( kDecrypted );
}

} // namespace Vexdp
