#include "DpTrap.h"

#include "DpEthernet.h"
#include "DpModuleClass.h"
#include "DpWalk.h"
#include "DpWire.h"

#include <algorithm>

namespace Vexdp {

using vex::pb::PolicyApplyArg;

const ModuleClass & Trap::moduleClass() {
   static const ModuleClass self = trapping( describe< Trap, bess::pb::EmptyArg >(
        "Trap", "packets that go to the router itself", { .igates = kMaxGates, .ogates = 0 },
        { command< &Trap::applyPolicy >( "applyPolicy" ) } ) );
   return self;
}

namespace {
constexpr std::uint16_t kEtherTypeArp = 0x0806;
}

Outcome Trap::applyPolicy( const PolicyApplyArg & arg ) { return policy_.bind( graph(), RuleTarget::cpu, arg ); }

Fate Trap::process( Packet & packet, Context & context ) {
   packet.meta.trafficClass = 0;
   if ( auto header = packet.meta.ethernet ? std::nullopt : Ipv4Header::of( packet ) ) {
      const auto * rule = policy_.apply( *header, packet, context );
      if ( rule != nullptr && rule->permit == false ) return context.drop( kNoCounter, "denied" );
   }
   context.note( "handed to the router" );
   if ( context.live() ) {
      const auto * wire = packet.meta.ingress;
      if ( wire == nullptr || wire->kernel == nullptr )
         return context.drop( kNoCounter, "the router has no device there" );
      if ( !upTo( packet ).take( context.now() ) )
         return context.drop( kNoCounter, "more of its class than the router takes" );
      if ( !packet.rewind() ) return context.drop( kNoCounter, "not as it came in" );
      wire->kernel->send( std::move( packet ) );
   }
   return context.deliver();
}

TokenBucket & Trap::upTo( const Packet & packet ) {
   if ( packet.meta.etherType == kEtherTypeArp ) return up_[ kClasses ];
   if ( packet.meta.etherType != 0 && packet.meta.etherType != kEtherTypeIpv4 ) return up_[ kClasses + 1 ];
   return up_[ std::min< std::size_t >( packet.meta.trafficClass, kClasses - 1 ) ];
}

std::string Trap::desc() const { return policy_.table() == nullptr ? "" : policy_.desc( RuleTarget::cpu ); }

} // namespace Vexdp
