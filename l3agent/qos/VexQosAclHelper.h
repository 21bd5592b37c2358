// Quality-of-service policies: what the layer's calls mean for the data plane. A policy map is one rule table in the
// database of the access lists, and takes its id from the same queue; its rules set DSCP or a traffic class. Each
// interface of the policy has a small module that points at the table by id.
#pragma once

#include "HulQosHelper.h"
#include "VexQosTypes.h"

namespace Vex {

class QosAclHelper;

// Connects the policy module of an interface that comes, and disconnects that of one that goes.
//
//   watches   VexCommonSmData::l3Intf
class QosPolicyL3IntfSm : public Gant::StateMachine {
 public:
   // `qosAclHelper` owns this object.
   QosPolicyL3IntfSm( Gant::Ptr< VexCommonSmData > vexcsd, QosAclHelper * qosAclHelper );
   ~QosPolicyL3IntfSm() override;
   const char * fwkType() const override { return "Vex::QosPolicyL3IntfSm"; }
   GANT_CONST( Gant::Ptr< VexCommonSmData >, vexcsd )
   GANT_CONST( QosAclHelper *, qosAclHelper )
   void handleL3Intf( Kynet::IntfId intfId );

 private:
   struct GantVexcsd;
   std::unique_ptr< GantVexcsd > reactor_;
};

// Only policy maps of type 1 are handled: for any other, every operation succeeds and does nothing.
//
// A policy is made by the first list of its first class, and goes with the last list of its last one. Each pass over
// the rules makes the whole table anew; batchCommitAcls swaps it under its id.
class QosAclHelper : public HulHelper::QosAclHelper {
 public:
   using QosPolicies = Gant::OrderedMap< Hul::QosPolicyMapKey, Gant::Ptr< VexQosPolicyData > >;
   using QosPolicyPtr = Gant::Ptr< VexQosPolicyData >;
   using AttachedIntfPtr = Gant::Ptr< VexQosPolicyAttachedIntf >;

   // The first three are the base class's.
   QosAclHelper( Gant::Ptr< const Qos::Status > qosStatus, Gant::Ptr< Qos::AclSliceHwStatus > qosAclSliceHwStatus,
                 Gant::Ptr< const Acl::Config > aclConfig, Gant::Ptr< Qos::AclHwStatus > qosAclHwStatus,
                 Gant::Ptr< VexCommonSmData > vexcsd,
                 Gant::Ptr< const VexModules::MirelCounterDbStatus > counterMirel );
   ~QosAclHelper() override;
   const char * fwkType() const override { return "Vex::QosAclHelper"; }

   GANT_CONST( Gant::Ptr< Qos::AclHwStatus >, qosAclHwStatus )
   GANT_CONST( Gant::Ptr< VexCommonSmData >, vexcsd )
   GANT_CONST( Gant::Ptr< const VexModules::MirelCounterDbStatus >, counterMirel )
   GANT_ATTR( Gant::Ptr< AclCommonHelper >, commonHelper )
   GANT_MAP( QosPolicies, qosPolicy )
   GANT_ATTR( Gant::Ptr< QosPolicyL3IntfSm >, policyL3IntfSm )

