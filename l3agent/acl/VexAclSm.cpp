#include "VexAclSm.h"

#include "GantAssert.h"
#include "GantTrace.h"

namespace Vex {

static Gant::TraceHandle traceHandle( "VexAclSm" );

namespace {

using AclDataPtr = Hul::AclDataPtr;

AclTypeAndName keyOf( const AclDataPtr & aclData ) {
   return AclTypeAndName( aclData->key().type(), aclData->key().name() );
}

Gant::String counterNameOf( const AclDataPtr & aclData, U32 ruleNum ) {
   return Gant::format( "kyAclDb-%s-%d", aclData->key().name().c_str(), ruleNum );
}

} // namespace

AclHelper::AclHelper( Gant::Ptr< VexCommonSmData > vexcsd, Gant::Ptr< Acl::Config > mainConfig,
                      Gant::Ptr< Acl::StatusDp > status,
                      Gant::Ptr< const VexModules::MirelCounterDbStatus > counterMirel ) :
     HulHelper::AclHelper( "aclHelper" ),
     vexcsd_( std::move( vexcsd ) ), mainConfig_( std::move( mainConfig ) ), status_( std::move( status ) ),
     counterMirel_( std::move( counterMirel ) ) {}

AclHelper::~AclHelper() = default;

void AclHelper::hwInit() {
   aclDscpSupportedIs( true );
   routerAclSupportedIs( false );
   tunnelIntfIngressIpAclSupportedIs( true );
   tunnelIntfIngressIpv6AclSupportedIs( true );
   tunnelIntfEgressIpAclSupportedIs( true );
   tunnelIntfEgressIpv6AclSupportedIs( true );
   macEgressAclSupportedIs( false );
   ipEgressAclSupportedIs( true );
   routerEgressAclSupportedIs( false );
   aclLoggingSupportedIs( true );
   routerAclLoggingSupportedIs( false );
   aclCountersSupportedIs( true );
   // Though tunnels claim them above.
   ip6AclSupportedIs( false );
   aclTcSupportedIs( true );
   ip6EgressAclSupportedIs( false );
   aclIpLenMatchSupportedIs( true );
   allowIpLenFilterIs( true );
   configurableImplicitIcmp6RulesSupportedIs( true );
   aclBatchCommitSupportedIs( true );
   nonContiguousIpMaskSupportedIs( true );
   commonHelperIs( Gant::make< AclCommonHelper >( vexcsd(), counterMirel() ) );
   l3IntfSmIs( Gant::make< L3IntfSm >( vexcsd(), this ) );
}

AclHelper::DataPtr AclHelper::dataOf( const AclDataPtr & aclData ) const { return vexAclData( keyOf( aclData ) ); }

Hul::AclCreateError AclHelper::precreateAcl( const AclDataPtr & aclData, const AclDataStatusPtr & ) {
   if ( aclData->activeIntfs() == 0 ) return Hul::aclCreateErrorNone;
   auto acl = dataOf( aclData );
   const bool isNew = !acl;
   if ( isNew ) {
      // The ids are fewer when policies have some of them.
      if ( vexAclDatas() >= KyAclDb::maxAcls() || vexcsd()->kyAclDb()->freeAclIds() == 0 ) {
         GANT_TRACE( 0, "AclHelper::precreateAcl", " too many acls for ", aclData->key() );
         return Hul::aclCreateErrorTooManyAcls;
      }
      acl = vexAclDataIs( keyOf( aclData ), Gant::make< VexAclData >( keyOf( aclData ) ) );
      acl->stateIs( preparing() );
      acl->hwAclIdIs( vexcsd()->kyAclDb()->freeAclIdDeq() );
   } else {
      GANT_ASSERT( acl->state() != programming(), " acl ", acl->aclTypeAndName() );
      GANT_ASSERT( acl->state() != preparing(), " acl ", acl->aclTypeAndName() );
   }
   acl->programmedAclKeyIs( aclData->key(), true );
   if ( !isNew && aclData->version() == acl->version() ) {
      acl->stateIs( programmed() );
   } else if ( !acl->kyIpAclArg() ) {
      acl->stateIs( preparing() );
      acl->ruleIdDelAll();
      acl->kyIpAclArgIs( Gant::make< KyIpAclMessage >( acl->hwAclId(), AclTarget::security ) );
   }
   GANT_TRACE( 4, "AclHelper::precreateAcl ", aclData->key(), " ", acl->state() );
   return Hul::aclCreateErrorNone;
}

VexAclRuleAction AclHelper::getRuleAction( const Acl::RuleConfig & ruleConfig ) const {
   VexAclRuleAction action;
   action.setPermitIs( true );
   action.permitIs( ruleConfig.action() == Acl::permit );
   action.setLogIs( true );
   action.logIs( ruleConfig.log() );
   return action;
}

Hul::AclCreateError AclHelper::createIpAclSubrule( Acl::AclType type, const Acl::RuleConfig & ruleConfig,
                                                   const UniqueId & uniqueId, const AclDataPtr & aclData, U32 ruleNum,
                                                   U32 subruleNum, const Hul::SubruleMatch & match, U8, U8 ) {
   const auto acl = dataOf( aclData );
   if ( !acl || acl->state() != preparing() ) return Hul::aclCreateErrorNone;
   return commonHelper()->createIpAclSubrule( acl, counterNameOf( aclData, ruleNum ), acl->kyIpAclArg()->message(),
                                              type, getRuleAction( ruleConfig ), ruleConfig, uniqueId, ruleNum,
                                              subruleNum, match );
}

Hul::AclCreateError AclHelper::createIpFragRule( const AclDataPtr & aclData, const Acl::IpRuleConfig & ipRuleConfig,
                                                 const UniqueId & uniqueId, U32 ruleNum, U32 subruleNum ) {
   const auto acl = dataOf( aclData );
   auto * const message = acl && acl->kyIpAclArg() ? acl->kyIpAclArg()->message() : nullptr;
   return commonHelper()->createIpFragRule( acl, message, getRuleAction( ipRuleConfig ), ipRuleConfig, uniqueId,
                                            ruleNum, subruleNum );
}

Hul::AclCreateError AclHelper::createMacAclRule( const Acl::MacRuleConfig &, const UniqueId &, const AclDataPtr &,
                                                 U32 ) {
   return Hul::aclCreateErrorNone;
}

// Every list ends in a drop.
Hul::AclCreateError AclHelper::createFinalAclRule( Acl::AclType type, const AclDataPtr & aclData, U32 ruleNum ) {
   const auto acl = dataOf( aclData );
   if ( !acl || acl->state() != preparing() ) return Hul::aclCreateErrorNone;
   VexAclRuleAction action;
   action.setPermitIs( true );
   action.setLogIs( true );
   const auto result =
        commonHelper()->createFinalAclRule( acl, counterNameOf( aclData, ruleNum ), acl->kyIpAclArg()->message(), type,
                                            UniqueId::allOnes(), action, ruleNum );
   acl->stateIs( prepared() );
   return result;
}

void AclHelper::destroyAcl( const AclDataPtr & aclData ) {
   const auto acl = dataOf( aclData );
   if ( !acl ) return;
   GANT_ASSERT( acl->state() == programmed(), " acl ", acl->aclTypeAndName() );
   acl->programmedAclKeyDel( aclData->key() );
   if ( acl->programmedAclKeys() == 0 ) acl->stateIs( removing() );
}

void AclHelper::removeAcl( const AclDataPtr & aclData ) { GANT_TRACE( 3, "AclHelper::removeAcl ", aclData->key() ); }

void AclHelper::prepareToCommit() { GANT_TRACE( 4, "AclHelper::prepareToCommit" ); }

void AclHelper::blockIntf( Kynet::IntfId intfId, bool block, U32 vlanId ) {
   GANT_TRACE( 3, "AclHelper::blockIntf ", intfId, " ", block, " ", vlanId );
}

void AclHelper::updateAclPorts( const AclDataPtr & aclData, bool add ) {
   GANT_TRACE( 3, "AclHelper::updateAclPorts ", aclData->key(), " ", add );
}

void AclHelper::cleanupAcl( const AclDataPtr & aclData ) {
   for ( const auto & intfId : aclData->activeIntfKeys() ) removeIntfFromAcl( intfId, aclData, false );
}

void AclHelper::commitAcl( const AclDataPtr & aclData ) {
   const auto acl = dataOf( aclData );
   if ( !acl ) return;
   GANT_ASSERT( acl->state() != preparing(), " acl ", acl->aclTypeAndName() );
   if ( acl->state() != prepared() ) return;
   acl->versionIs( aclData->version() );
   acl->stateIs( programming() );
}

void AclHelper::createAclInDb( const DataPtr & data ) {
   if ( !data->kyIpAclArg() ) return;
   vexcsd()->kyAclDb()->createAcl( data->kyIpAclArg()->release() );
   data->kyIpAclArgDel();
}

void AclHelper::destroyAclFromDb( const DataPtr & data ) {
   vexcsd()->kyAclDb()->destroyAcl( data->hwAclId() );
   data->kyIpAclArgDel();
}

void AclHelper::batchCommitAcls() {
   for ( const auto & [ key, data ] : vexAclDataIterator() ) {
      if ( data->state() != programming() ) continue;
      createAclInDb( data );
      commonHelper()->freeCounterIds( data, false );
      data->stateIs( programmed() );
   }
   for ( const auto & [ key, module ] : kyAclIterator() ) {
      if ( !module->applying() ) continue;
      // Without its list the command stays owed.
      const auto & data = vexAclData( AclTypeAndName( key.aclType(), module->aclName() ) );
      if ( !data ) continue;
      module->applyAcl( data );
      module->applyingIs( false );
   }
   for ( const auto & key : vexAclDataKeys() ) {
      const auto data = vexAclData( key );
      if ( data->state() != removing() ) continue;
      destroyAclFromDb( data );
      data->stateIs( removed() );
      vexcsd()->kyAclDb()->freeAclIdEnq( data->hwAclId() );
      commonHelper()->freeCounterIds( data, true );
      vexAclDataDel( key );
   }
}

bool AclHelper::aclCountersAllocated( const AclDataPtr & aclData ) {
   const auto data = dataOf( aclData );
   if ( !data ) GANT_TRACE( 3, "AclHelper::aclCountersAllocated ", aclData->key(), " VexAclData does not exist" );
   return data && data->counterIds() != 0;
}

// A count that went back starts anew from what it is.
U64 AclHelper::aclRuleCountersSinceLastPoll( const AclDataPtr & aclData, U32, const UniqueId & uniqueId ) {
   const auto data = dataOf( aclData );
   if ( !data || data->state() != programmed() ) {
      GANT_TRACE( 3, "AclHelper::aclRuleCountersSinceLastPoll ", aclData->key(),
                  " poll counters of an ACL that is not programmed" );
      return 0;
   }
   const auto count = commonHelper()->getCounter( data, uniqueId );
   const auto lastCount = data->lastCount( uniqueId );
   if ( data->counterIdHas( uniqueId ) ) data->lastCountIs( uniqueId, count );
   return count > lastCount ? count - lastCount : 0;
}

} // namespace Vex
