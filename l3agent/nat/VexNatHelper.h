// The helper of address translation. This data plane has no module that translates: the operations on translations
// report success, leave a trace and do nothing, every counter reads 0, and the tables of translations stay empty. What
// is kept for real are the two slices of rules from hwInit to hwCleanup, the reference count of the address-only
// deny-all rule, and the rules of each next hop (VexNatSlices.cpp).
#pragma once

#include "HulNatHelper.h"
#include "VexCommonSmData.h"
#include "VexL3Export.h"
#include "VexNatResolver.h"
#include "VexNatSlices.h"

namespace Hul {
class AclSm;
}
namespace HulL3Intf {
class Table;
}

namespace VexL3Unicast {

// How many numbers a stack of free ones holds.
class FreeTunnelMetadata {
   GANT_VALUE( "VexL3Unicast::FreeTunnelMetadata", FreeTunnelMetadata, ( U64, members ) )
};
class FreeAclMetadata {
   GANT_VALUE( "VexL3Unicast::FreeAclMetadata", FreeAclMetadata, ( U64, members ) )
};

class NatHelper : public HulHelper::HulHelperNat {
 public:
   using Translations = Gant::HashMap< NatHwDataKey, Gant::Ptr< NatHwData > >;
   using Acls = Gant::OrderedMap< U16, U32 >;
   using Rules = Gant::OrderedMap< U16, bool >;
   using VlanRules = Gant::HashMap< U16, U32 >;
   using NextHopRules = Gant::HashMap< U32, Gant::Ptr< AclRuleColl > >;

   explicit NatHelper( const Gant::Ptr< Hul::AclSm > & aclSm );
   ~NatHelper() override;
   const char * fwkType() const override { return "VexL3Unicast::NatHelper"; }

   GANT_CONST( Gant::Ptr< Hul::AclSm >, aclSm )
   // Set by the agent right after construction.
   GANT_ATTR( Gant::Ptr< HulL3Intf::Table >, hulL3IntfTable )
   GANT_ATTR( Gant::Ptr< Vex::VexCommonSmData >, vexcsd )
   GANT_ATTR( U32, groupId, 0 )
   GANT_ATTR( Gant::Ptr< Ip::Nat::IntfStatus >, intfStatus )
   GANT_INSTANTIATING( Translations, natHwSourceTranslationData )
   GANT_INSTANTIATING( Translations, natHwDestinationTranslationData )
   GANT_INSTANTIATING( Translations, tmpSrcTranslationData )
   GANT_INSTANTIATING( Translations, tmpDstTranslationData )
   GANT_INSTANTIATING( Translations, tmpTwiceNatFwdTranslationData )
   GANT_INSTANTIATING( Translations, tmpTwiceNatRevrseTranslationData )
   GANT_INSTANTIATING( Translations, twiceNatFwdTranslationData )
   GANT_INSTANTIATING( Translations, twiceNatRevrseTranslationData )
   GANT_INSTANTIATING( Translations, dynSrcTranslationData )
   GANT_INSTANTIATING( Translations, dynDstTranslationData )
   GANT_ATTR( bool, loopbackInitialized, false )
   GANT_ATTR( bool, hwInitialized, false )
   GANT_ATTR( bool, aclNumInitialized, false )
   GANT_STACK( U16, freeTunnel )
   FreeTunnelMetadata freeTunnelMetadata() const { return FreeTunnelMetadata( freeTunnels() ); }
   GANT_STACK( U16, freeAcl )
   FreeAclMetadata freeAclMetadata() const { return FreeAclMetadata( freeAcls() ); }
   GANT_MAP( Acls, srcAcl )
   GANT_MAP( Acls, dstAcl )
   GANT_MAP( Rules, srcFreeAclRule )
   GANT_MAP( Rules, dstFreeAclRule )
   GANT_MAP( Rules, freeDynSrcAddrOnlyRule )
   GANT_MAP( Rules, freeDynDstAddrOnlyRule )
   GANT_MAP( Rules, addrOnlySrcRule )
   GANT_MAP( Rules, addrOnlyDstRule )
   GANT_MAP( VlanRules, vlanRule )
   GANT_ATTR( bool, counterHwStatus, false )
   GANT_ATTR( bool, disableCounterLog, false )
   GANT_MAP( NextHopRules, nextHopId2AclRule )
   GANT_OWNED( TrapSliceRules, trapSlice, TrapSlice, () )
   GANT_OWNED( AddrOnlyAclSliceRules, aoaSlice, AoaSlice, () )
   // Keeps the callback that is there, unless it is of another name, feature or helper.
   GANT_OWNED( NatNextHopCallback, natNextHopCallback, NatNextHopCallback,
               ( const Gant::Name & name, FeatureType fType, NatHelper * natHelper ) )
   GANT_ATTR( U32, duplicateRules, 0 )

   // Makes the slices, which must not be there, and the callback. A second call does nothing.
   void hwInit() override;
   // Ends the slices. The callback stays.
   void hwCleanup() override;

