#include "VexIpsecHelper.h"

#include "bess/control.pb.h"
#include "GantTrace.h"
#include "vex/ipsec.pb.h"
#include "VexCleanse.h"
#include "VexMessage.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexIpsecHelper" );

namespace {

constexpr U32 gatesMax = 8192;

} // namespace

IpsecHelper::IpsecHelper( Gant::Ptr< Vex::VexCommonSmData > vexcsd, Gant::Ptr< Vex::ManagementSm > managementSm ) :
     vexcsd_( std::move( vexcsd ) ), managementSm_( std::move( managementSm ) ) {
   handleInitialized();
}

IpsecHelper::~IpsecHelper() = default;

void IpsecHelper::handleInitialized() {
   GANT_TRACE( 1, "IpsecHelper::handleInitialized" );
   ipsecModuleConfigStatusPairIs( vexcsd()->moduleGlobalCmdConfig()->moduleConfigStatusPairIs( "ipsec" ) );
   ipsecModuleConfigStatusPair()->moduleConfig()->errorHandlingEnabledIs( true );
   auto * const arg = new vex::pb::IpsecManagementArg;
   arg->set_max_ipsec_sas( maxIpsecSasDefault() );
   arg->set_max_ipsec_policies( maxIpsecPoliciesDefault() );
   managementIpsecModuleIs(
        Gant::make< IpsecManagementModule >( gatesMax, gatesMax, arg, ipsecModuleConfigStatusPair() ) );
   sendInitVirtCryptoCmd( cryptoDevNameOpenSsl() );
   sendInitVirtCryptoCmd( cryptoDevNameNull() );
   inTunnelIpsecModuleIs( Gant::make< IpsecInTunnelModule >( gatesMax, gatesMax, new bess::pb::EmptyArg,
                                                             ipsecModuleConfigStatusPair() ) );
}

void IpsecHelper::newConnection( const Vrf & vrfName, const EncapId & encapId, const HulIpsec::IntfList * intfList,
                                 const SecurityAssociation * outSa, const HulIpsec::SecurityAssociationQueue & inSaq ) {
   GANT_TRACE( 2, "IpsecHelper::newConnection ", vrfName, " ", encapId.reqid(), " ", encapId.type() );
   const IpsecConnectionKey key( vrfName, encapId );
   ipsecConnectionInfoIs( key, IpsecConnectionInfo( key, 0, outSa != nullptr, Vex::FlowKey() ) );
   if ( outSa != nullptr ) programOutSa( vrfName, encapId, *outSa );
   if ( inSaq.saqs() != 0 ) programInSas( vrfName, encapId, inSaq );
   if ( intfList != nullptr ) createPairs( vrfName, encapId, *intfList, outSa != nullptr );
}

void IpsecHelper::deleteConnection( const Vrf & vrfName, const EncapId & encapId ) {
   GANT_TRACE( 2, "IpsecHelper::deleteConnection ", vrfName, " ", encapId.reqid(), " ", encapId.type() );
   const auto info = ipsecConnectionInfoDel( IpsecConnectionKey( vrfName, encapId ) );
   if ( !!info.flowKey() ) managementSm()->deleteFlowEntry( info.flowKey() );
   cleanupInTunnelIpsecModule( vrfName, encapId );
   for ( const auto & pair : pairsOf( vrfName, encapId ) )
      cleanupOutTunnelIpsecModulePair( vrfName, encapId, pair->ipsecOutTunnelModuleKey().intfId() );
   deleteOutSa( vrfName, encapId );
   deleteInSas( vrfName, encapId );
}

void IpsecHelper::changeIntfList( const Vrf & vrfName, const EncapId & encapId, const HulIpsec::IntfList & newList ) {
   GANT_TRACE( 2, "IpsecHelper::changeIntfList ", vrfName, " ", encapId.reqid(), " ", encapId.type() );
   const auto & info = ipsecConnectionInfo( IpsecConnectionKey( vrfName, encapId ) );
   HulIpsec::IntfList added;
   for ( const auto intfId : newList )
      if ( !outTunnelIpsecModulePairHas( IpsecOutTunnelModuleKey( vrfName, encapId, intfId ) ) )
         added.intfIs( intfId, true );
   createPairs( vrfName, encapId, added, info.outSaPresent() );
   // The walk goes by id alone. What it finds of a connection with the same id in another VRF has no pair under this
   // VRF's name, unless both connections have the interface.
   HulIpsec::IntfList removed;
   for ( const auto & [ key, pair ] : outTunnelIpsecModulePairIterator() )
      if ( key.ipsecEncapId() == encapId && !newList.intf( key.intfId() ) ) removed.intfIs( key.intfId(), true );
   for ( const auto intfId : removed ) cleanupOutTunnelIpsecModulePair( vrfName, encapId, intfId );
}

void IpsecHelper::beginConnectionTableInit() { GANT_TRACE( 1, "IpsecHelper::beginConnectionTableInit" ); }

void IpsecHelper::completedConnectionTableInit() { GANT_TRACE( 1, "IpsecHelper::completedConnectionTableInit" ); }

void IpsecHelper::createPairs( const Vrf & vrfName, const EncapId & encapId, const HulIpsec::IntfList & intfList,
                               bool active ) {
   for ( const auto intfId : intfList )
      programActiveOutTunnelIpsecModulePair( getOrCreateOutTunnelIpsecModulePair( vrfName, encapId, intfId ), active );
}

