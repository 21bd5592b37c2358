// show access-lists, policy-map, control-plane: what is written, where it is applied, and what it counts.

#include "HostCounterTable.h"
#include "HostRuleTables.h"
#include "HostRuleText.h"
#include "HostShows.h"
#include "HulAclSm.h"
#include "HulQosAclSm.h"
#include "StateAcl.h"
#include "StateAclCheck.h"
#include "StateQos.h"

#include <algorithm>

namespace Host {

namespace {

const Acl::StatusDp & statusOf( const AgentView & view ) { return *view.agent()->aclStatusDp(); }

const Qos::Status & qosOf( const AgentView & view ) {
   static const Gant::Ptr< const Qos::Status > none = Gant::make< Qos::Status >();
   const auto & mounts = view.agent()->qosMounts();
   return mounts && mounts->qosStatus() ? *mounts->qosStatus() : *none;
}

// Where the list filters packets, "Ethernet1 in", and the class maps that match by it, "class-map voice".
Json appliedTo( const AgentView & view, const Acl::ListKey & key ) {
   auto places = Json::array();
   for ( const auto & [ binding, name ] : statusOf( view ).appliedNameIterator() )
      if ( name == key.name() && binding.type() == key.type() )
         places.push_back( binding.intfId().stringValue() + " " + binding.direction().stringValue() );
   if ( key.type() == Acl::ip )
      for ( const auto & [ name, classMap ] : qosOf( view ).classMapIterator() )
         if ( std::ranges::count( classMap.accessLists, key.name() ) != 0 ) places.push_back( "class-map " + name );
   return places;
}

std::string stateOf( const AgentView & view, const Acl::AclConfig & list ) {
   const auto & status = statusOf( view );
   if ( !status.programmedVersionHas( list.key() ) ) return "not applied";
   const auto said = view.agent()->aclSm()->state( list.key() );
   if ( said.progress != Hul::RouteProgress::programmed_ ) return said.progress.stringValue() + ": " + said.reason;
   return status.programmedVersion( list.key() ) == list.version() ? "programmed" : "an older version is programmed";
}

void count( Json & row, const Hul::AclRuleCount & count ) {
   row[ "packets" ] = count.packets;
   // The first time there is nothing to take a rate from.
   if ( count.recentSeconds > 0 ) row[ "packetsPerSecond" ] = double( count.recentPackets ) / count.recentSeconds;
}

void listRows( const AgentView & view, const Acl::ListKey & key, Output & out ) {
   const auto list = view.agent()->aclConfig()->aclConfig( key );
   if ( !list ) return;
   std::map< U32, Hul::AclRuleCount > counts;
   for ( const auto & rule : view.agent()->aclSm()->counts( key ) ) counts[ rule.sequence ] = rule;
   const Json head{ { "list", key.name() },
                    { "type", key.type().stringValue() },
                    { "state", stateOf( view, *list ) },
                    { "applied", appliedTo( view, key ) } };
   for ( const auto & [ sequence, entry ] : list->entries() ) {
      auto row = head;
      row[ "sequence" ] = sequence;
      row[ "rule" ] = textOfRule( entry );
      if ( entry.rule.filter().fragments() ) row[ "note" ] = "this data plane does not apply it";
      if ( const auto at = counts.find( sequence ); at != counts.end() && !entry.isRemark ) count( row, at->second );
      out.row( row );
   }
   auto row = head;
   row[ "rule" ] = key.type() == Acl::mac ? "deny any any" : "deny ip any any";
   row[ "note" ] = "ends every list";
   if ( const auto at = counts.find( 0 ); at != counts.end() ) count( row, at->second );
   out.row( row );
}

std::unique_ptr< Answer > accessLists( const Asked & asked ) {
   const AgentView view( asked.daemon );
   const auto name = asked.question.text( "list" );
   const auto keys = [ view, name ] {
      if ( !view.agent()->aclConfig() ) return std::vector< Acl::ListKey >();
      auto keys = view.agent()->aclConfig()->aclConfigKeys();
      if ( !name.empty() ) std::erase_if( keys, [ & ]( const auto & key ) { return key.name() != name; } );
      return keys;
   };
   if ( !name.empty() && keys().empty() )
      throw CommandError( ErrorCode::notFound, "there is no access-list \"" + name + "\"" );
   return perKey< Acl::ListKey >( keys,
                                  [ view ]( const Acl::ListKey & key, Output & out ) { listRows( view, key, out ); } );
}

Json notesOn( const AgentView & view, const Qos::ClassMapConfig & classMap ) {
   auto notes = Json::array();
   for ( const auto & name : classMap.accessLists )
      if ( const auto list = view.agent()->aclConfig()->aclConfig( Acl::ListKey( Acl::ip, name ) ) )
         for ( const auto & problem : Acl::deniesLeftOut( name, list->key(), list->entries() ) )
            notes.push_back( problem.text );
   return notes;
}

Json actionsOf( const Qos::PolicyClass & policyClass ) {
   auto actions = Json::array();
   for ( const auto & [ action, value ] : policyClass.actions )
      actions.push_back( action == Qos::ActionType::actionSetDscp_ ? "set dscp " + dscpName( U8( value ) )
                                                                   : "set traffic-class " + std::to_string( value ) );
   return actions;
}

void policyRows( const AgentView & view, const Gant::String & name, Output & out ) {
   const auto & status = qosOf( view );
   if ( !status.policyMapHas( name ) ) return;
   std::map< Gant::String, U64 > packets;
   for ( const auto & [ className, count ] : view.agent()->qosAclSm()->counts( name ) ) packets[ className ] = count;
   auto intfs = Json::array();
   for ( const auto & [ key, policy ] : status.servicePolicyIterator() )
      if ( policy == name ) intfs.push_back( key.intfId().stringValue() + " " + key.direction().stringValue() );
   for ( const auto & policyClass : status.policyMap( name ).classes ) {
      Json row{ { "policy", name }, { "class", policyClass.name } };
      row[ "lists" ] = status.classMapHas( policyClass.name ) ? status.classMap( policyClass.name ).accessLists
                                                              : std::vector< Gant::String >();
      row[ "actions" ] = actionsOf( policyClass );
      row[ "applied" ] = intfs;
      if ( status.classMapHas( policyClass.name ) )
         if ( auto notes = notesOn( view, status.classMap( policyClass.name ) ); !notes.empty() )
            row[ "notes" ] = std::move( notes );
      const auto said = view.agent()->qosAclSm()->state( name );
      row[ "state" ] = said.progress.stringValue();
      if ( !said.reason.empty() ) row[ "reason" ] = said.reason;
      if ( const auto at = packets.find( policyClass.name ); at != packets.end() ) row[ "packets" ] = at->second;
      out.row( row );
   }
}

std::unique_ptr< Answer > policyMaps( const Asked & asked ) {
   const AgentView view( asked.daemon );
   const auto name = asked.question.text( "policy" );
   if ( !name.empty() ) {
      if ( !qosOf( view ).policyMapHas( name ) )
         throw CommandError( ErrorCode::notFound, "there is no policy-map \"" + name + "\"" );
      return atOnce( [ view, name ]( Output & out ) { policyRows( view, name, out ); } );
   }
   if ( !asked.question.has( "interface" ) )
      return perKey< Gant::String >(
           [ view ] { return qosOf( view ).policyMapKeys(); },
           [ view ]( const Gant::String & name, Output & out ) { policyRows( view, name, out ); } );
   const auto intfId = intfOf( asked.question.text( "interface" ) );
   const auto policy = qosOf( view ).servicePolicy( Qos::ServicePolicyKey( intfId, Qos::Direction::input() ) );
   if ( policy.empty() )
      throw CommandError( ErrorCode::notFound, "interface " + intfId.stringValue() + " has no service-policy" );
   return atOnce( [ view, policy ]( Output & out ) { policyRows( view, policy, out ); } );
}

Json controlPlaneRow( const ControlPlaneRule & rule ) {
   Json row{ { "protocol", protocolName( U8( rule.protocol ) ) } };
   if ( rule.sourcePort != 0 ) row[ "sourcePort" ] = rule.sourcePort;
   if ( rule.destinationPort != 0 ) row[ "destinationPort" ] = rule.destinationPort;
   if ( rule.dscp <= Qos::Dscp::max ) row[ "dscp" ] = rule.dscp;
   row[ "trafficClass" ] = rule.trafficClass;
   return row;
}

std::unique_ptr< Answer > controlPlane( const Asked & asked ) {
   const AgentView view( asked.daemon );
   const auto table = counterTable( view );
   return atOnce( [ view, table ]( Output & out ) {
      for ( const auto & rule : controlPlaneRules( view ) ) {
         auto row = controlPlaneRow( rule );
         row[ "packets" ] = valueOf( table, rule.counter );
         out.row( row );
      }
   } );
}

} // namespace

Commands aclShows() {
   return { { "show access-lists", { { "list" } }, accessLists },
            { "show policy-map", { { "policy" }, { "interface" } }, policyMaps },
            { "show control-plane", {}, controlPlane } };
}

} // namespace Host
