// How a module points at a table of the rule database.
#pragma once

#include "DpModule.h"
#include "DpRuleTable.h"

#include <memory>
#include <optional>

namespace Vexdp {

// Where the rule database keeps a table. Replacing the table swaps it for everyone who points here; when it is taken
// away, or the database is gone, there is none, and a new one of the same id has another place.
struct RuleSlot {
   std::shared_ptr< const RuleTable > table;
};

// A module's pointer at a table.
class RuleBinding {
 public:
   // ENOENT: there is no such table, or no rule database. It points where it did.
   Outcome bind( const Graph & graph, RuleTarget target, std::uint32_t id );
   // The same by the command of a policy.
   Outcome bind( const Graph & graph, RuleTarget target, const vex::pb::PolicyApplyArg & arg );
   // Null: never bound, or the table is gone.
   const RuleTable * table() const { return slot_ ? slot_->table.get() : nullptr; }
   // Of the table that is there.
   std::optional< std::uint32_t > id() const;
   // Tells the command that bound a policy, if one is there.
   CommandSource policyCommand( std::string cmd ) const;
   // "access list 3", or what there is instead.
   std::string desc( RuleTarget target ) const;

   // The rule that decides on the packet, which is counted, marked and noted. Null, and no change: none does.
   const Rule * apply( Ipv4Header & header, Packet & packet, Context & context ) const;

 private:
   std::shared_ptr< const RuleSlot > slot_;
};

} // namespace Vexdp
