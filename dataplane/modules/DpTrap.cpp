#include "DpTrap.h"

#include "DpModuleClass.h"
#include "DpWalk.h"
#include "DpWire.h"

namespace Vexdp {

using vex::pb::PolicyApplyArg;

const ModuleClass & Trap::moduleClass() {
   static const ModuleClass self = trapping( describe< Trap, bess::pb::EmptyArg >(
        "Trap", "packets that go to the router itself", { .igates = kMaxGates, .ogates = 0 },
        { command< &Trap::applyPolicy >( "applyPolicy" ) } ) );
   return self;
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
      if ( !packet.rewind() ) return context.drop( kNoCounter, "not as it came in" );
      wire->kernel->send( std::move( packet ) );
   }
   return context.deliver();
}

std::string Trap::desc() const { return policy_.table() == nullptr ? "" : policy_.desc( RuleTarget::cpu ); }

} // namespace Vexdp
