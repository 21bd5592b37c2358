#include "VexNatHelper.h"

#include "GantAssert.h"
#include "VexNatTrace.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexNatHelper" );

NatHelper::NatHelper( const Gant::Ptr< Hul::AclSm > & aclSm ) : HulHelperNat( "VexNatHelper" ), aclSm_( aclSm ) {}

NatHelper::~NatHelper() = default;

Gant::Ptr< NatHelper > NatHelperIs( const Gant::Ptr< Hul::AclSm > & aclSm ) { return Gant::make< NatHelper >( aclSm ); }

Gant::Ptr< TrapSliceRules > NatHelper::newTrapSlice() { return Gant::make< TrapSliceRules >(); }

const Gant::Ptr< TrapSliceRules > & NatHelper::trapSliceIs() { return trapSlice_ = newTrapSlice(); }

void NatHelper::trapSliceDel() { trapSlice_ = nullptr; }

Gant::Ptr< AddrOnlyAclSliceRules > NatHelper::newAoaSlice() { return Gant::make< AddrOnlyAclSliceRules >(); }

const Gant::Ptr< AddrOnlyAclSliceRules > & NatHelper::aoaSliceIs() { return aoaSlice_ = newAoaSlice(); }

void NatHelper::aoaSliceDel() { aoaSlice_ = nullptr; }

Gant::Ptr< NatNextHopCallback > NatHelper::newNatNextHopCallback( const Gant::Name & name, FeatureType fType,
                                                                  NatHelper * natHelper ) {
   return Gant::make< NatNextHopCallback >( name, fType, natHelper );
}

const Gant::Ptr< NatNextHopCallback > & NatHelper::natNextHopCallbackIs( const Gant::Name & name, FeatureType fType,
                                                                         NatHelper * natHelper ) {
   const auto & present = natNextHopCallback_;
   const bool same =
        present && present->name() == name && present->fType() == fType && present->natHelper() == natHelper;
   if ( !same ) natNextHopCallback_ = newNatNextHopCallback( name, fType, natHelper );
   return natNextHopCallback_;
}

void NatHelper::natNextHopCallbackDel() { natNextHopCallback_ = nullptr; }

void NatHelper::hwInit() {
   GANT_TRACE( 1, "NatHelper::hwInit" );
   if ( hwInitialized() ) return;
   for ( U32 vlan = 1; vlan <= 4095; ++vlan ) disableEgressVlanFilter( vlan );
   GANT_ASSERT( trapSlice() == 0 );
   trapSliceIs();
   GANT_ASSERT( aoaSlice() == 0 );
   aoaSliceIs();
   initAclsAndLoopback();
   natNextHopCallbackIs( name(), FeatureType::RoutingNatFeature(), this );
   hwInitializedIs( true );
}

void NatHelper::initAclsAndLoopback() {
   GANT_TRACE( 1, "NatHelper::initAclsAndLoopback" );
   loopbackInitializedIs( true );
}

void NatHelper::hwCleanup() {
   GANT_TRACE( 1, "NatHelper::hwCleanup" );
   trapSliceDel();
   aoaSliceDel();
   loopbackInitializedIs( false );
   hwInitializedIs( false );
}

