// Security access lists: what the layer's calls mean for the data plane. A list is one rule table, however many
// interfaces it is applied to, and each interface and direction has a small module that points at the table by id.
#pragma once

#include "HulAclHelper.h"
#include "VexAclCommon.h"

namespace Vex {

class AclTypeAndName {
   GANT_VALUE( "Vex::AclTypeAndName", AclTypeAndName, ( Acl::AclType, aclType ), ( Gant::String, aclName ) )
};

class AclTypeIntfAndDirection {
   GANT_VALUE( "Vex::AclTypeIntfAndDirection", AclTypeIntfAndDirection, ( Acl::AclType, aclType ),
               ( Kynet::IntfId, intfId ), ( Acl::AclDirection, direction ) )
};

// States:
//   preparing    its rules are being made
//   prepared     all rules are made, the last one too
//   programming  committed: the next batch sends it
//   programmed   in the data plane
//   removing     nobody uses it: the next batch takes it away
//   removed      gone
//
//   (none)                           precreateAcl of a list that is applied      preparing
//   programmed, removing             precreateAcl, another version               preparing
//   prepared, programmed, removing   precreateAcl, the same version              programmed
//   preparing                        createFinalAclRule                          prepared
//   prepared                         commitAcl                                   programming
//   programming                      batchCommitAcls                             programmed
//   programmed                       destroyAcl of the last key                  removing
//   removing                         batchCommitAcls                             removed
GANT_ENUM( VexAclDataState, U8, ( preparing, 0 ), ( prepared, 1 ), ( programming, 2 ), ( programmed, 3 ),
           ( removing, 4 ), ( removed, 5 ) )

// A list in the data plane. It may serve several of the layer's keys.
class VexAclData : public VexAclCommonData {
 public:
   using AclKeys = Gant::OrderedSet< Hul::AclKey >;
   explicit VexAclData( AclTypeAndName key ) : aclTypeAndName_( std::move( key ) ) {}
   const char * fwkType() const override { return "Vex::VexAclData"; }

   GANT_CONST( AclTypeAndName, aclTypeAndName )
   GANT_SET( AclKeys, programmedAclKey )
   GANT_ATTR( Acl::UniqueId, version ) // the one that was committed last
   GANT_ATTR( U16, hwAclId )
   GANT_ATTR( VexAclDataState, state )
   GANT_ATTR( KyIpAclMessagePtr, kyIpAclArg ) // null while none is under construction
};

// The list of one interface and direction. Gate 0 is the trap's, gate 1 leads on.
class KyAcl : public Module {
 public:
   KyAcl( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
          Gant::Ptr< ModuleConfigStatusPair > pair, AclTypeIntfAndDirection key );
   const char * fwkType() const override { return "Vex::KyAcl"; }

   GANT_CONST( AclTypeIntfAndDirection, aclTypeIntfAndDirection )
   GANT_ATTR( Gant::String, aclName ) // of the list that it shall point at
   GANT_ATTR( bool, applying, false ) // the command that points it there is owed

   // Nothing for no data.
   void applyAcl( const Gant::Ptr< VexAclData > & data );
};

class AclHelper;

// Brings the modules of an interface that comes to their places in its chains.
//
//   watches   VexCommonSmData::l3Intf
class L3IntfSm : public Gant::StateMachine {
 public:
   // `aclHelper` owns this object.
   L3IntfSm( Gant::Ptr< VexCommonSmData > vexcsd, AclHelper * aclHelper );
   ~L3IntfSm() override;
   const char * fwkType() const override { return "Vex::L3IntfSm"; }
   GANT_CONST( Gant::Ptr< VexCommonSmData >, vexcsd )
   GANT_CONST( AclHelper *, aclHelper )
   void handleL3Intf( Kynet::IntfId intfId );

 private:
   struct GantVexcsd;
   std::unique_ptr< GantVexcsd > reactor_;
};

// Calls that come in another state than the table of VexAclDataState allows end the process; rules that come while
// their list is not `preparing` are skipped.
class AclHelper : public HulHelper::AclHelper {
 public:
   using VexAclDatas = Gant::OrderedMap< AclTypeAndName, Gant::Ptr< VexAclData > >;
   using KyAcls = Gant::OrderedMap< AclTypeIntfAndDirection, Gant::Ptr< KyAcl > >;
   using DataPtr = Gant::Ptr< VexAclData >;

