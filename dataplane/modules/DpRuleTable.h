// A rule table: an access list, a QoS policy or the classification of what is for the router itself. The first rule
// that matches a packet decides.
#pragma once

#include "DpRuleSearch.h"

#include <string_view>
#include <vector>

namespace Vexdp {

// Values of `acl_target`.
enum class RuleTarget : std::uint8_t { security = 0, qos = 1, cpu = 2 };
// "access list", for texts.
std::string_view nameOf( RuleTarget target );

class RuleTable {
 public:
   // 16 bits on the other side.
   static constexpr std::uint32_t kMaxId = 65535;

   // Names the rule that it refuses, counted from 1. EINVAL: no id, no known target, or a rule that Rule::check
   // refuses; a rule of an access list without a verdict.
   static Outcome check( const vex::pb::KyIpAclArg & arg );
   // REQUIRES: check( arg ) is ok
   explicit RuleTable( const vex::pb::KyIpAclArg & arg );

   RuleTarget target() const { return RuleTarget( arg_.acl_target() ); }
   std::uint32_t id() const { return arg_.acl_id(); }
   std::size_t size() const { return rules_.size(); }
   // As it was given.
   const vex::pb::KyIpAclArg & arg() const { return arg_; }

   // Null: no rule matches.
   const Rule * match( const RuleKey & key ) const;
   // Of one of its rules, from 1.
   std::size_t placeOf( const Rule & rule ) const { return std::size_t( &rule - rules_.data() ) + 1; }

 private:
   const vex::pb::KyIpAclArg arg_;
   std::vector< Rule > rules_;
   const RuleSearch search_;
};

} // namespace Vexdp
