// KyAclDb: the rule tables, by id and target. Modules on the interfaces point at them; packets never come here.
//
// A table is checked whole before it stands, and replaced in one step: no packet meets half of one, or none.
#pragma once

#include "DpModule.h"
#include "DpRuleBinding.h"

#include "bess/control.pb.h"

#include <map>

namespace Vexdp {

class KyAclDb : public Module {
 public:
   // Of all tables together.
   static constexpr std::size_t kMaxRules = 1u << 20;

   static const ModuleClass & moduleClass();
   static Outcome check( const bess::pb::EmptyArg & ) { return {}; }
   KyAclDb( Identity identity, const bess::pb::EmptyArg & ) : Module( std::move( identity ) ) {}
   ~KyAclDb() override;

   // Adds or replaces an access list. What points at it has the new rules at once. ENOSPC: kMaxRules rules are there.
   Outcome createAcl( const vex::pb::KyIpAclArg & arg );
   // ENOENT: it isn't there. What points at it then points at nothing. The rules of the message are ignored.
   Outcome destroyAcl( const vex::pb::KyIpAclArg & arg );
   // The same of a policy of QoS or of the control plane. To destroy one, no target means QoS.
   Outcome createPolicy( const vex::pb::KyIpAclArg & arg );
   Outcome destroyPolicy( const vex::pb::KyIpAclArg & arg );

   // Null when there is no such table.
   std::shared_ptr< const RuleSlot > slot( RuleTarget target, std::uint32_t id ) const;

   Fate process( Packet & packet, Context & context ) override;
   CommandSource commands() const override;
   std::string desc() const override;

 private:
   using Key = std::pair< RuleTarget, std::uint32_t >;

   Outcome create( const vex::pb::KyIpAclArg & arg );
   Outcome destroy( RuleTarget target, const vex::pb::KyIpAclArg & arg );

   std::map< Key, std::shared_ptr< RuleSlot > > slots_;
   std::size_t rules_ = 0;
};

} // namespace Vexdp
