#include "VexIpsecHelper.h"

#include "vex/ipsec.pb.h"

namespace VexL3Unicast {

IpsecOutTunnelModule::IpsecOutTunnelModule( const Gant::String & name, U32 maxInGate, U32 maxOutGate,
                                            Message * initArgs, Gant::Ptr< Vex::ModuleConfigStatusPair > pair ) :
     Module( name, Vex::VexModule::IpsecTunnelEgress, maxInGate, maxOutGate, 0, 0, initArgs, std::move( pair ) ) {}

IpsecHelper::IpsecHelper( Gant::Ptr< Vex::VexCommonSmData > vexcsd ) :
     vexcsd_( std::move( vexcsd ) ),
     ipsecModuleConfigStatusPair_( vexcsd_->moduleGlobalCmdConfig()->moduleConfigStatusPairIs( "ipsec" ) ) {
   ipsecModuleConfigStatusPair()->moduleConfig()->errorHandlingEnabledIs( true );
}

IpsecHelper::~IpsecHelper() = default;

Gant::Ptr< IpsecOutTunnelModule > IpsecHelper::newOutTunnelModule( const char * prefix,
                                                                   const IpsecOutTunnelModuleKey & key,
                                                                   bool localOut ) {
   constexpr U32 gatesMax = 8192;
   auto * const arg = new vex::pb::IpsecTunnelEgressArg;
   // Always the default VRF: the VRF's name serves only for the key.
   arg->set_vrf( Hul::VrfId::defaultVrfId() );
   arg->set_encap_id( key.ipsecEncapId().reqid() );
   arg->set_local_out( localOut );
   const auto name = Gant::textsOf( prefix, key.vrfName(), "_", key.ipsecEncapId().reqid(), "_",
                                    key.ipsecEncapId().type(), "_", key.intfId() );
   return Gant::make< IpsecOutTunnelModule >( name, gatesMax, gatesMax, arg, ipsecModuleConfigStatusPair() );
}

Gant::Ptr< IpsecOutTunnelModulePair > IpsecHelper::getOrCreateOutTunnelIpsecModulePair(
     const Kynet::NamespaceName & vrfName, const Ipsec::Ike::EncapId & encapId, Kynet::IntfId intfId ) {
   const IpsecOutTunnelModuleKey key( vrfName, encapId, intfId );
   if ( const auto & present = outTunnelIpsecModulePair( key ) ) return present;
   const auto pair = Gant::make< IpsecOutTunnelModulePair >( key );
   pair->forwardOutTunnelModuleIs( newOutTunnelModule( "ipsecFwd_", key, false ) );
   pair->localOutTunnelModuleIs( newOutTunnelModule( "ipsecLocal_", key, true ) );
   return outTunnelIpsecModulePairIs( key, pair );
}

void IpsecHelper::deleteOutTunnelIpsecModulePair( const Kynet::NamespaceName & vrfName,
                                                  const Ipsec::Ike::EncapId & encapId, Kynet::IntfId intfId ) {
   cleanupOutTunnelIpsecModulePair( vrfName, encapId, intfId );
   outTunnelIpsecModulePairDel( IpsecOutTunnelModuleKey( vrfName, encapId, intfId ) );
}

void IpsecHelper::cleanupOutTunnelIpsecModulePair( const Kynet::NamespaceName & vrfName,
                                                   const Ipsec::Ike::EncapId & encapId, Kynet::IntfId intfId ) {
   if ( const auto & pair = outTunnelIpsecModulePair( IpsecOutTunnelModuleKey( vrfName, encapId, intfId ) ) )
      programActiveOutTunnelIpsecModulePair( pair, false );
}

void IpsecHelper::programActiveOutTunnelIpsecModulePair( const Gant::Ptr< IpsecOutTunnelModulePair > & pair,
                                                         bool active ) {
   pair->activeIs( active );
}

} // namespace VexL3Unicast
