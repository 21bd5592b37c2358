#include "VexQosCpuPolicy.h"

#include "GantAssert.h"
#include "GantTrace.h"
#include "StateQos.h"
#include "vex/acl.pb.h"
#include "VexMessage.h"

namespace Vex {

static Gant::TraceHandle traceHandle( "VexQosCpuPolicy" );

using VexModules::CpuReasonToTc;
using VexModules::TcpPort;
using VexModules::UdpPort;

namespace {

// IP protocol numbers.
constexpr U8 igmp = 2;
constexpr U8 tcp = 6;
constexpr U8 udp = 17;
constexpr U8 ospf = 89;
constexpr U8 pim = 103;
constexpr U8 vrrp = 112;

constexpr U8 anyDscp = Qos::Dscp::invalid;
// Network control and above.
constexpr U8 dscpControl = 48;

} // namespace

QosCpuPolicy::QosCpuPolicy( Gant::Ptr< VexCommonSmData > vexcsd ) : vexcsd_( std::move( vexcsd ) ) {}

QosCpuPolicy::~QosCpuPolicy() = default;

void QosCpuPolicy::hwInit() {
   commonHelperIs( Gant::make< AclCommonHelper >( vexcsd(), nullptr ) );
   createPolicy();
}

void QosCpuPolicy::createPolicy() {
   hwPolicyIdIs( vexcsd()->kyAclDb()->freeAclIdDeq() );
   kyIpCpuClassifyArgIs( Gant::make< KyIpAclMessage >( hwPolicyId(), AclTarget::cpu ) );
   addRules();
   createPolicyInDb();
   applyPolicy();
}

void QosCpuPolicy::addRules() {
   addIpRuleWithL4( udp, 0, UdpPort::portBfd, anyDscp, CpuReasonToTc::reasonBfd );
   addIpRuleWithL4( udp, 0, UdpPort::portBfdEcho, anyDscp, CpuReasonToTc::reasonBfd );
   addIpRuleWithL4( udp, 0, UdpPort::portBfdMultihop, anyDscp, CpuReasonToTc::reasonBfd );
   addIpRule( tcp, TcpPort::portBgp, anyDscp, CpuReasonToTc::reasonBgp );
   addIpRuleWithL4( udp, 0, UdpPort::portIke, anyDscp, CpuReasonToTc::reasonIke );
   addIpRuleWithL4( udp, 0, UdpPort::portIpsec, anyDscp, CpuReasonToTc::reasonIpsec );
   addIpRule( ospf, 0, anyDscp, CpuReasonToTc::reasonOspf );
   // Of PIM, register messages carry the DSCP of the data in them.
   for ( U8 dscp = Qos::Dscp::min; dscp <= Qos::Dscp::max; ++dscp )
      addIpRule( pim, 0, dscp,
                 dscp < dscpControl ? U8( CpuReasonToTc::reasonForUsIpLow ) : U8( CpuReasonToTc::reasonPim ) );
   addIpRule( igmp, 0, anyDscp, CpuReasonToTc::reasonIgmp );
   addIpRule( vrrp, 0, anyDscp, CpuReasonToTc::reasonVrrp );
   addIpRule( udp, UdpPort::portDhcpServer, anyDscp, CpuReasonToTc::reasonDhcp );
   addIpRule( udp, UdpPort::portDhcpClient, anyDscp, CpuReasonToTc::reasonDhcp );
   addFinalIpRule();
}

void QosCpuPolicy::addIpRule( U8 proto, U16 l4Port, U8 dscp, U8 reason ) {
   if ( l4Port == 0 ) {
      addIpRuleWithL4( proto, 0, 0, dscp, reason );
      return;
   }
   addIpRuleWithL4( proto, l4Port, 0, dscp, reason );
   addIpRuleWithL4( proto, 0, l4Port, dscp, reason );
}

void QosCpuPolicy::addIpRuleWithL4( U8 proto, U16 srcL4Port, U16 dstL4Port, U8 dscp, U8 reason ) {
   Acl::IpFilter filter;
   filter.protoIs( proto );
   if ( dscp != Qos::Dscp::invalid ) {
      filter.matchDscpIs( true );
      filter.dscpIs( dscp );
   }
   Acl::IpRuleConfig rule;
   rule.filterIs( filter );
   VexAclRuleAction action;
   action.setTcIs( true );
   action.tcIs( reason );
   Hul::SubruleMatch match;
   match.srcL4Port = match.srcPortLow = match.srcPortHigh = srcL4Port;
   match.dstL4Port = match.dstPortLow = match.dstPortHigh = dstL4Port;
   const auto reasonCode = getReasonCode( proto, srcL4Port, dstL4Port, dscp, reason );
   commonHelper()->createIpAclSubrule( reasonCode.vexData(), reasonCode.key(), kyIpCpuClassifyArg()->message(), Acl::ip,
                                       action, rule, reasonCode.aclId(), 0, 0, match );
}

void QosCpuPolicy::addFinalIpRule() {
   VexAclRuleAction action;
   action.setTcIs( true );
   action.tcIs( CpuReasonToTc::reasonDefault );
   const auto reasonCode = getReasonCode( 0, 0, 0, Qos::Dscp::invalid, CpuReasonToTc::reasonDefault );
   commonHelper()->createFinalAclRule( reasonCode.vexData(), reasonCode.key(), kyIpCpuClassifyArg()->message(), Acl::ip,
                                       reasonCode.aclId(), action, 0 );
}

// Each key has data of its own: otherwise the counters would meet under the one id.
QosCpuReasonCode QosCpuPolicy::getReasonCode( U8 proto, U16 srcL4Port, U16 dstL4Port, U8 dscp, U8 reason ) {
   const auto key = Gant::format( "cpuPolicy-%d-%d-%d-%d-%d", proto, srcL4Port, dstL4Port, dscp, reason );
   if ( !qosCpuReasonCodeHas( key ) )
      qosCpuReasonCodeIs( key, QosCpuReasonCode( key, Acl::UniqueId::allOnes(), vexAclCommonDataFactory() ) );
   return qosCpuReasonCode( key );
}

void QosCpuPolicy::createPolicyInDb() {
   if ( !kyIpCpuClassifyArg() ) return;
   vexcsd()->kyAclDb()->createPolicy( kyIpCpuClassifyArg()->release() );
   kyIpCpuClassifyArgDel();
}

void QosCpuPolicy::applyPolicy() {
   const auto & trapModule = vexcsd()->trapModule();
   if ( !trapModule ) GANT_TRACE( 0, "QosCpuPolicy::applyPolicy ", "trapModule is NULL" );
   GANT_ASSERT( trapModule );
   auto * const arg = newMessage< vex::pb::PolicyApplyArg >( *trapModule );
   arg->set_policy_id( hwPolicyId() );
   enqueueChange( *trapModule, "applyPolicy", arg );
}

} // namespace Vex
