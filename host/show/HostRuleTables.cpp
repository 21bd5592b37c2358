#include "HostRuleTables.h"

#include "HostRuleText.h"
#include "HulAclSubrules.h"
#include "StateAcl.h"
#include "StateQos.h"
#include "VexAclSm.h"
#include "VexCounterInfo.h"
#include "VexQosAclHelper.h"

#include <cstdio>

namespace Host {

namespace {

using Record = vex::pb::KyIpAclArg::IpRule;
using Vex::AclTarget;

constexpr U32 portMax = 65535;

struct Range {
   U32 low;
   U32 high;
};

Range rangeOf( const Acl::RangeSpec & spec, U32 low, U32 high ) {
   return spec.isAny() ? Range{ 0, portMax } : Range{ low, high };
}

void portsAre( Record & record, Range source, Range destination ) {
   record.set_src_port_lower( source.low );
   record.set_src_port_upper( source.high );
   record.set_dst_port_lower( destination.low );
   record.set_dst_port_upper( destination.high );
}

// Every field is sent, those that match anything too.
Record recordOf( const Acl::IpFilter & filter, const Hul::SubruleMatch & match, Vex::CounterId counter ) {
   constexpr U32 ttlMax = 255, dscpAny = 64;
   Record record;
   record.set_counter_id( counter.value() );
   record.set_proto( filter.proto() );
   record.set_src_ip( filter.source().address() );
   record.set_src_ip_mask( filter.source().mask() );
   record.set_dst_ip( filter.destination().address() );
   record.set_dst_ip_mask( filter.destination().mask() );
   const bool ttl = filter.ttl().oper() == Acl::eq;
   record.set_ttl_lower( ttl ? filter.ttl().ttl() : 0 );
   record.set_ttl_upper( ttl ? filter.ttl().ttl() : ttlMax );
   record.set_dscp( filter.matchDscp() ? filter.dscp() : dscpAny );
   portsAre( record, rangeOf( filter.sourcePort(), match.srcPortLow, match.srcPortHigh ),
             rangeOf( filter.destinationPort(), match.dstPortLow, match.dstPortHigh ) );
   const auto length = rangeOf( filter.ipLen(), match.ipLenLow, match.ipLenHigh );
   record.set_len_lower( length.low );
   record.set_len_upper( length.high );
   record.set_icmp_type( filter.icmpType() );
   record.set_icmp_code( filter.icmpCode() );
   record.set_tcp_flag( match.extraTcpFlags );
   record.set_action_dscp( false );
   record.set_action_tc( false );
   return record;
}

Record verdict( Record record, bool permit, bool log ) {
   record.set_permit( permit );
   record.set_log( log );
   return record;
}

Record classified( Record record, const Qos::PolicyClass::Actions & actions ) {
   if ( const auto dscp = actions.find( Qos::ActionType::actionSetDscp_ ); dscp != actions.end() ) {
      record.set_action_dscp( true );
      record.set_dscp_data( dscp->second );
   }
   if ( const auto tc = actions.find( Qos::ActionType::actionSetTc_ ); tc != actions.end() ) {
      record.set_action_tc( true );
      record.set_tc_data( tc->second );
   }
   return record;
}

// What the list's entries become, but for remarks and fragments, which become nothing.
template < typename Each >
void forEachSubrule( const Gant::Ptr< Acl::AclConfig > & list, const Each & each ) {
   if ( !list ) return;
   for ( const auto & [ sequence, entry ] : list->entries() ) {
      if ( entry.isRemark || entry.rule.filter().fragments() ) continue;
      for ( const auto & match : Hul::subrulesOf( entry.rule.filter() ) ) each( sequence, entry, match );
   }
}

std::string inSequence( U32 sequence ) { return "sequence " + std::to_string( sequence ); }

MeantTable meant( const AgentView & view, const Vex::VexAclData & data ) {
   const auto & key = data.aclTypeAndName();
   MeantTable table{ AclTarget::security, data.hwAclId(), "access-list " + key.aclName(), {} };
   const auto list = view.agent()->aclConfig()->aclConfig( Acl::ListKey( key.aclType(), key.aclName() ) );
   forEachSubrule( list, [ & ]( U32 sequence, const Acl::Entry & entry, const Hul::SubruleMatch & match ) {
      const auto record = recordOf( entry.rule.filter(), match, data.counterId( entry.uniqueId ) );
      table.rules.push_back(
           { inSequence( sequence ), verdict( record, entry.rule.action() == Acl::permit, entry.rule.log() ) } );
   } );
   const auto last = recordOf( {}, {}, data.counterId( Acl::UniqueId::allOnes() ) );
   table.rules.push_back( { "the deny that ends it", verdict( last, false, false ) } );
   return table;
}

// The rules of one list of a class: those that permit.
void addClass( const AgentView & view, const Qos::PolicyClass & policyClass, const Vex::VexQosAclData & data,
               MeantTable & table ) {
   const auto & name = data.key().name();
   if ( policyClass.name == Qos::classDefault ) {
      const auto record = recordOf( {}, {}, data.counterId( Acl::UniqueId::allOnes() ) );
      table.rules.push_back( { "class class-default", classified( record, policyClass.actions ) } );
      return;
   }
   const auto place = "class " + policyClass.name + ", access-list " + name + ", ";
   const auto list = view.agent()->aclConfig()->aclConfig( Acl::ListKey( Acl::ip, name ) );
   forEachSubrule( list, [ & ]( U32 sequence, const Acl::Entry & entry, const Hul::SubruleMatch & match ) {
      if ( entry.rule.action() != Acl::permit ) return;
      const auto record = recordOf( entry.rule.filter(), match, data.counterId( entry.uniqueId ) );
      table.rules.push_back( { place + inSequence( sequence ), classified( record, policyClass.actions ) } );
   } );
}

MeantTable meant( const AgentView & view, const Vex::VexQosPolicyData & data ) {
   const auto & name = data.key().name();
   MeantTable table{ AclTarget::qos, data.hwPolicyId(), "policy-map " + name, {} };
   const auto & status = view.agent()->qosMounts()->qosStatus();
   if ( !status->policyMapHas( name ) ) return table;
   const auto & classes = status->policyMap( name ).classes;
   // What no other class matches comes last, wherever it is written.
   for ( const bool last : { false, true } )
      for ( const auto & policyClass : classes ) {
         if ( ( policyClass.name == Qos::classDefault ) != last ) continue;
         constexpr auto type = Qos::MapType::mapQos();
         const auto & held = data.qosClass( Hul::QosClassDataKey( name, type, policyClass.name, type ) );
         if ( !held ) continue;
         for ( const auto & [ key, acl ] : held->qosAclIterator() ) addClass( view, policyClass, *acl, table );
      }
   return table;
}

std::string inWords( const ControlPlaneRule & rule ) {
   auto words = protocolName( U8( rule.protocol ) );
   if ( rule.sourcePort != 0 ) words += " source port " + std::to_string( rule.sourcePort );
   if ( rule.destinationPort != 0 ) words += " destination port " + std::to_string( rule.destinationPort );
   if ( rule.dscp <= Qos::Dscp::max ) words += " dscp " + dscpName( U8( rule.dscp ) );
   return words;
}

MeantTable controlPlaneTable( const AgentView & view ) {
   MeantTable table{ AclTarget::cpu, 0, "control-plane policy", {} };
   for ( const auto & rule : controlPlaneRules( view ) ) {
      Acl::IpFilter filter;
      filter.protoIs( U8( rule.protocol ) );
      filter.matchDscpIs( rule.dscp <= Qos::Dscp::max );
      filter.dscpIs( U8( rule.dscp ) );
      auto record = recordOf( filter, {}, rule.counter );
      const auto one = []( U32 port ) { return port == 0 ? Range{ 0, portMax } : Range{ port, port }; };
      portsAre( record, one( rule.sourcePort ), one( rule.destinationPort ) );
      table.rules.push_back(
           { inWords( rule ), classified( record, { { Qos::ActionType::actionSetTc(), rule.trafficClass } } ) } );
   }
   return table;
}

} // namespace

std::vector< MeantTable > meantTables( const AgentView & view ) {
   std::vector< MeantTable > tables;
   const auto agent = view.agent();
   if ( const auto & helper = agent->aclHelper() )
      for ( const auto & [ key, data ] : helper->vexAclDataIterator() ) tables.push_back( meant( view, *data ) );
   if ( const auto & helper = agent->qosAclHelper() )
      for ( const auto & [ key, data ] : helper->qosPolicyIterator() ) tables.push_back( meant( view, *data ) );
   if ( auto table = controlPlaneTable( view ); !table.rules.empty() ) tables.push_back( std::move( table ) );
   return tables;
}

std::optional< MeantTable > meantTable( const AgentView & view, AclTarget target, U32 id ) {
   const auto agent = view.agent();
   if ( target == AclTarget::security && agent->aclHelper() )
      for ( const auto & [ key, data ] : agent->aclHelper()->vexAclDataIterator() )
         if ( data->hwAclId() == id ) return meant( view, *data );
   if ( target == AclTarget::qos && agent->qosAclHelper() )
      for ( const auto & [ key, data ] : agent->qosAclHelper()->qosPolicyIterator() )
         if ( data->hwPolicyId() == id ) return meant( view, *data );
   if ( target == AclTarget::cpu ) return controlPlaneTable( view );
   return std::nullopt;
}

// Its counters are taken in the order of its rules, before there are any others to give back.
std::vector< ControlPlaneRule > controlPlaneRules( const AgentView & view ) {
   std::vector< ControlPlaneRule > rules;
   for ( const auto & [ id, counter ] : view.vexcsd()->bessCounterInfo()->counterIterator() ) {
      ControlPlaneRule rule{};
      rule.counter = id;
      if ( std::sscanf( counter.name.c_str(), "cpuPolicy-%u-%u-%u-%u-%u", &rule.protocol, &rule.sourcePort,
                        &rule.destinationPort, &rule.dscp, &rule.trafficClass ) == 5 )
         rules.push_back( rule );
   }
   return rules;
}

} // namespace Host
