#include "DpMcastFib.h"

#include "DpModuleClass.h"
#include "DpWalk.h"

namespace Vexdp {

using vex::pb::McastFibArg;

const ModuleClass & McastFibIpv4::moduleClass() {
   static const ModuleClass self = describe< McastFibIpv4, McastFibArg >(
        "McastFibIpv4", "IPv4 multicast forwarding of a VRF", { .igates = kMaxGates, .ogates = kMaxGates }, {} );
   return self;
}

const ModuleClass & McastFibIpv6::moduleClass() {
   static const ModuleClass self = describe< McastFibIpv6, McastFibArg >(
        "McastFibIpv6", "IPv6 multicast forwarding of a VRF", { .igates = kMaxGates, .ogates = kMaxGates }, {} );
   return self;
}

Fate McastFib::process( Packet &, Context & context ) { return context.punt( "no multicast route" ); }

} // namespace Vexdp
