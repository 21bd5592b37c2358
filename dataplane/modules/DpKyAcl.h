// KyAcl: the access list of an interface and direction.
//
//   in     any gate     IPv4 packets
//   out    0            to the trap, reserved: nothing is punted here
//          1            on: permitted
//   drops  what a rule denies, what no rule matches, what is not IPv4, and everything before "applyAcl" or after its
//          list is gone: an interface that was given a list is never open without one
//
// A rule that logs writes a line for a packet that counts, at most kMaxLogged a second.
#pragma once

#include "DpModule.h"
#include "DpRuleBinding.h"

#include <atomic>

namespace Vexdp {

class KyAcl : public Module {
 public:
   static constexpr unsigned kMaxLogged = 10;

   static const ModuleClass & moduleClass();
   static Outcome check( const vex::pb::KyApplyAclInitArg & ) { return {}; }
   KyAcl( Identity identity, const vex::pb::KyApplyAclInitArg & init );

   // Points it at a list. ENOENT: there is no such list. EOPNOTSUPP: `ipv4` is false.
   Outcome applyAcl( const vex::pb::KyApplyAclArg & arg );

   Fate process( Packet & packet, Context & context ) override;
   void processAll( Packets packets, Context & context ) override;
   std::optional< GateId > passGate() const override;
   CommandSource commands() const override;
   std::string desc() const override;

 private:
   void log( const Rule & rule, const Ipv4Header & header, const Packet & packet, const Context & context );
   bool mayLog( double now );

   const bool ingress_;
   RuleBinding list_;
   std::atomic< std::uint64_t > logged_ = 0; // the second, and how many in it: see mayLog()
};

} // namespace Vexdp