std::vector< Gant::Ptr< IpsecOutTunnelModulePair > > IpsecHelper::pairsOf( const Vrf & vrfName,
                                                                           const EncapId & encapId ) const {
   std::vector< Gant::Ptr< IpsecOutTunnelModulePair > > pairs;
   for ( const auto & [ key, pair ] : outTunnelIpsecModulePairIterator() )
      if ( key.vrfName() == vrfName && key.ipsecEncapId() == encapId ) pairs.push_back( pair );
   return pairs;
}

Gant::Ptr< IpsecOutTunnelModule > IpsecHelper::newOutTunnelModule( const char * prefix,
                                                                   const IpsecOutTunnelModuleKey & key,
                                                                   bool localOut ) {
   auto * const arg = new vex::pb::IpsecTunnelEgressArg;
   arg->set_vrf( Hul::VrfId::defaultVrfId() );
   arg->set_encap_id( key.ipsecEncapId().reqid() );
   arg->set_local_out( localOut );
   const auto name = Gant::textsOf( prefix, key.vrfName(), "_", key.ipsecEncapId().reqid(), "_",
                                    key.ipsecEncapId().type(), "_", key.intfId() );
   return Gant::make< IpsecOutTunnelModule >( name, gatesMax, gatesMax, arg, ipsecModuleConfigStatusPair() );
}

Gant::Ptr< IpsecOutTunnelModulePair > IpsecHelper::getOrCreateOutTunnelIpsecModulePair( const Vrf & vrfName,
                                                                                        const EncapId & encapId,
                                                                                        Kynet::IntfId intfId ) {
   const IpsecOutTunnelModuleKey key( vrfName, encapId, intfId );
   if ( const auto & present = outTunnelIpsecModulePair( key ) ) return present;
   const auto pair = Gant::make< IpsecOutTunnelModulePair >( key );
   pair->forwardOutTunnelModuleIs( newOutTunnelModule( "ipsecFwd_", key, false ) );
   pair->localOutTunnelModuleIs( newOutTunnelModule( "ipsecLocal_", key, true ) );
   return outTunnelIpsecModulePairIs( key, pair );
}

void IpsecHelper::deleteOutTunnelIpsecModulePair( const Vrf & vrfName, const EncapId & encapId, Kynet::IntfId intfId ) {
   cleanupOutTunnelIpsecModulePair( vrfName, encapId, intfId );
   outTunnelIpsecModulePairDel( IpsecOutTunnelModuleKey( vrfName, encapId, intfId ) );
}

void IpsecHelper::cleanupOutTunnelIpsecModulePair( const Vrf & vrfName, const EncapId & encapId,
                                                   Kynet::IntfId intfId ) {
   if ( const auto & pair = outTunnelIpsecModulePair( IpsecOutTunnelModuleKey( vrfName, encapId, intfId ) ) )
      programActiveOutTunnelIpsecModulePair( pair, false );
}

void IpsecHelper::programActiveOutTunnelIpsecModulePair( const Gant::Ptr< IpsecOutTunnelModulePair > & pair,
                                                         bool active ) {
   pair->activeIs( active );
}

void IpsecHelper::programOutTunnelIpsecOgate( const Vrf &, const EncapId &, Kynet::IntfId, bool, Vex::GateId ) {
   GANT_TRACE( 3, "IpsecHelper::programOutTunnelIpsecOgate TODO" );
}

void IpsecHelper::cleanupInTunnelIpsecModule( const Vrf &, const EncapId & ) {
   GANT_TRACE( 3, "IpsecHelper::cleanupInTunnelIpsecModule TODO" );
}

Gant::Ptr< IpsecInPolicyModule > IpsecHelper::getOrCreateInPolicyIpsecModule( const Vrf &, Kynet::IntfId ) {
   return nullptr;
}

Gant::Ptr< IpsecOutPolicyModule > IpsecHelper::getOrCreateOutPolicyIpsecModule( const Vrf &, Kynet::IntfId ) {
   return nullptr;
}

void IpsecHelper::cleanupInPolicyIpsecModule( const Vrf &, const EncapId &, Kynet::IntfId ) {
   GANT_TRACE( 3, "IpsecHelper::cleanupInPolicyIpsecModule TODO" );
}

void IpsecHelper::cleanupOutPolicyIpsecModule( const Vrf &, const EncapId &, Kynet::IntfId ) {
   GANT_TRACE( 3, "IpsecHelper::cleanupOutPolicyIpsecModule TODO" );
}

void IpsecHelper::enqManagementCmd( std::string_view cmdAction, Vex::Module::Message * message ) {
   const auto cmd = Vex::moduleCmdFactory( managementIpsecModule()->name(), cmdAction, message, true );
   managementIpsecModule()->moduleConfig()->cmdBatchEnq( cmd );
   Vex::cleanse( *message );
}

void IpsecHelper::sendInitVirtCryptoCmd( const char * devName ) {
   auto * const arg = new vex::pb::IpsecInitVirtCryptoPMDArg;
   arg->set_socket_id( socketIdDefault() );
   arg->set_crypto_dev_name( devName );
   arg->set_max_nb_queue_pairs( maxNbQueuePairsDefault() );
   arg->set_max_nb_sessions( maxNbSessionsDefault() );
   enqManagementCmd( "initVirtDevice", arg );
}

} // namespace VexL3Unicast
