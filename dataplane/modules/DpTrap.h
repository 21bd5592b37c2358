// Trap: where packets are handed to the router itself. Why, is said by the module that punted them. The control-plane
// policy gives IPv4 packets their traffic class on the way; others, and those that no rule matches, are of class 0.
#pragma once

#include "DpModule.h"
#include "DpRuleBinding.h"

#include "bess/control.pb.h"

namespace Vexdp {

class Trap : public Module {
 public:
   static const ModuleClass & moduleClass();
   static Outcome check( const bess::pb::EmptyArg & ) { return {}; }
   Trap( Identity identity, const bess::pb::EmptyArg & ) : Module( std::move( identity ) ) {}

   // Points it at a policy. ENOENT: there is no such policy.
   Outcome applyPolicy( const vex::pb::PolicyApplyArg & arg );

   Fate process( Packet & packet, Context & context ) override;
   CommandSource commands() const override { return policy_.policyCommand( "applyPolicy" ); }
   std::string desc() const override;

 private:
   RuleBinding policy_;
};

} // namespace Vexdp
