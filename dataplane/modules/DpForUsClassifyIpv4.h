// ForUsClassifyIpv4: takes what the FIB hands over for the router itself.
//
//   in     0            IPv4 packets
//   out    0            to the trap
//   drops  what is not IPv4 (under its counter)
#pragma once

#include "DpCounterIds.h"
#include "DpModule.h"

#include "bess/control.pb.h"
#include "vex/fib_ipv4.pb.h"

namespace Vexdp {

class ForUsClassifyIpv4 : public Module {
 public:
   static const ModuleClass & moduleClass();
   static Outcome check( const bess::pb::EmptyArg & ) { return {}; }
   ForUsClassifyIpv4( Identity identity, const bess::pb::EmptyArg & ) : Module( std::move( identity ) ) {}

   Outcome setCounterIds( const vex::pb::ForUsClassifyIpv4CounterIdArg & arg ) { return counters_.set( arg ); }

   Fate process( Packet & packet, Context & context ) override;
   CommandSource commands() const override { return counters_.command(); }

 private:
   CounterIds counters_;
};

} // namespace Vexdp
