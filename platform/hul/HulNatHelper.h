// The helper of address translation: what a data plane supplies, and NatSm calls. The virtual operations stand in slot
// order. Additions, updates and deletions count from the next commit of their kind on. False: it could not be done.
#pragma once

#include "HulHelper.h"
#include "StateIpNat.h"

namespace Hul {

// Where packets to a translated destination go. `intfId` empty: not resolved.
class NatNextHopInfo : public Gant::PtrInterface {
 public:
   NatNextHopInfo( Kynet::IpAddr addr, Kynet::IntfId intfId, const Kynet::EthAddr & mac ) :
        addr_( addr ), intfId_( intfId ), mac_( mac ) {}
   GANT_CONST( Kynet::IpAddr, addr )
   GANT_CONST( Kynet::IntfId, intfId )
   GANT_CONST( Kynet::EthAddr, mac )
};

class NatHwKey {
   GANT_VALUE( "Hul::NatHwKey", NatHwKey, ( U16, vlan ), ( Kynet::ConnTuple, conn ) )
};

} // namespace Hul

namespace HulHelper {

class HulHelperNat : public Hul::HulBaseHelper {
 public:
   using IpAndPort = Kynet::IpAndPort;
   using Filter = Kynet::IpAddrWithFullMask;
   using StaticKey = Ip::Nat::StaticKey;
   using NatTarget = Ip::Nat::NatTarget;
   using NextHopInfo = Gant::Ptr< const Hul::NatNextHopInfo >;
   using StaticConnection = Gant::Ptr< const Ip::Nat::HwNatStaticConnection >;
   using TwiceConnection = Gant::Ptr< const Ip::Nat::HwNatTwiceConnection >;
   using HulBaseHelper::HulBaseHelper;

