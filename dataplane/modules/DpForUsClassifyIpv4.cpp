#include "DpForUsClassifyIpv4.h"

#include "DpIpv4.h"
#include "DpModuleClass.h"
#include "DpWalk.h"

namespace Vexdp {

using ForUsCounter = vex::pb::ForUsClassifyIpv4CounterIdArg;

const ModuleClass & ForUsClassifyIpv4::moduleClass() {
   static const ModuleClass self = describe< ForUsClassifyIpv4, bess::pb::EmptyArg >(
        "ForUsClassifyIpv4", "IPv4 packets for the router itself", { .igates = 1, .ogates = 5 },
        { command< &ForUsClassifyIpv4::setCounterIds >( "setCounterIds" ) } );
   return self;
}

Fate ForUsClassifyIpv4::process( Packet & packet, Context & context ) {
   if ( !Ipv4Header::of( packet ) )
      return context.drop( counters_[ ForUsCounter::kUnknownPktCounterFieldNumber ], "not an IPv4 packet" );
   return context.punt( "to the router itself" );
}

} // namespace Vexdp
