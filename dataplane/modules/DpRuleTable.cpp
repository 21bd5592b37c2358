#include "DpRuleTable.h"

#include <cerrno>

namespace Vexdp {

using vex::pb::KyIpAclArg;

namespace {

Outcome inRule( int place, const Outcome & out ) {
   return refuse( out.refusal().code, "rule {}: {}", place, out.refusal().reason );
}

} // namespace

std::string_view nameOf( RuleTarget target ) {
   switch ( target ) {
   case RuleTarget::security: return "access list";
   case RuleTarget::qos: return "QoS policy";
   case RuleTarget::cpu: return "control-plane policy";
   }
   return "rule table";
}

Outcome RuleTable::check( const KyIpAclArg & arg ) {
   if ( auto out = requireFields( { { arg.has_acl_id(), "acl_id" }, { arg.has_acl_target(), "acl_target" } } );
        !out.ok() )
      return out;
   if ( auto out = requireAtMost( "acl_id", arg.acl_id(), kMaxId ); !out.ok() ) return out;
   if ( auto out = requireAtMost( "acl_target", arg.acl_target(), std::uint32_t( RuleTarget::cpu ) ); !out.ok() )
      return out;
   const bool verdicts = RuleTarget( arg.acl_target() ) == RuleTarget::security;
   for ( int i = 0; i < arg.rule_size(); ++i ) {
      const auto & rule = arg.rule( i );
      if ( const auto out = Rule::check( rule ); !out.ok() ) return inRule( i + 1, out );
      if ( verdicts && !rule.has_permit() ) return refuse( EINVAL, "rule {}: permit is missing", i + 1 );
   }
   return {};
}

RuleTable::RuleTable( const KyIpAclArg & arg ) :
     arg_( arg ), rules_( arg.rule().begin(), arg.rule().end() ), search_( rules_ ) {}

const Rule * RuleTable::match( const RuleKey & key ) const {
   const auto at = search_.first( rules_, key );
   return at == rules_.size() ? nullptr : &rules_[ at ];
}

} // namespace Vexdp
