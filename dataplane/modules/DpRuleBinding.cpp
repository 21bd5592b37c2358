#include "DpRuleBinding.h"

#include "DpGraph.h"
#include "DpKyAclDb.h"
#include "DpWalk.h"

#include <cerrno>

namespace Vexdp {

using vex::pb::PolicyApplyArg;

Outcome RuleBinding::bind( const Graph & graph, RuleTarget target, std::uint32_t id ) {
   const auto * db = graph.shared< KyAclDb >();
   if ( db == nullptr ) return refuse( ENOENT, "there is no rule database" );
   auto slot = db->slot( target, id );
   if ( !slot ) return refuse( ENOENT, "there is no {} {}", nameOf( target ), id );
   slot_ = std::move( slot );
   return {};
}

Outcome RuleBinding::bind( const Graph & graph, RuleTarget target, const PolicyApplyArg & arg ) {
   if ( auto out = requireFields( { { arg.has_policy_id(), "policy_id" } } ); !out.ok() ) return out;
   return bind( graph, target, arg.policy_id() );
}

std::optional< std::uint32_t > RuleBinding::id() const {
   const auto * bound = table();
   return bound == nullptr ? std::nullopt : std::optional( bound->id() );
}

CommandSource RuleBinding::policyCommand( std::string cmd ) const {
   return [ cmd = std::move( cmd ), id = id() ]( CommandSink & sink ) {
      if ( !id ) return;
      PolicyApplyArg arg;
      arg.set_policy_id( *id );
      sink.command( cmd, arg );
   };
}

std::string RuleBinding::desc( RuleTarget target ) const {
   if ( const auto * bound = table() ) return fmt::format( "{} {}", nameOf( target ), bound->id() );
   return fmt::format( "{} {}", slot_ ? "a lost" : "no", nameOf( target ) );
}

const Rule * RuleBinding::apply( Ipv4Header & header, Packet & packet, Context & context ) const {
   const auto * bound = table();
   if ( bound == nullptr ) return nullptr;
   const auto * rule = bound->match( RuleKey::of( header, packet ) );
   if ( rule == nullptr ) {
      context.note( "{} {}, none of {} rules matches", nameOf( bound->target() ), bound->id(), bound->size() );
      return nullptr;
   }
   context.count( rule->counter );
   context.note( "{} {}, rule {} of {}", nameOf( bound->target() ), bound->id(), bound->placeOf( *rule ),
                 bound->size() );
   if ( rule->setDscp ) {
      header.dscpIs( *rule->setDscp );
      context.note( "DSCP {}", *rule->setDscp );
   }
   if ( rule->setTrafficClass ) {
      packet.meta.trafficClass = *rule->setTrafficClass;
      context.note( "traffic class {}", *rule->setTrafficClass );
   }
   return rule;
}

} // namespace Vexdp
