#include "DpTrap.h"

#include "DpModuleClass.h"
#include "DpWalk.h"

namespace Vexdp {

const ModuleClass & Trap::moduleClass() {
   static const ModuleClass self = describe< Trap, bess::pb::EmptyArg >( "Trap", "packets that go to the router itself",
                                                                         { .igates = kMaxGates, .ogates = 0 }, {} );
   return self;
}

Fate Trap::process( Packet &, Context & context ) {
   context.note( "handed to the router" );
   return context.deliver();
}

} // namespace Vexdp