   void hwInit() override;
   bool isMapTypeSupported( Qos::MapType mapType ) override;
   Hul::AclCreateError precreateAcl( const PolicyPtr & pmapState, const ClassPtr & classData, MatchOption matchOption,
                                     const Hul::AclKey & aclKey ) override;
   // A rule that denies adds nothing: its packets are not of the class.
   Hul::AclCreateError createIpAclSubrule( Acl::AclType type, const Acl::RuleConfig & ruleConfig,
                                           const Acl::UniqueId & uniqueId, const PolicyPtr & pmapState,
                                           const ClassPtr & classData, const Hul::AclKey & aclKey, U32 ruleNum,
                                           U32 subruleNum, const Hul::SubruleMatch & match ) override;
   Hul::AclCreateError createIpFragRule( const PolicyPtr & pmapState, const ClassPtr & classData,
                                         const Hul::AclKey & aclKey, const Acl::IpRuleConfig & ipRuleConfig,
                                         const Acl::UniqueId & uniqueId, U32 ruleNum, U32 subruleNum ) override;
   Hul::AclCreateError createDefaultRule( const PolicyPtr & pmapState, const ClassPtr & classData,
                                          MatchOption matchOption, const Hul::AclKey & aclKey ) override;
   Hul::AclCreateError createVlanRule( const PolicyPtr & pmapState, const ClassPtr & classData, MatchOption matchOption,
                                       const Hul::AclKey & aclKey, U32 vlan ) override;
   bool ipSubruleExists( const ClassPtr & classData, const Hul::AclKey & aclKey, const Acl::UniqueId & uniqueId,
                         U32 ruleNum, U32 subruleNum ) override;
   void prepareToCommit() override;
   Hul::AclCreateError commitAcl( const ClassPtr & classData, MatchOption matchOption,
                                  const Hul::AclKey & aclKey ) override;
   void batchCommitAcls( const PolicyPtr & pmapState ) override;
   bool intfSupported( Kynet::IntfId intfId ) override;
   void updatePortForAcl( const PolicyPtr & pmapState, const ClassPtr & classData, MatchOption matchOption,
                          const Hul::AclKey & aclKey, const Qos::IntfPairKey & intfPairKey, bool add ) override;
   void cleanupAcl( const PolicyPtr & pmapState, const ClassPtr & classData, MatchOption matchOption,
                    const Hul::AclKey & aclKey ) override;
   void destroyAcl( const PolicyPtr & pmapState, const ClassPtr & classData, MatchOption matchOption,
                    const Hul::AclKey & aclKey ) override;
   Hul::QosClassCounterData counterUpdateRequest( const ClassPtr & classData, const Hul::AclKey & aclKey ) override;

   // The class must have the list.
   VexHulQosReturnCode getHulData( const ClassPtr & classData, MatchOption matchOption,
                                   const Hul::AclKey & aclKey ) const;
   VexQosReturnCode getData( const Hul::QosPolicyMapKey & pmapKey, const Hul::QosClassDataKey & classKey,
                             const Hul::AclKey & aclKey ) const;
   VexAclRuleAction getRuleAction( const ClassPtr & classData ) const;
   Hul::AclCreateError createPolicy( const Hul::QosPolicyMapKey & key );
   // The policy must be there.
   void destroyPolicy( const PolicyPtr & pmapState );
   // Sends the table under construction, if there is one.
   void createPolicyInDb( const QosPolicyPtr & policy );
   void destroyPolicyFromDb( const QosPolicyPtr & policy );

   // Applying again changes nothing but to connect what is not connected.
   void attachPolicy( const QosPolicyPtr & qospolicy, Kynet::IntfId intfId, U32 pmapVersion );
   void detachPolicy( const QosPolicyPtr & qospolicy, Kynet::IntfId intfId, U32 pmapVersion );
   void connectPolicyModule( const QosPolicyPtr & qospolicy, const AttachedIntfPtr & attachIntf );
   void disconnectPolicyModule( const QosPolicyPtr & qospolicy, const AttachedIntfPtr & attachIntf );
   // "PQos_Rx_et1"
   static Gant::String getModuleName( const Hul::QosPolicyMapKey & key, Kynet::IntfId intfId );

 private:
   VexQosReturnCode dataOf( const PolicyPtr & pmapState, const ClassPtr & classData, const Hul::AclKey & aclKey ) const;
   VexQosReturnCode dataOf( const ClassPtr & classData, const Hul::AclKey & aclKey ) const;
   Gant::Ptr< PolicyQos > newPolicyModule( const QosPolicyPtr & qospolicy, Kynet::IntfId intfId, U32 pmapVersion );
};

} // namespace Vex
