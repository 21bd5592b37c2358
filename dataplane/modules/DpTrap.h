// Trap: where packets are handed to the router itself. Why, is said by the module that punted them.
#pragma once

#include "DpModule.h"

#include "bess/control.pb.h"

namespace Vexdp {

class Trap : public Module {
 public:
   static const ModuleClass & moduleClass();
   static Outcome check( const bess::pb::EmptyArg & ) { return {}; }
   Trap( Identity identity, const bess::pb::EmptyArg & ) : Module( std::move( identity ) ) {}

   Fate process( Packet & packet, Context & context ) override;
};

} // namespace Vexdp
