// PolicyQos: the QoS policy of an interface, on its way in. Sets DSCP and traffic class by the first rule that matches;
// a packet that none matches, or that comes before "applyServicePolicy", passes as it is.
//
//   in     any gate     IPv4 packets
//   out    0            on
//   drops  what a rule denies, which no class map asks for, and what is not IPv4
#pragma once

#include "DpModule.h"
#include "DpRuleBinding.h"

namespace Vexdp {

class PolicyQos : public Module {
 public:
   static const ModuleClass & moduleClass();
   // EOPNOTSUPP: `ingress` is false.
   static Outcome check( const vex::pb::PolicyQosArg & init );
   PolicyQos( Identity identity, const vex::pb::PolicyQosArg & init );

   // Points it at a policy. ENOENT: there is no such policy.
   Outcome applyServicePolicy( const vex::pb::PolicyApplyArg & arg );

   Fate process( Packet & packet, Context & context ) override;
   void processAll( Packets packets, Context & context ) override;
   CommandSource commands() const override { return policy_.policyCommand( "applyServicePolicy" ); }
   std::string desc() const override;

 private:
   const std::uint32_t version_;
   RuleBinding policy_;
};

} // namespace Vexdp