   AclHelper( Gant::Ptr< VexCommonSmData > vexcsd, Gant::Ptr< Acl::Config > mainConfig,
              Gant::Ptr< Acl::StatusDp > status, Gant::Ptr< const VexModules::MirelCounterDbStatus > counterMirel );
   ~AclHelper() override;
   const char * fwkType() const override { return "Vex::AclHelper"; }
   static VexAclDataState preparing() { return VexAclDataState::preparing(); }
   static VexAclDataState prepared() { return VexAclDataState::prepared(); }
   static VexAclDataState programming() { return VexAclDataState::programming(); }
   static VexAclDataState programmed() { return VexAclDataState::programmed(); }
   static VexAclDataState removing() { return VexAclDataState::removing(); }
   static VexAclDataState removed() { return VexAclDataState::removed(); }

   GANT_CONST( Gant::Ptr< VexCommonSmData >, vexcsd )
   GANT_CONST( Gant::Ptr< Acl::Config >, mainConfig )
   GANT_CONST( Gant::Ptr< Acl::StatusDp >, status )
   GANT_CONST( Gant::Ptr< const VexModules::MirelCounterDbStatus >, counterMirel )
   GANT_MAP( VexAclDatas, vexAclData )
   GANT_MAP( KyAcls, kyAcl )
   GANT_ATTR( Gant::Ptr< AclCommonHelper >, commonHelper )
   GANT_ATTR( Gant::Ptr< L3IntfSm >, l3IntfSm )

   void hwInit() override;
   bool intfSupportsAcl( Kynet::IntfId intfId ) override;
   Hul::AclCreateError precreateAcl( const AclDataPtr & aclData, const AclDataStatusPtr & aclDataStatus ) override;
   Hul::AclCreateError createIpAclSubrule( Acl::AclType type, const Acl::RuleConfig & ruleConfig,
                                           const UniqueId & uniqueId, const AclDataPtr & aclData, U32 ruleNum,
                                           U32 subruleNum, const Hul::SubruleMatch & match, U8, U8 ) override;
   Hul::AclCreateError createIpFragRule( const AclDataPtr & aclData, const Acl::IpRuleConfig & ipRuleConfig,
                                         const UniqueId & uniqueId, U32 ruleNum, U32 subruleNum ) override;
   Hul::AclCreateError createMacAclRule( const Acl::MacRuleConfig & macRuleConfig, const UniqueId & uniqueId,
                                         const AclDataPtr & aclData, U32 ruleNum ) override;
   Hul::AclCreateError createFinalAclRule( Acl::AclType type, const AclDataPtr & aclData, U32 ruleNum ) override;
   void destroyAcl( const AclDataPtr & aclData ) override;
   void removeAcl( const AclDataPtr & aclData ) override;
   void prepareToCommit() override;
   void blockIntf( Kynet::IntfId intfId, bool block, U32 vlanId ) override;
   void updateAclPorts( const AclDataPtr & aclData, bool add ) override;
   void cleanupAcl( const AclDataPtr & aclData ) override;
   void commitAcl( const AclDataPtr & aclData ) override;
   // First every table, then the modules that are to point at them, then what goes: no module ever points at nothing.
   void batchCommitAcls() override;
   bool addIntfToAcl( Kynet::IntfId intfId, const AclDataPtr & aclData,
                      const AclDataStatusPtr & aclDataStatus ) override;
   bool removeIntfFromAcl( Kynet::IntfId intfId, const AclDataPtr & aclData, bool appliedToAnother ) override;
   void deleteAcl( U16 hwAclId ) override;
   bool ipSubruleExists( const AclDataPtr & aclData, const UniqueId & uniqueId, U32 ruleNum, U32 subruleNum ) override;
   bool aclCountersAllocated( const AclDataPtr & aclData ) override;
   U64 aclRuleCountersSinceLastPoll( const AclDataPtr & aclData, U32 ruleNum, const UniqueId & uniqueId ) override;

   VexAclRuleAction getRuleAction( const Acl::RuleConfig & ruleConfig ) const;
   // Sends the table under construction, if there is one.
   void createAclInDb( const DataPtr & data );
   void destroyAclFromDb( const DataPtr & data );
   // Puts the module in its place in the chain of its direction.
   static void connect( L3Intf & l3Intf, const Gant::Ptr< KyAcl > & module );

 private:
   DataPtr dataOf( const AclDataPtr & aclData ) const;
   Gant::Ptr< KyAcl > newKyAcl( const AclTypeIntfAndDirection & key );
};

} // namespace Vex