bool NatHelper::addStaticSrcIpTranslation( const IpAndPort &, const IpAndPort &, const Filter &, U8, U16,
                                           const StaticKey & ) {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::addStaticDstIpTranslation( const IpAndPort &, const IpAndPort &, const Filter &, U8, U16,
                                           const StaticKey &, NextHopInfo ) {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::updateStaticDstIpTranslation( const IpAndPort &, const IpAndPort &, const Filter &, U8, U16,
                                              const StaticKey &, NextHopInfo ) {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::deleteStaticSrcIpTranslation( U16, const StaticKey & ) {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::deleteStaticDstIpTranslation( U16, const StaticKey & ) {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::commitHwTranslations() {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::addTrapAllRule( U32, Gant::String, U32, NatTarget ) {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::addTrapRule( U32 vlanId, Gant::String aclName, U32, U32, const Filter &, const Filter &, bool, bool,
                             bool, NatTarget ) {
   GANT_TRACE( 3, "NatHelper::addTrapRule (", vlanId, ", ", aclName, ")" );
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::delTrapRule( U32, Gant::String ) {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::commitTrapRules() {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::addDynamicSrcIpTranslation( const Kynet::ConnTuple &, const IpAndPort &, const IpAndPort &,
                                            const IpAndPort &, U16 ) {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::addDynamicDstIpTranslation( const Kynet::ConnTuple &, const IpAndPort &, const IpAndPort &,
                                            const IpAndPort &, NextHopInfo, U16 ) {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::updateDynamicDstIpTranslation( const Kynet::ConnTuple &, const IpAndPort &, const IpAndPort &,
                                               const IpAndPort &, NextHopInfo, U16 ) {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::deleteDynamicSrcIpTranslation( const Kynet::ConnTuple &, const IpAndPort &, const IpAndPort &,
                                               const IpAndPort &, U16 ) {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::deleteDynamicDstIpTranslation( const Kynet::ConnTuple &, const IpAndPort &, const IpAndPort &,
                                               const IpAndPort &, U16 ) {
   NAT_PLACEHOLDER();
   return true;
}

U64 NatHelper::getStaticSrcCountersSinceLastPoll( StaticConnection ) {
   NAT_PLACEHOLDER();
   return 0;
}

U64 NatHelper::getStaticDstCountersSinceLastPoll( StaticConnection ) {
   NAT_PLACEHOLDER();
   return 0;
}

U64 NatHelper::getDynamicSrcCountersSinceLastPoll( U16, const Kynet::ConnTuple & ) {
   NAT_PLACEHOLDER();
   return 0;
}

U64 NatHelper::getDynamicDstCountersSinceLastPoll( U16, const Kynet::ConnTuple & ) {
   NAT_PLACEHOLDER();
   return 0;
}

U64 NatHelper::getTwiceNatSrcCountersSinceLastPoll( TwiceConnection ) {
   NAT_PLACEHOLDER();
   return 0;
}

U64 NatHelper::getTwiceNatDstCountersSinceLastPoll( TwiceConnection ) {
   NAT_PLACEHOLDER();
   return 0;
}

bool NatHelper::addTwiceNatTranslation( const IpAndPort &, const IpAndPort &, const IpAndPort &, const IpAndPort &, U8,
                                        U16, NextHopInfo, bool, U8 ) {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::updateTwiceNatTranslation( const IpAndPort &, const IpAndPort &, const IpAndPort &, const IpAndPort &,
                                           U8, U16, NextHopInfo, bool, U8 ) {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::delTwiceNatTranslation( const IpAndPort &, const IpAndPort &, const IpAndPort &, const IpAndPort &, U16,
                                        bool ) {
   NAT_PLACEHOLDER();
   return true;
}

void NatHelper::handleVerifyInit() { NAT_PLACEHOLDER(); }

void NatHelper::verifyStaticNat( const StaticKey &, NatTarget, const IpAndPort &, const IpAndPort &, const Filter &, U8,
                                 U16, bool ) {
   NAT_PLACEHOLDER();
}

void NatHelper::verifyDynamicNat( Gant::Ptr< const Ip::Nat::Status >, Gant::Ptr< Ip::Nat::HwStatus > ) {
   NAT_PLACEHOLDER();
}

void NatHelper::verifyTwiceNat( const IpAndPort &, const IpAndPort &, const IpAndPort &, const IpAndPort &, U8, U16,
                                bool, bool ) {
   NAT_PLACEHOLDER();
}

void NatHelper::updateCounterStatus( bool ) { NAT_PLACEHOLDER(); }

bool NatHelper::addServiceTrapRule( U32, Gant::String, U32, const Filter &, U16, const Filter &, U16, bool, bool,
                                    NatTarget ) {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::addAddrOnlyAclRule( U32, Gant::String, U32, const Filter &, const Filter &, bool, NatTarget ) {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::doMaybeDelAddrOnlyDenyAllAcl() {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::commitAddrOnlyAclSliceRules() {
   NAT_PLACEHOLDER();
   return true;
}

bool NatHelper::coalesceRules( bool, bool ) {
   NAT_PLACEHOLDER();
   return true;
}

U32 NatHelper::getAclRuleCnt( U32 ) {
   NAT_PLACEHOLDER();
   return 0;
}

bool NatHelper::reprogramConnCounter( const Gant::Ptr< NatHwData > &, const Gant::Ptr< NatAclData > &, bool ) {
   NAT_PLACEHOLDER();
   return true;
}

} // namespace VexL3Unicast
