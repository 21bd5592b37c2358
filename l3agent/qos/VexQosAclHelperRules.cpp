// The rules of a policy's classes.
#include "GantAssert.h"
#include "GantTrace.h"
#include "VexQosAclHelper.h"

namespace Vex {

static Gant::TraceHandle traceHandle( "VexQosAclHelper" );

namespace {

using ClassPtr = Hul::QosClassDataPtr;
using MatchOption = Qos::ClassMapMatchOption;

MatchOption matchOptionOf( Acl::AclType type ) { return MatchOption( U8( type == Acl::ipv6 ? 2 : 1 ) ); }

Gant::String counterNameOf( const ClassPtr & classData, const Hul::AclKey & aclKey, U32 ruleNum ) {
   return Gant::format( "qosPolicy-%s-%s-%s-%d", classData->key().pmapName().c_str(),
                        classData->key().cmapName().c_str(), aclKey.name().c_str(), ruleNum );
}

} // namespace

Hul::AclCreateError QosAclHelper::precreateAcl( const PolicyPtr & pmapState, const ClassPtr & classData,
                                                MatchOption matchOption, const Hul::AclKey & aclKey ) {
   if ( !isMapTypeSupported( pmapState->key().type() ) ) return Hul::aclCreateErrorNone;
   const auto key = getHulData( classData, matchOption, aclKey ).aclData()->key();
   auto rc = dataOf( pmapState, classData, key );
   if ( !rc.qospolicy() ) {
      const auto error = createPolicy( pmapState->key() );
      if ( error != Hul::aclCreateErrorNone ) return error;
      rc.qospolicyIs( qosPolicy( pmapState->key() ) );
   } else {
      GANT_TRACE( 4, "QosAclHelper::precreateAcl", " vex qospolicy - exists " );
   }
   GANT_ASSERT( rc.qospolicy(), " policy ", pmapState->key() );
   // The first list of a pass begins the new table.
   if ( !rc.qospolicy()->kyIpPolicyArg() )
      rc.qospolicy()->kyIpPolicyArgIs( Gant::make< KyIpAclMessage >( rc.qospolicy()->hwPolicyId(), AclTarget::qos ) );
   if ( !rc.qosclass() ) {
      GANT_TRACE( 4, "QosAclHelper::precreateAcl", " vex qosclass - create ", classData->key() );
      rc.qosclassIs(
           rc.qospolicy()->qosClassIs( classData->key(), Gant::make< VexQosClassData >( classData->key() ) ) );
   } else {
      GANT_TRACE( 4, "QosAclHelper::precreateAcl", " vex qosclass - exist " );
   }
   GANT_ASSERT( rc.qosclass(), " class ", classData->key() );
   if ( !rc.qosacl() ) {
      GANT_TRACE( 4, "QosAclHelper::precreateAcl", " vex qosacl - create ", key );
      rc.qosaclIs( rc.qosclass()->qosAclIs( key, Gant::make< VexQosAclData >( key ) ) );
   } else {
      GANT_TRACE( 4, "QosAclHelper::precreateAcl", " vex qosacl - exist " );
   }
   GANT_ASSERT( rc.qosacl(), " acl ", key );
   rc.qosacl()->ruleIdDelAll();
   return Hul::aclCreateErrorNone;
}

VexAclRuleAction QosAclHelper::getRuleAction( const ClassPtr & classData ) const {
   constexpr U32 actionSetDscp = 3;
   constexpr U32 actionSetTc = 4;
   VexAclRuleAction action;
   if ( classData->actionDataHas( actionSetDscp ) ) {
      action.setDscpIs( true );
      action.dscpIs( static_cast< U8 >( classData->actionData( actionSetDscp ).val() ) );
      GANT_TRACE( 6, "QosAclHelper::getRuleAction", " set dscp ", U32( action.dscp() ) );
   }
   if ( classData->actionDataHas( actionSetTc ) ) {
      action.setTcIs( true );
      action.tcIs( static_cast< U8 >( classData->actionData( actionSetTc ).val() ) );
      GANT_TRACE( 6, "QosAclHelper::getRuleAction", " set traffic-class ", U32( action.tc() ) );
   }
   return action;
}

Hul::AclCreateError QosAclHelper::createIpAclSubrule( Acl::AclType type, const Acl::RuleConfig & ruleConfig,
                                                      const Acl::UniqueId & uniqueId, const PolicyPtr & pmapState,
                                                      const ClassPtr & classData, const Hul::AclKey & aclKey,
                                                      U32 ruleNum, U32 subruleNum, const Hul::SubruleMatch & match ) {
   if ( !isMapTypeSupported( pmapState->key().type() ) ) return Hul::aclCreateErrorNone;
   if ( ruleConfig.action() != Acl::permit ) return Hul::aclCreateErrorNone;
   const auto key = getHulData( classData, matchOptionOf( type ), aclKey ).aclData()->key();
   const auto rc = dataOf( pmapState, classData, key );
   if ( !rc.qosacl() || !rc.qospolicy()->kyIpPolicyArg() ) return Hul::aclCreateErrorNone;
   return commonHelper()->createIpAclSubrule(
        rc.qosacl(), counterNameOf( classData, key, ruleNum ), rc.qospolicy()->kyIpPolicyArg()->message(), type,
        getRuleAction( classData ), ruleConfig, uniqueId, ruleNum, subruleNum, match );
}

Hul::AclCreateError QosAclHelper::createIpFragRule( const PolicyPtr & pmapState, const ClassPtr & classData,
                                                    const Hul::AclKey & aclKey, const Acl::IpRuleConfig & ipRuleConfig,
                                                    const Acl::UniqueId & uniqueId, U32 ruleNum, U32 subruleNum ) {
   if ( !isMapTypeSupported( pmapState->key().type() ) ) return Hul::aclCreateErrorNone;
   if ( ipRuleConfig.action() != Acl::permit ) return Hul::aclCreateErrorNone;
   const auto key = getHulData( classData, MatchOption( U8( 1 ) ), aclKey ).aclData()->key();
   const auto rc = dataOf( pmapState, classData, key );
   if ( !rc.qosacl() || !rc.qospolicy()->kyIpPolicyArg() ) return Hul::aclCreateErrorNone;
   return commonHelper()->createIpFragRule( rc.qosacl(), rc.qospolicy()->kyIpPolicyArg()->message(),
                                            getRuleAction( classData ), ipRuleConfig, uniqueId, ruleNum, subruleNum );
}

Hul::AclCreateError QosAclHelper::createDefaultRule( const PolicyPtr & pmapState, const ClassPtr & classData,
                                                     MatchOption matchOption, const Hul::AclKey & aclKey ) {
   if ( !isMapTypeSupported( pmapState->key().type() ) ) return Hul::aclCreateErrorNone;
   const auto key = getHulData( classData, matchOption, aclKey ).aclData()->key();
   const auto rc = dataOf( pmapState, classData, key );
   if ( !rc.qosacl() || !rc.qospolicy()->kyIpPolicyArg() ) return Hul::aclCreateErrorNone;
   return commonHelper()->createFinalAclRule( rc.qosacl(), counterNameOf( classData, key, 0 ),
                                              rc.qospolicy()->kyIpPolicyArg()->message(), aclKey.type(),
                                              Acl::UniqueId::allOnes(), getRuleAction( classData ), 0 );
}

Hul::AclCreateError QosAclHelper::createVlanRule( const PolicyPtr &, const ClassPtr &, MatchOption, const Hul::AclKey &,
                                                  U32 ) {
   return Hul::aclCreateErrorUnsupportedRule;
}

bool QosAclHelper::ipSubruleExists( const ClassPtr & classData, const Hul::AclKey & aclKey,
                                    const Acl::UniqueId & uniqueId, U32, U32 ) {
   if ( !isMapTypeSupported( classData->key().pmapType() ) ) return false;
   const auto key = getHulData( classData, matchOptionOf( aclKey.type() ), aclKey ).aclData()->key();
   const auto rc = dataOf( classData, key );
   return rc.qosacl() && rc.qosacl()->ruleIdHas( uniqueId );
}

} // namespace Vex
