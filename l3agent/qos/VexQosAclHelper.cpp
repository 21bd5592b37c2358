#include "VexQosAclHelper.h"

#include "GantAssert.h"
#include "GantTrace.h"

namespace Vex {

static Gant::TraceHandle traceHandle( "VexQosAclHelper" );

namespace {

// The key of a class's policy, where no state of the policy map is at hand.
Hul::QosPolicyMapKey policyKeyOf( const Hul::QosClassDataKey & key ) {
   return Hul::QosPolicyMapKey( key.pmapName(), key.pmapType(), Qos::Direction( 0 ), "Default" );
}

} // namespace

QosAclHelper::QosAclHelper( Gant::Ptr< const Qos::Status > qosStatus,
                            Gant::Ptr< Qos::AclSliceHwStatus > qosAclSliceHwStatus,
                            Gant::Ptr< const Acl::Config > aclConfig, Gant::Ptr< Qos::AclHwStatus > qosAclHwStatus,
                            Gant::Ptr< VexCommonSmData > vexcsd,
                            Gant::Ptr< const VexModules::MirelCounterDbStatus > counterMirel ) :
     HulHelper::QosAclHelper( "qosAclHelper", std::move( qosStatus ), std::move( qosAclSliceHwStatus ),
                              std::move( aclConfig ) ),
     qosAclHwStatus_( std::move( qosAclHwStatus ) ), vexcsd_( std::move( vexcsd ) ),
     counterMirel_( std::move( counterMirel ) ) {}

QosAclHelper::~QosAclHelper() = default;

void QosAclHelper::hwInit() {
   GANT_ASSERT( qosAclHwStatus() );
   qosAclHwStatus()->policyQosSupportedIs( true );
   qosAclHwStatus()->policyQosActionsSupportedIs( 4, true ); // traffic class
   qosAclHwStatus()->policyQosActionsSupportedIs( 3, true ); // DSCP
   qosAclHwStatus()->policyQosNumCMapSupportedIs( 255 );
   qosAclHwStatus()->ip6AclsSupportedIs( false );
   qosAclHwStatus()->coppSupportedIs( false );
   qosAclHwStatus()->showPdpCountersSupportedIs( false );
   qosAclHwStatus()->hwInitializedIs( true );
   GANT_ASSERT( vexcsd()->kyAclDb() );
   commonHelperIs( Gant::make< AclCommonHelper >( vexcsd(), counterMirel() ) );
   policyL3IntfSmIs( Gant::make< QosPolicyL3IntfSm >( vexcsd(), this ) );
}

bool QosAclHelper::isMapTypeSupported( Qos::MapType mapType ) {
   if ( mapType == Qos::MapType( 1 ) ) return true;
   GANT_TRACE( 3, "QosAclHelper:: mapType not supported ", mapType );
   return false;
}

VexHulQosReturnCode QosAclHelper::getHulData( const ClassPtr & classData, MatchOption matchOption,
                                              const Hul::AclKey & aclKey ) const {
   VexHulQosReturnCode rc;
   rc.matchDataIs( classData->matchData( matchOption ) );
   GANT_ASSERT( rc.matchData(), " class ", classData->key() );
   rc.aclDataIs( rc.matchData()->aclData( aclKey ) );
   GANT_ASSERT( rc.aclData(), " class ", classData->key(), " acl ", aclKey );
   return rc;
}

VexQosReturnCode QosAclHelper::getData( const Hul::QosPolicyMapKey & pmapKey, const Hul::QosClassDataKey & classKey,
                                        const Hul::AclKey & aclKey ) const {
   VexQosReturnCode rc;
   rc.qospolicyIs( qosPolicy( pmapKey ) );
   if ( !rc.qospolicy() ) {
      GANT_TRACE( 4, "QosAclHelper::getData", " no vex qospolicy ", pmapKey );
      return rc;
   }
   rc.qosclassIs( rc.qospolicy()->qosClass( classKey ) );
   if ( !rc.qosclass() ) {
      GANT_TRACE( 4, "QosAclHelper::getData", " no vex qosclass ", classKey );
      return rc;
   }
   rc.qosaclIs( rc.qosclass()->qosAcl( aclKey ) );
   if ( !rc.qosacl() ) GANT_TRACE( 4, "QosAclHelper::getData", " no vex qosacl ", aclKey );
   return rc;
}

VexQosReturnCode QosAclHelper::dataOf( const PolicyPtr & pmapState, const ClassPtr & classData,
                                       const Hul::AclKey & aclKey ) const {
   return getData( pmapState->key(), classData->key(), aclKey );
}

VexQosReturnCode QosAclHelper::dataOf( const ClassPtr & classData, const Hul::AclKey & aclKey ) const {
   return getData( policyKeyOf( classData->key() ), classData->key(), aclKey );
}

Hul::AclCreateError QosAclHelper::createPolicy( const Hul::QosPolicyMapKey & key ) {
   const auto & kyAclDb = vexcsd()->kyAclDb();
   if ( kyAclDb->freeAclIds() == 0 ) {
      GANT_TRACE( 0, "QosAclHelper::createPolicy", " aclId - exhausted ", key );
      return Hul::aclCreateErrorTooManyAcls;
   }
   const auto policy = qosPolicyIs( key, Gant::make< VexQosPolicyData >( key ) );
   policy->hwPolicyIdIs( kyAclDb->freeAclIdDeq() );
   GANT_TRACE( 4, "QosAclHelper::createPolicy", " vex policy - create ", key, " ", policy->hwPolicyId() );
   policy->kyIpPolicyArgIs( Gant::make< KyIpAclMessage >( policy->hwPolicyId(), AclTarget::qos ) );
   return Hul::aclCreateErrorNone;
}

void QosAclHelper::createPolicyInDb( const QosPolicyPtr & policy ) {
   if ( !policy->kyIpPolicyArg() ) return;
   vexcsd()->kyAclDb()->createPolicy( policy->kyIpPolicyArg()->release() );
   policy->kyIpPolicyArgDel();
}

void QosAclHelper::destroyPolicyFromDb( const QosPolicyPtr & policy ) {
   vexcsd()->kyAclDb()->destroyPolicy( policy->hwPolicyId() );
   policy->kyIpPolicyArgDel();
}

void QosAclHelper::prepareToCommit() { GANT_TRACE( 4, "QosAclHelper::prepareToCommit" ); }

Hul::AclCreateError QosAclHelper::commitAcl( const ClassPtr & classData, MatchOption, const Hul::AclKey & aclKey ) {
   if ( !isMapTypeSupported( classData->key().pmapType() ) ) return Hul::aclCreateErrorNone;
   const auto rc = dataOf( classData, aclKey );
   GANT_TRACE( 4, "QosAclHelper::commitAcl ", classData->key(), " ", aclKey, " ", bool( rc.qosacl() ) );
   return Hul::aclCreateErrorNone;
}

void QosAclHelper::destroyAcl( const PolicyPtr & pmapState, const ClassPtr & classData, MatchOption,
                               const Hul::AclKey & aclKey ) {
   if ( !isMapTypeSupported( pmapState->key().type() ) ) return;
   dataOf( pmapState, classData, aclKey );
}

void QosAclHelper::cleanupAcl( const PolicyPtr & pmapState, const ClassPtr & classData, MatchOption,
                               const Hul::AclKey & aclKey ) {
   if ( !isMapTypeSupported( pmapState->key().type() ) ) return;
   const auto rc = dataOf( pmapState, classData, aclKey );
   if ( !rc.qosacl() ) return;
   commonHelper()->freeCounterIds( rc.qosacl(), true );
   rc.qosclass()->qosAclDel( aclKey );
   GANT_TRACE( 4, "QosAclHelper::cleanupAcl", " vex qosclass - qosacls ", rc.qosclass()->qosAcls() );
   if ( rc.qosclass()->qosAcls() != 0 ) return;
   rc.qospolicy()->qosClassDel( classData->key() );
   GANT_TRACE( 4, "QosAclHelper::cleanupAcl", " vex qospolicy - classs ", rc.qospolicy()->qosClasss() );
   if ( rc.qospolicy()->qosClasss() != 0 ) return;
   destroyPolicy( pmapState );
}

// Rules that are not of the present version are left out of the sum.
Hul::QosClassCounterData QosAclHelper::counterUpdateRequest( const ClassPtr & classData, const Hul::AclKey & aclKey ) {
   Hul::QosClassCounterData counterData;
   if ( !isMapTypeSupported( classData->key().pmapType() ) ) return counterData;
   const auto rc = dataOf( classData, aclKey );
   if ( !rc.qosacl() ) return counterData;
   for ( const auto & [ uniqueId, live ] : rc.qosacl()->ruleIdIterator() )
      counterData.pktHitsIs( counterData.pktHits() + commonHelper()->getCounter( rc.qosacl(), uniqueId ) );
   return counterData;
}

} // namespace Vex