   // Before and after everything else.
   virtual void hwInit() = 0;
   virtual void hwCleanup() = 0;
   // NAT profiles of VLANs.
   virtual void setNatProfile( U16, U16 ) {}
   virtual void clearNatProfile( U16 ) {}
   virtual void setNatProfileFullConeMode( U16, bool ) {}
   virtual void clearNatProfileFullConeMode( U16 ) {}
   virtual void doHandleAsyncHwStatus( const Hul::NatHwKey & ) {}
   // Static translations: original, translated, filter, protocol, VLAN.
   virtual bool addStaticSrcIpTranslation( const IpAndPort &, const IpAndPort &, const Filter &, U8, U16,
                                           const StaticKey & ) = 0;
   virtual bool addStaticDstIpTranslation( const IpAndPort &, const IpAndPort &, const Filter &, U8, U16,
                                           const StaticKey &, NextHopInfo ) = 0;
   virtual bool addStaticIpTranslations( const IpAndPort & original, const IpAndPort & translated,
                                         const Filter & filter, U8 protocol, U16 vlan, const StaticKey & key,
                                         NextHopInfo nextHop );
   virtual bool updateStaticDstIpTranslation( const IpAndPort &, const IpAndPort &, const Filter &, U8, U16,
                                              const StaticKey &, NextHopInfo ) = 0;
   virtual bool updateStaticDstIpTranslations( const IpAndPort & original, const IpAndPort & translated,
                                               const Filter & filter, U8 protocol, U16 vlan, const StaticKey & key,
                                               NextHopInfo nextHop );
   virtual bool deleteStaticIpTranslations( U16 vlan, const StaticKey & key );
   virtual bool deleteStaticSrcIpTranslation( U16, const StaticKey & ) = 0;
   virtual bool deleteStaticDstIpTranslation( U16, const StaticKey & ) = 0;
   virtual bool commitHwTranslations() = 0;
   // Packets that make a dynamic translation go to the CPU.
   virtual bool addTrapAllRule( U32, Gant::String, U32, NatTarget ) = 0;
   virtual bool addTrapRule( U32, Gant::String, U32, U32, const Filter &, const Filter &, bool, bool, bool,
                             NatTarget ) = 0;
   virtual bool delTrapRule( U32, Gant::String ) = 0;
   virtual bool commitTrapRules() = 0;
   virtual bool addDynamicSrcIpTranslation( const Kynet::ConnTuple &, const IpAndPort &, const IpAndPort &,
                                            const IpAndPort &, U16 ) = 0;
   virtual bool addDynamicDstIpTranslation( const Kynet::ConnTuple &, const IpAndPort &, const IpAndPort &,
                                            const IpAndPort &, NextHopInfo, U16 ) = 0;
   virtual bool updateDynamicDstIpTranslation( const Kynet::ConnTuple &, const IpAndPort &, const IpAndPort &,
                                               const IpAndPort &, NextHopInfo, U16 ) = 0;
   virtual bool deleteDynamicSrcIpTranslation( const Kynet::ConnTuple &, const IpAndPort &, const IpAndPort &,
                                               const IpAndPort &, U16 ) = 0;
   virtual bool deleteDynamicDstIpTranslation( const Kynet::ConnTuple &, const IpAndPort &, const IpAndPort &,
                                               const IpAndPort &, U16 ) = 0;
   // Packets since the last call.
   virtual U64 getStaticSrcCountersSinceLastPoll( StaticConnection ) = 0;
   virtual U64 getStaticDstCountersSinceLastPoll( StaticConnection ) = 0;
   virtual U64 getDynamicSrcCountersSinceLastPoll( U16, const Kynet::ConnTuple & ) = 0;
   virtual U64 getDynamicDstCountersSinceLastPoll( U16, const Kynet::ConnTuple & ) = 0;
   virtual U64 getTwiceNatSrcCountersSinceLastPoll( TwiceConnection ) = 0;
   virtual U64 getTwiceNatDstCountersSinceLastPoll( TwiceConnection ) = 0;
   virtual bool addTwiceNatTranslation( const IpAndPort &, const IpAndPort &, const IpAndPort &, const IpAndPort &, U8,
                                        U16, NextHopInfo, bool, U8 ) = 0;
   virtual bool updateTwiceNatTranslation( const IpAndPort &, const IpAndPort &, const IpAndPort &, const IpAndPort &,
                                           U8, U16, NextHopInfo, bool, U8 ) = 0;
   virtual bool delTwiceNatTranslation( const IpAndPort &, const IpAndPort &, const IpAndPort &, const IpAndPort &, U16,
                                        bool ) = 0;
   // Static translations within a VRF, for data planes that have them.
   virtual bool addStaticVrfSrcIpTranslation( const IpAndPort &, const IpAndPort &, U8, Hul::VrfId,
                                              const StaticKey & ) {
      return false;
   }
   virtual bool addStaticVrfDstIpTranslation( const IpAndPort &, const IpAndPort &, U8, Hul::VrfId, const StaticKey &,
                                              NextHopInfo ) { // NOLINT(performance-unnecessary-value-param)
      return false;
   }
   virtual bool deleteStaticVrfSrcIpTranslation( Hul::VrfId, const StaticKey & ) { return false; }
   virtual bool deleteStaticVrfDstIpTranslation( Hul::VrfId, const StaticKey & ) { return false; }
   virtual void updateVrfSourcePolicer( Hul::VrfId, U64 ) {}
   virtual void handleVerifyInit() = 0;
   virtual void verifyStaticNat( const StaticKey &, NatTarget, const IpAndPort &, const IpAndPort &, const Filter &, U8,
                                 U16, bool ) = 0;
   virtual void verifyDynamicNat( Gant::Ptr< const Ip::Nat::Status >, Gant::Ptr< Ip::Nat::HwStatus > ) = 0;
   virtual void verifyTwiceNat( const IpAndPort &, const IpAndPort &, const IpAndPort &, const IpAndPort &, U8, U16,
                                bool, bool ) = 0;
   virtual void updateCounterStatus( bool ) = 0;
   // Rules of translations that match no port: VLAN, list, priority. A deny-all rule stands behind them.
   virtual bool addServiceTrapRule( U32, Gant::String, U32, const Filter &, U16, const Filter &, U16, bool, bool,
                                    NatTarget ) = 0;
   virtual bool addAddrOnlyAclRule( U32, Gant::String, U32, const Filter &, const Filter &, bool, NatTarget ) = 0;
   virtual bool delAddrOnlyAclSliceRule( U32, Gant::String ) = 0;
   // REQUIRES: a (VLAN, list) that has the rule has it with this priority.
   virtual bool addAddrOnlyDenyAllAcl( U32, Gant::String, U32, NatTarget ) = 0;
   virtual bool doMaybeDelAddrOnlyDenyAllAcl() = 0;
   virtual bool commitAddrOnlyAclSliceRules() = 0;
   virtual void clearStaleHwEntries() {}
   virtual void immediateCommit() {}
};

} // namespace HulHelper