   bool addStaticSrcIpTranslation( const IpAndPort &, const IpAndPort &, const Filter &, U8, U16,
                                   const StaticKey & ) override;
   bool addStaticDstIpTranslation( const IpAndPort &, const IpAndPort &, const Filter &, U8, U16, const StaticKey &,
                                   NextHopInfo ) override;
   bool updateStaticDstIpTranslation( const IpAndPort &, const IpAndPort &, const Filter &, U8, U16, const StaticKey &,
                                      NextHopInfo ) override;
   bool deleteStaticSrcIpTranslation( U16, const StaticKey & ) override;
   bool deleteStaticDstIpTranslation( U16, const StaticKey & ) override;
   bool commitHwTranslations() override;
   bool addTrapAllRule( U32 vlanId, Gant::String aclName, U32 priority, NatTarget ) override;
   bool addTrapRule( U32 vlanId, Gant::String aclName, U32, U32, const Filter &, const Filter &, bool, bool, bool,
                     NatTarget ) override;
   bool delTrapRule( U32 vlanId, Gant::String aclName ) override;
   bool commitTrapRules() override;
   bool addDynamicSrcIpTranslation( const Kynet::ConnTuple &, const IpAndPort &, const IpAndPort &, const IpAndPort &,
                                    U16 ) override;
   bool addDynamicDstIpTranslation( const Kynet::ConnTuple &, const IpAndPort &, const IpAndPort &, const IpAndPort &,
                                    NextHopInfo, U16 ) override;
   bool updateDynamicDstIpTranslation( const Kynet::ConnTuple &, const IpAndPort &, const IpAndPort &,
                                       const IpAndPort &, NextHopInfo, U16 ) override;
   bool deleteDynamicSrcIpTranslation( const Kynet::ConnTuple &, const IpAndPort &, const IpAndPort &,
                                       const IpAndPort &, U16 ) override;
   bool deleteDynamicDstIpTranslation( const Kynet::ConnTuple &, const IpAndPort &, const IpAndPort &,
                                       const IpAndPort &, U16 ) override;
   U64 getStaticSrcCountersSinceLastPoll( StaticConnection ) override;
   U64 getStaticDstCountersSinceLastPoll( StaticConnection ) override;
   U64 getDynamicSrcCountersSinceLastPoll( U16, const Kynet::ConnTuple & ) override;
   U64 getDynamicDstCountersSinceLastPoll( U16, const Kynet::ConnTuple & ) override;
   U64 getTwiceNatSrcCountersSinceLastPoll( TwiceConnection ) override;
   U64 getTwiceNatDstCountersSinceLastPoll( TwiceConnection ) override;
   bool addTwiceNatTranslation( const IpAndPort &, const IpAndPort &, const IpAndPort &, const IpAndPort &, U8, U16,
                                NextHopInfo, bool, U8 ) override;
   bool updateTwiceNatTranslation( const IpAndPort &, const IpAndPort &, const IpAndPort &, const IpAndPort &, U8, U16,
                                   NextHopInfo, bool, U8 ) override;
   bool delTwiceNatTranslation( const IpAndPort &, const IpAndPort &, const IpAndPort &, const IpAndPort &, U16,
                                bool ) override;
   void handleVerifyInit() override;
   void verifyStaticNat( const StaticKey &, NatTarget, const IpAndPort &, const IpAndPort &, const Filter &, U8, U16,
                         bool ) override;
   void verifyDynamicNat( Gant::Ptr< const Ip::Nat::Status >, Gant::Ptr< Ip::Nat::HwStatus > ) override;
   void verifyTwiceNat( const IpAndPort &, const IpAndPort &, const IpAndPort &, const IpAndPort &, U8, U16, bool,
                        bool ) override;
   void updateCounterStatus( bool ) override;
   bool addServiceTrapRule( U32, Gant::String, U32, const Filter &, U16, const Filter &, U16, bool, bool,
                            NatTarget ) override;
   bool addAddrOnlyAclRule( U32, Gant::String, U32, const Filter &, const Filter &, bool, NatTarget ) override;
   // Takes the list out of the address-only slice, with one reference to the deny-all rule. One that is not there is no
   // error.
   bool delAddrOnlyAclSliceRule( U32 vlanId, Gant::String aclName ) override;
   // REQUIRES: a (VLAN, list) that is there has this priority.
   bool addAddrOnlyDenyAllAcl( U32 vlanId, Gant::String aclName, U32 priority, NatTarget ) override;
   bool doMaybeDelAddrOnlyDenyAllAcl() override;
   bool commitAddrOnlyAclSliceRules() override;

   void addNextHopId2AclRule( U32 nextHopId, U16 rule );
   bool coalesceRules( bool, bool );
   U32 getAclRuleCnt( U32 );
   bool reprogramConnCounter( const Gant::Ptr< NatHwData > &, const Gant::Ptr< NatAclData > &, bool );

 private:
   void disableEgressVlanFilter( U32 ) {}
   void initAclsAndLoopback();
   void delAclRules( TrapAclData & trapAcl );
};

Gant::Ptr< NatHelper > NatHelperIs( const Gant::Ptr< Hul::AclSm > & aclSm );

} // namespace VexL3Unicast
