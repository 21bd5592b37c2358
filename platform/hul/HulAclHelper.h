// The helper of access lists. The virtual operations stand in slot order.
//
// Order of calls, which the layer keeps, for each list that is new or has changed:
//
//    precreateAcl, a call for each rule and subrule in order, createFinalAclRule
//    addIntfToAcl                for each of its interfaces
//    prepareToCommit, commitAcl  and then one batchCommitAcls for all lists that changed together
//
// An interface that is added to a list which stays as it is only takes the calls from addIntfToAcl on. After the batch,
// removeIntfFromAcl for each interface that left a list, destroyAcl for each key that has no interface any more, and
// again batchCommitAcls.
#pragma once

#include "HulAclTypes.h"
#include "HulHelper.h"

namespace HulHelper {

class AclHelper : public Hul::HulBaseHelper {
 public:
   using AclDataPtr = Hul::AclDataPtr;
   using AclDataStatusPtr = Hul::AclDataStatusPtr;
   using UniqueId = Acl::UniqueId;
   using HulBaseHelper::HulBaseHelper;

   // Once, before any other call: declares the capabilities.
   virtual void hwInit() = 0;
   virtual bool intfSupportsAcl( Kynet::IntfId intfId ) = 0;
   // aclCreateErrorTooManyAcls: nothing has changed.
   virtual Hul::AclCreateError precreateAcl( const AclDataPtr & aclData, const AclDataStatusPtr & aclDataStatus ) = 0;
   virtual Hul::AclCreateError createIpAclSubrule( Acl::AclType type, const Acl::RuleConfig & ruleConfig,
                                                   const UniqueId & uniqueId, const AclDataPtr & aclData, U32 ruleNum,
                                                   U32 subruleNum, const Hul::SubruleMatch & match, U8, U8 ) = 0;
   virtual Hul::AclCreateError createIpFragRule( const AclDataPtr & aclData, const Acl::IpRuleConfig & ipRuleConfig,
                                                 const UniqueId & uniqueId, U32 ruleNum, U32 subruleNum ) = 0;
   virtual Hul::AclCreateError createMacAclRule( const Acl::MacRuleConfig & macRuleConfig, const UniqueId & uniqueId,
                                                 const AclDataPtr & aclData, U32 ruleNum ) = 0;
   virtual Hul::AclCreateError createFinalAclRule( Acl::AclType type, const AclDataPtr & aclData, U32 ruleNum ) = 0;
   virtual void destroyAcl( const AclDataPtr & aclData ) = 0;
   virtual void removeAcl( const AclDataPtr & aclData ) = 0;
   virtual void prepareToCommit() = 0;
   virtual void blockIntf( Kynet::IntfId intfId, bool block, U32 vlanId ) = 0;
   virtual void updateAclPorts( const AclDataPtr & aclData, bool add ) = 0;
   virtual void cleanupAcl( const AclDataPtr & aclData ) = 0;
   virtual void commitAcl( const AclDataPtr & aclData ) = 0;
   virtual void batchCommitAcls() = 0;
   virtual bool addIntfToAcl( Kynet::IntfId intfId, const AclDataPtr & aclData,
                              const AclDataStatusPtr & aclDataStatus ) = 0;
   // `appliedToAnother`: another list has taken this one's place on the interface.
   virtual bool removeIntfFromAcl( Kynet::IntfId intfId, const AclDataPtr & aclData, bool appliedToAnother ) = 0;
   virtual void deleteAcl( U16 hwAclId ) = 0;
   virtual bool ipSubruleExists( const AclDataPtr & aclData, const UniqueId & uniqueId, U32 ruleNum,
                                 U32 subruleNum ) = 0;

   // Compare the data plane with what was asked for. This layer does not call them: data planes that can be dumped are
   // compared as a whole.
   virtual void verifyMacRuleGeneral( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyMacRuleAction( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyMacRuleSrcMac( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyMacRuleDstMac( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyMacRuleEtherType( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyIpRuleGeneral( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyIpRuleAction( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyIpRuleIpProto( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyIpRuleSrcIp( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyIpRuleDstIp( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyIpRuleSrcIp6( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyIpRuleDstIp6( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyIpRuleDscp( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyIpRuleTcIp6( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyIpRuleFragments( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyIpRuleTcpFlags( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyIpRuleIcmp( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyIpRuleSrcPort( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyIpRuleDstPort( const AclDataPtr &, const UniqueId & ) {}
   virtual void verifyAclGeneral( const AclDataPtr & ) {}
   virtual void verifyDropAllRule( const AclDataPtr & ) {}

   virtual bool aclCountersAllocated( const AclDataPtr & aclData ) = 0;
   // Packets since the last call for this rule.
   virtual U64 aclRuleCountersSinceLastPoll( const AclDataPtr & aclData, U32 ruleNum, const UniqueId & uniqueId ) = 0;

   // Capabilities, declared by hwInit. The layer refuses what is not supported before it calls.
   GANT_ATTR( bool, aclDscpSupported, false )
   GANT_ATTR( bool, routerAclSupported, true )
   GANT_ATTR( bool, tunnelIntfIngressIpAclSupported, false )
   GANT_ATTR( bool, tunnelIntfIngressIpv6AclSupported, false )
   GANT_ATTR( bool, tunnelIntfEgressIpAclSupported, false )
   GANT_ATTR( bool, tunnelIntfEgressIpv6AclSupported, false )
   GANT_ATTR( bool, macEgressAclSupported, true )
   GANT_ATTR( bool, ipEgressAclSupported, true )
   GANT_ATTR( bool, routerEgressAclSupported, true )
   GANT_ATTR( bool, aclLoggingSupported, true )
   GANT_ATTR( bool, routerAclLoggingSupported, true )
   GANT_ATTR( bool, aclCountersSupported, false )
   GANT_ATTR( bool, ip6AclSupported, true )
   GANT_ATTR( bool, aclTcSupported, false )
   GANT_ATTR( bool, ip6EgressAclSupported, true )
   GANT_ATTR( bool, aclIpLenMatchSupported, false )
   GANT_ATTR( bool, allowIpLenFilter, false )
   GANT_ATTR( bool, configurableImplicitIcmp6RulesSupported, false )
   GANT_ATTR( bool, aclBatchCommitSupported, false )
   GANT_ATTR( bool, nonContiguousIpMaskSupported, false )
};

} // namespace HulHelper
