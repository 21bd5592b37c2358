#include "DpTrap.h"

#include "DpEsp.h"
#include "DpEthernet.h"
#include "DpGraph.h"
#include "DpIpsecManagement.h"
#include "DpModuleClass.h"
#include "DpReassembly.h"
#include "DpTunnelIngress.h"
#include "DpWalk.h"
#include "DpWire.h"

#include <algorithm>

namespace Vexdp {

using vex::pb::PolicyApplyArg;

namespace {
constexpr GateId kToTunnels = 1;
constexpr GateId kToIpsec = 2;
constexpr std::uint16_t kEtherTypeArp = 0x0806;
} // namespace

const ModuleClass & Trap::moduleClass() {
   static const ModuleClass self = trapping( describe< Trap, bess::pb::EmptyArg >(
        "Trap", "packets that go to the router itself", { .igates = kMaxGates, .ogates = 3 },
        { command< &Trap::applyPolicy >( "applyPolicy" ) } ) );
   return self;
}

Trap::Trap( Identity identity, const bess::pb::EmptyArg & ) :
     Module( std::move( identity ) ), used_( graph().kept< UsedReassembly >() ) {}

Outcome Trap::applyPolicy( const PolicyApplyArg & arg ) { return policy_.bind( graph(), RuleTarget::cpu, arg ); }

Trap::Ends Trap::ends() const { return { graph().shared< TunnelIngress >(), graph().shared< IpsecManagement >() }; }

bool Trap::isGreEnd( const Ipv4Header & header, const Packet & packet, Ends & ends ) {
   if ( ends.tunnels == nullptr ) return false;
   const std::array gre{ packet.meta.vrf, header.dst().value, header.src().value };
   if ( ends.gre == gre ) return true;
   if ( !ends.tunnels->greEnd( packet.meta.vrf, header.dst(), header.src() ) ) return false;
   ends.gre = gre;
   return true;
}

std::optional< GateId > Trap::tunnelGate( const Ipv4Header & header, Packet & packet, Ends & ends ) const {
   const auto & meta = packet.meta;
   const auto proto = header.proto();
   if ( meta.forKernel || meta.own || ( proto != kProtoGre && proto != kProtoEsp && proto != kProtoUdp ) )
      return std::nullopt;
   GateId gate = kToIpsec;
   if ( proto == kProtoGre ) {
      if ( !isGreEnd( header, packet, ends ) ) return std::nullopt;
      gate = kToTunnels;
   } else {
      const auto * const management = ends.management;
      if ( management == nullptr ) return std::nullopt;
      const auto id = proto == kProtoUdp && management->hasUdp() ? EspId::of( packet ) : std::nullopt;
      const bool known = proto == kProtoEsp    ? management->bareEnd( header.src(), header.dst() )
                         : header.isFragment() ? management->udpEndOf( header.src(), header.dst() )
                                               : id && management->udpEnd( id->dst, *id->udpPort );
      if ( !known ) return std::nullopt;
   }
   if ( gate >= ogates().size() || ogates()[ gate ].peer == nullptr ) return std::nullopt;
   return gate;
}

Reassembly * Trap::reassembly() const {
   auto * const used = used_.reassembly;
   return used != nullptr && used->ready() ? used : nullptr;
}

bool Trap::makeWhole( Reassembly & reassembly, Packet & packet, Context & context ) {
   if ( !context.live() ) return false;
   auto whole = reassembly.add( std::move( packet ), context.seat() );
   if ( whole ) packet = std::move( *whole );
   return whole.has_value();
}

Fate Trap::process( Packet & packet, Context & context ) {
   auto now = ends();
   return process( packet, context, now );
}

void Trap::processAll( Packets packets, Context & context ) {
   auto now = ends();
   context.each( packets, [ & ]( Packet & packet ) { return process( packet, context, now ); } );
}

Fate Trap::process( Packet & packet, Context & context, Ends & ends ) {
   packet.meta.trafficClass = 0;
   if ( auto header = packet.meta.ethernet ? std::nullopt : Ipv4Header::of( packet ) ) {
      auto gate = tunnelGate( *header, packet, ends );
      if ( auto * const used = gate && header->isFragment() ? reassembly() : nullptr ) {
         if ( !makeWhole( *used, packet, context ) ) return context.deliver( "a fragment, which waits for the others" );
         header = Ipv4Header::of( packet );
         gate = tunnelGate( *header, packet, ends );
      }
      if ( gate && !header->isFragment() ) {
         context.note( "to the end of a tunnel" );
         return context.forward( *gate );
      }
   }
   if ( auto header = packet.meta.ethernet ? std::nullopt : Ipv4Header::of( packet ) ) {
      const auto * rule = policy_.apply( *header, packet, context );
      if ( rule != nullptr && rule->permit == false ) return context.drop( kNoCounter, "denied" );
   }
   context.note( "handed to the router" );
   if ( context.live() ) {
      const auto * wire = packet.meta.ingress;
      if ( wire == nullptr || wire->kernel == nullptr )
         return context.drop( kNoCounter, "the router has no device there" );
      if ( !mayGoUp( packet, context ) ) return context.drop( kNoCounter, "more of its class than the router takes" );
      if ( !packet.rewind() ) return context.drop( kNoCounter, "not as it came in" );
      wire->kernel->send( std::move( packet ), context.seat().worker );
   }
   return context.deliver();
}

bool Trap::mayGoUp( const Packet & packet, const Context & context ) {
   const auto type = packet.meta.etherType;
   auto & up = up_[ type == kEtherTypeArp ? kClasses
                    : type != 0 && type != kEtherTypeIpv4
                         ? kClasses + 1
                         : std::min< std::size_t >( packet.meta.trafficClass, kClasses - 1 ) ];
   const OneAtATime one( up.lock, context.seat().shared() );
   return up.bucket.take( context.now() );
}

std::string Trap::desc() const { return policy_.table() == nullptr ? "" : policy_.desc( RuleTarget::cpu ); }

} // namespace Vexdp
