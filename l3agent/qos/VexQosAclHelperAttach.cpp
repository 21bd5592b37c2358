// The modules that apply policies to interfaces.
#include "GantAssert.h"
#include "GantTrace.h"
#include "vex/acl.pb.h"
#include "VexMessage.h"
#include "VexQosAclHelper.h"

namespace Vex {

static Gant::TraceHandle traceHandle( "VexQosAclHelper" );

namespace {

// The place in the ingress chain: behind the access list.
constexpr U32 ingressPlace = 300;

constexpr U32 gatesMax = 8192;

// A member of a link aggregation group stands for the group.
Kynet::IntfId intfOf( const Qos::IntfPairKey & pair ) { return !pair.lagIntf() ? pair.intfId() : pair.lagIntf(); }

} // namespace

struct QosPolicyL3IntfSm::GantVexcsd : VexCommonSmData::Notifiee {
   explicit GantVexcsd( QosPolicyL3IntfSm * owner ) : Notifiee( owner, owner->vexcsd() ), owner( owner ) {}
   void onL3Intf( const Kynet::IntfId & intfId ) override { owner->handleL3Intf( intfId ); }
   QosPolicyL3IntfSm * owner;
};

QosPolicyL3IntfSm::QosPolicyL3IntfSm( Gant::Ptr< VexCommonSmData > vexcsd, QosAclHelper * qosAclHelper ) :
     vexcsd_( std::move( vexcsd ) ), qosAclHelper_( qosAclHelper ), reactor_( std::make_unique< GantVexcsd >( this ) ) {
}

QosPolicyL3IntfSm::~QosPolicyL3IntfSm() = default;

void QosPolicyL3IntfSm::handleL3Intf( Kynet::IntfId intfId ) {
   const bool exists = vexcsd()->l3IntfHas( intfId );
   for ( const auto & [ key, qospolicy ] : qosAclHelper()->qosPolicyIterator() ) {
      const auto & attachIntf = qospolicy->attachedIntf( intfId );
      if ( !attachIntf ) continue;
      if ( exists )
         qosAclHelper()->connectPolicyModule( qospolicy, attachIntf );
      else
         qosAclHelper()->disconnectPolicyModule( qospolicy, attachIntf );
   }
}

Gant::String QosAclHelper::getModuleName( const Hul::QosPolicyMapKey & key, Kynet::IntfId intfId ) {
   return moduleName( key.direction() == Qos::Direction( 0 ) ? "PQos_Rx_" : "PQos_Tx_", intfId );
}

bool QosAclHelper::intfSupported( Kynet::IntfId intfId ) { return vexcsd()->l2IntfHas( intfId ); }

void QosAclHelper::batchCommitAcls( const PolicyPtr & pmapState ) {
   if ( !isMapTypeSupported( pmapState->key().type() ) ) return;
   const auto & qospolicy = qosPolicy( pmapState->key() );
   if ( !qospolicy ) {
      GANT_TRACE( 4, "QosAclHelper::batchCommitAcls", " no vex qospolicy ", pmapState->key() );
      return;
   }
   createPolicyInDb( qospolicy );
   for ( const auto & pair : pmapState->activeIntfIterator() )
      attachPolicy( qospolicy, intfOf( pair ), pmapState->version() );
}

void QosAclHelper::destroyPolicy( const PolicyPtr & pmapState ) {
   const auto qospolicy = qosPolicy( pmapState->key() );
   GANT_ASSERT( qospolicy, " policy ", pmapState->key() );
   for ( const auto & pair : pmapState->activeIntfIterator() )
      detachPolicy( qospolicy, intfOf( pair ), pmapState->version() );
   destroyPolicyFromDb( qospolicy );
   qosPolicyDel( pmapState->key() );
   vexcsd()->kyAclDb()->freeAclIdEnq( qospolicy->hwPolicyId() );
}

Gant::Ptr< PolicyQos > QosAclHelper::newPolicyModule( const QosPolicyPtr & qospolicy, Kynet::IntfId intfId,
                                                      U32 pmapVersion ) {
   GANT_ASSERT( qospolicy->key().direction() == Qos::Direction::input_, " policy ", qospolicy->key() );
   auto * const arg = new vex::pb::PolicyQosArg;
   arg->set_intf_id( intfId.value() );
   arg->set_ingress( true );
   arg->set_policy_version( pmapVersion );
   const auto pair = vexcsd()->moduleGlobalCmdConfig()->moduleConfigStatusPairIs( "qosAcl" );
   return Gant::make< PolicyQos >( getModuleName( qospolicy->key(), intfId ), gatesMax, 1, arg, pair );
}

void QosAclHelper::attachPolicy( const QosPolicyPtr & qospolicy, Kynet::IntfId intfId, U32 pmapVersion ) {
   if ( !intfSupported( intfId ) ) {
      GANT_TRACE( 2, "QosAclHelper::attachPolicy", " intf not supported ", intfId );
      return;
   }
   if ( qospolicy->attachedIntfHas( intfId ) ) {
      const auto attachIntf = qospolicy->attachedIntf( intfId );
      GANT_ASSERT( attachIntf, " intf ", intfId );
      GANT_ASSERT( attachIntf->policyModule(), " intf ", intfId );
      GANT_TRACE( 4, "QosAclHelper::attachPolicy", " intf already attached ", intfId );
      connectPolicyModule( qospolicy, attachIntf );
      return;
   }
   const auto attachIntf = qospolicy->attachedIntfIs( intfId, Gant::make< VexQosPolicyAttachedIntf >( intfId ) );
   attachIntf->policyModuleIs( newPolicyModule( qospolicy, intfId, pmapVersion ) );
   attachIntf->policyModule()->applyServicePolicy( qospolicy->hwPolicyId(), pmapVersion );
   connectPolicyModule( qospolicy, attachIntf );
}

void QosAclHelper::detachPolicy( const QosPolicyPtr & qospolicy, Kynet::IntfId intfId, U32 pmapVersion ) {
   if ( !intfSupported( intfId ) ) {
      GANT_TRACE( 2, "QosAclHelper::detachPolicy", " intf not supported ", intfId );
      return;
   }
   if ( !qospolicy->attachedIntfHas( intfId ) ) {
      GANT_TRACE( 2, "QosAclHelper::detachPolicy", " intf already detached ", intfId, " version ", pmapVersion );
      return;
   }
   const auto attachIntf = qospolicy->attachedIntf( intfId );
   GANT_ASSERT( attachIntf, " intf ", intfId );
   GANT_ASSERT( attachIntf->policyModule(), " intf ", intfId );
   disconnectPolicyModule( qospolicy, attachIntf );
   attachIntf->policyModuleDel();
   qospolicy->attachedIntfDel( intfId );
}

void QosAclHelper::connectPolicyModule( const QosPolicyPtr &, const AttachedIntfPtr & attachIntf ) {
   if ( attachIntf->connected() ) {
      GANT_TRACE( 4, "QosAclHelper::connectPolicyModule", " already connected ", attachIntf->intfId() );
      return;
   }
   const auto l3Intf = vexcsd()->l3Intf( attachIntf->intfId() );
   if ( !l3Intf ) {
      attachIntf->connectedIs( false );
      GANT_TRACE( 2, "QosAclHelper::connectPolicyModule", " l3Intf not found ", attachIntf->intfId() );
      return;
   }
   l3Intf->connectIngressModule( attachIntf->policyModule(), etherTypeIpv4, ingressPlace );
   attachIntf->connectedIs( true );
}

void QosAclHelper::disconnectPolicyModule( const QosPolicyPtr &, const AttachedIntfPtr & attachIntf ) {
   if ( !attachIntf->connected() ) {
      GANT_TRACE( 4, "QosAclHelper::disconnectPolicyModule", " already disconnected ", attachIntf->intfId() );
      return;
   }
   const auto l3Intf = vexcsd()->l3Intf( attachIntf->intfId() );
   if ( !l3Intf ) {
      attachIntf->connectedIs( false );
      GANT_TRACE( 2, "QosAclHelper::disconnectPolicyModule", " l3Intf not found ", attachIntf->intfId() );
      return;
   }
   l3Intf->disconnectIngressModule( attachIntf->policyModule(), etherTypeIpv4 );
   attachIntf->connectedIs( false );
}

void QosAclHelper::updatePortForAcl( const PolicyPtr & pmapState, const ClassPtr & classData, MatchOption,
                                     const Hul::AclKey & aclKey, const Qos::IntfPairKey & intfPairKey, bool add ) {
   const auto intfId = intfOf( intfPairKey );
   if ( !isMapTypeSupported( pmapState->key().type() ) ) return;
   const auto rc = dataOf( pmapState, classData, aclKey );
   if ( !rc.qosacl() ) return;
   if ( add )
      attachPolicy( rc.qospolicy(), intfId, pmapState->version() );
   else
      detachPolicy( rc.qospolicy(), intfId, pmapState->version() );
}

} // namespace Vex
