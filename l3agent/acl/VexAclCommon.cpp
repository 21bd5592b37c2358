#include "VexAclCommon.h"

#include "GantTrace.h"
#include "StateQos.h"
#include "vex/acl.pb.h"

namespace Vex {

static Gant::TraceHandle traceHandle( "VexAclCommon" );

namespace {

using Rule = vex::pb::KyIpAclArg_IpRule;

constexpr U32 portMax = 65535;
constexpr U32 lengthMax = 65535;
constexpr U32 ttlMax = 255;
constexpr U32 dscpAny = Qos::Dscp::max + 1;

Rule & newRule( google::protobuf::Message * message, CounterId counterId ) {
   auto & rule = *static_cast< vex::pb::KyIpAclArg * >( message )->add_rule();
   rule.set_counter_id( counterId );
   return rule;
}

void setAddresses( Rule & rule, const Kynet::IpAddrWithFullMask & source,
                   const Kynet::IpAddrWithFullMask & destination ) {
   rule.set_src_ip( source.address() );
   rule.set_src_ip_mask( source.mask() );
   rule.set_dst_ip( destination.address() );
   rule.set_dst_ip_mask( destination.mask() );
}

// The mask only tells that the field is in use: the data plane matches by range.
void setTransport( Rule & rule, const Hul::SubruleMatch & match ) {
   const bool src = match.srcL4PortMask || match.srcPortLow || match.srcPortHigh;
   rule.set_src_port_lower( src ? match.srcPortLow : 0 );
   rule.set_src_port_upper( src ? match.srcPortHigh : portMax );
   const bool dst = match.dstL4PortMask || match.dstPortLow || match.dstPortHigh;
   rule.set_dst_port_lower( dst ? match.dstPortLow : 0 );
   rule.set_dst_port_upper( dst ? match.dstPortHigh : portMax );
   const bool len = match.ipLenMask || match.ipLenLow || match.ipLenHigh;
   rule.set_len_lower( len ? match.ipLenLow : 0 );
   rule.set_len_upper( len ? match.ipLenHigh : lengthMax );
   rule.set_tcp_flag( match.extraTcpFlags );
}

// Operators other than eq match any TTL.
void setTtl( Rule & rule, const Acl::TtlSpec & ttl ) {
   const bool one = ttl.oper() == Acl::eq;
   rule.set_ttl_lower( one ? ttl.ttl() : 0 );
   rule.set_ttl_upper( one ? ttl.ttl() : ttlMax );
}

void setFilter( Rule & rule, const Acl::IpFilter & filter ) {
   rule.set_proto( filter.proto() );
   setAddresses( rule, filter.source(), filter.destination() );
   setTtl( rule, filter.ttl() );
   rule.set_dscp( filter.matchDscp() ? filter.dscp() : dscpAny );
   rule.set_icmp_type( filter.icmpType() );
   rule.set_icmp_code( filter.icmpCode() );
}

} // namespace

Gant::Ptr< VexAclCommonData > vexAclCommonDataFactory() { return Gant::make< VexAclCommonData >(); }

KyIpAclMessage::KyIpAclMessage( U16 aclId, AclTarget target ) {
   auto message = std::make_unique< vex::pb::KyIpAclArg >();
   message->set_acl_id( aclId );
   message->set_acl_target( static_cast< U32 >( target ) );
   message_ = std::move( message );
}

KyIpAclMessage::~KyIpAclMessage() = default;

void setRuleAction( Rule & rule, const VexAclRuleAction & action ) {
   if ( action.setPermit() ) rule.set_permit( action.permit() );
   if ( action.setLog() ) rule.set_log( action.log() );
   rule.set_action_dscp( action.setDscp() );
   if ( action.setDscp() ) rule.set_dscp_data( action.dscp() );
   rule.set_action_tc( action.setTc() );
   if ( action.setTc() ) rule.set_tc_data( action.tc() );
}

AclCommonHelper::AclCommonHelper( Gant::Ptr< VexCommonSmData > vexcsd,
                                  Gant::Ptr< const VexModules::MirelCounterDbStatus > counterMirel ) :
     vexcsd_( std::move( vexcsd ) ),
     counterMirel_( std::move( counterMirel ) ) {}

AclCommonHelper::~AclCommonHelper() = default;

void AclCommonHelper::allocateCounterId( const DataPtr & data, const Gant::String & counterName,
                                         const Acl::UniqueId & uniqueId ) {
   if ( !data->counterIdHas( uniqueId ) ) {
      data->counterIdIs( uniqueId, vexcsd()->bessCounterInfo()->allocCounterId(
                                        vexcsd()->kyAclDb(), counterName, CounterType::packets, CounterUnit::count ) );
      data->lastCountIs( uniqueId, 0 );
   }
   data->ruleIdIs( uniqueId, true );
}

U64 AclCommonHelper::getCounter( const DataPtr & data, const Acl::UniqueId & uniqueId ) const {
   if ( !data->counterIdHas( uniqueId ) ) {
      GANT_TRACE( 3, "AclCommonHelper::getCounter", " counterId not allocated ", uniqueId );
      return 0;
   }
   if ( !counterMirel() ) return 0;
   return counterMirel()->mirelCount( VexModules::MirelCounterId( data->counterId( uniqueId ) ) ).count().value();
}

void AclCommonHelper::freeCounterIds( const DataPtr & data, bool all ) {
   for ( const auto & uniqueId : data->counterIdKeys() ) {
      if ( !all && data->ruleIdHas( uniqueId ) ) continue;
      vexcsd()->bessCounterInfo()->freeCounterId( data->counterId( uniqueId ) );
      data->counterIdDel( uniqueId );
      data->lastCountDel( uniqueId );
   }
}

Hul::AclCreateError AclCommonHelper::createIpAclSubrule( const DataPtr & data, const Gant::String & counterName,
                                                         Message * message, Acl::AclType type,
                                                         const VexAclRuleAction & action,
                                                         const Acl::RuleConfig & ruleConfig,
                                                         const Acl::UniqueId & uniqueId, U32 ruleNum, U32 subruleNum,
                                                         const Match & match ) {
   allocateCounterId( data, counterName, uniqueId );
   switch ( type ) {
   case Acl::ip:
      return createIpv4AclSubrule( data, message, type, action, ruleConfig, uniqueId, ruleNum, subruleNum, match );
   case Acl::ipv6:
      return createIpv6AclSubrule( data, message, type, action, ruleConfig, uniqueId, ruleNum, subruleNum, match );
   default: return Hul::aclCreateErrorNone;
   }
}

Hul::AclCreateError AclCommonHelper::createIpv4AclSubrule( const DataPtr & data, Message * message, Acl::AclType,
                                                           const VexAclRuleAction & action,
                                                           const Acl::RuleConfig & ruleConfig,
                                                           const Acl::UniqueId & uniqueId, U32, U32,
                                                           const Match & match ) {
   auto & rule = newRule( message, data->counterId( uniqueId ) );
   setFilter( rule, ruleConfig.filter() );
   setTransport( rule, match );
   setRuleAction( rule, action );
   return Hul::aclCreateErrorNone;
}

Hul::AclCreateError AclCommonHelper::createIpv6AclSubrule( const DataPtr &, Message *, Acl::AclType,
                                                           const VexAclRuleAction &, const Acl::RuleConfig &,
                                                           const Acl::UniqueId & uniqueId, U32, U32, const Match & ) {
   GANT_TRACE( 3, "AclCommonHelper::createIpv6AclSubrule", " not supported ", uniqueId );
   return Hul::aclCreateErrorUnsupportedRule;
}

Hul::AclCreateError AclCommonHelper::createIpFragRule( const DataPtr &, Message *, const VexAclRuleAction &,
                                                       const Acl::RuleConfig &, const Acl::UniqueId & uniqueId, U32,
                                                       U32 ) {
   GANT_TRACE( 3, "AclCommonHelper::createIpFragRule", " without effect ", uniqueId );
   return Hul::aclCreateErrorNone;
}

Hul::AclCreateError AclCommonHelper::createFinalAclRule( const DataPtr & data, const Gant::String & counterName,
                                                         Message * message, Acl::AclType type,
                                                         const Acl::UniqueId & uniqueId,
                                                         const VexAclRuleAction & action, U32 ruleNum ) {
   allocateCounterId( data, counterName, uniqueId );
   switch ( type ) {
   case Acl::ip: return createIpv4FinalAclRule( data, message, type, action, uniqueId, ruleNum );
   case Acl::ipv6: return createIpv6FinalAclRule( data, message, type, action, uniqueId, ruleNum );
   default: return Hul::aclCreateErrorNone;
   }
}

// The default filter and match are those of everything.
Hul::AclCreateError AclCommonHelper::createIpv4FinalAclRule( const DataPtr & data, Message * message, Acl::AclType,
                                                             const VexAclRuleAction & action,
                                                             const Acl::UniqueId & uniqueId, U32 ) {
   auto & rule = newRule( message, data->counterId( uniqueId ) );
   setFilter( rule, Acl::IpFilter() );
   setTransport( rule, Match() );
   setRuleAction( rule, action );
   return Hul::aclCreateErrorNone;
}

Hul::AclCreateError AclCommonHelper::createIpv6FinalAclRule( const DataPtr &, Message *, Acl::AclType,
                                                             const VexAclRuleAction &, const Acl::UniqueId & uniqueId,
                                                             U32 ) {
   GANT_TRACE( 3, "AclCommonHelper::createIpv6FinalAclRule", " not supported ", uniqueId );
   return Hul::aclCreateErrorUnsupportedRule;
}

} // namespace Vex
