// The helper of quality-of-service policies. The virtual operations stand in slot order.
//
// Order of calls, which the layer keeps, for each policy map that is new or has changed: for each class, and each of
// its lists, in the order of matching,
//
//    precreateAcl, a call for each rule and subrule in order, and for the default class createDefaultRule
//
// then prepareToCommit, commitAcl for each list, and batchCommitAcls with the policy's active interfaces. An interface
// that leaves a policy takes updatePortForAcl with `add` false, before another policy is applied to it. Lists that have
// left a policy take destroyAcl and cleanupAcl after the batch; the last one takes the policy along.
#pragma once

#include "HulHelper.h"
#include "HulQosTypes.h"

namespace Acl {
class Config;
}

namespace HulHelper {

class QosAclHelper : public Hul::HulBaseHelper {
 public:
   using PolicyPtr = Hul::QosPolicyMapStatePtr;
   using ClassPtr = Hul::QosClassDataPtr;
   using MatchOption = Qos::ClassMapMatchOption;

   QosAclHelper( Gant::Name name, Gant::Ptr< const Qos::Status > qosStatus,
                 Gant::Ptr< Qos::AclSliceHwStatus > qosAclSliceHwStatus, Gant::Ptr< const Acl::Config > aclConfig ) :
        HulBaseHelper( std::move( name ) ),
        qosStatus_( std::move( qosStatus ) ), qosAclSliceHwStatus_( std::move( qosAclSliceHwStatus ) ),
        aclConfig_( std::move( aclConfig ) ) {}
   GANT_CONST( Gant::Ptr< const Qos::Status >, qosStatus )
   GANT_CONST( Gant::Ptr< Qos::AclSliceHwStatus >, qosAclSliceHwStatus )
   GANT_CONST( Gant::Ptr< const Acl::Config >, aclConfig )

   // Once, before any other call: declares the capabilities.
   virtual void hwInit() = 0;
   virtual bool isMapTypeSupported( Qos::MapType mapType ) = 0;
   // An answer other than aclCreateErrorNone: nothing has changed.
   virtual Hul::AclCreateError precreateAcl( const PolicyPtr & pmapState, const ClassPtr & classData,
                                             MatchOption matchOption, const Hul::AclKey & aclKey ) = 0;
   virtual Hul::AclCreateError createIpAclSubrule( Acl::AclType type, const Acl::RuleConfig & ruleConfig,
                                                   const Acl::UniqueId & uniqueId, const PolicyPtr & pmapState,
                                                   const ClassPtr & classData, const Hul::AclKey & aclKey, U32 ruleNum,
                                                   U32 subruleNum, const Hul::SubruleMatch & match ) = 0;
   virtual Hul::AclCreateError createIpFragRule( const PolicyPtr & pmapState, const ClassPtr & classData,
                                                 const Hul::AclKey & aclKey, const Acl::IpRuleConfig & ipRuleConfig,
                                                 const Acl::UniqueId & uniqueId, U32 ruleNum, U32 subruleNum ) = 0;
   virtual Hul::AclCreateError createDefaultRule( const PolicyPtr & pmapState, const ClassPtr & classData,
                                                  MatchOption matchOption, const Hul::AclKey & aclKey ) = 0;
   virtual Hul::AclCreateError createVlanRule( const PolicyPtr & pmapState, const ClassPtr & classData,
                                               MatchOption matchOption, const Hul::AclKey & aclKey, U32 vlan ) = 0;
   virtual bool ipSubruleExists( const ClassPtr & classData, const Hul::AclKey & aclKey, const Acl::UniqueId & uniqueId,
                                 U32 ruleNum, U32 subruleNum ) = 0;
   virtual void prepareToCommit() = 0;
   virtual Hul::AclCreateError commitAcl( const ClassPtr & classData, MatchOption matchOption,
                                          const Hul::AclKey & aclKey ) = 0;
   virtual void batchCommitAcls( const PolicyPtr & pmapState ) = 0;
   virtual bool intfSupported( Kynet::IntfId intfId ) = 0;
   virtual void updatePortForAcl( const PolicyPtr & pmapState, const ClassPtr & classData, MatchOption matchOption,
                                  const Hul::AclKey & aclKey, const Qos::IntfPairKey & intfPairKey, bool add ) = 0;
   virtual void cleanupAcl( const PolicyPtr & pmapState, const ClassPtr & classData, MatchOption matchOption,
                            const Hul::AclKey & aclKey ) = 0;
   virtual void destroyAcl( const PolicyPtr & pmapState, const ClassPtr & classData, MatchOption matchOption,
                            const Hul::AclKey & aclKey ) = 0;
   // Packets since the rules were made.
   virtual Hul::QosClassCounterData counterUpdateRequest( const ClassPtr & classData, const Hul::AclKey & aclKey ) = 0;
};

} // namespace HulHelper
