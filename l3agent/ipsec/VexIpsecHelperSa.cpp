#include "GantTrace.h"
#include "vex/ipsec.pb.h"
#include "VexIpsecHelper.h"

#include <cmath>

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexIpsecHelper" );

namespace {

using Ipsec::Ike::EncapIdType;
using Ipsec::Ike::SaMode;
using SaEntry = vex::pb::IpsecUpdateSAArg::IpsecSAEntry;

constexpr U32 outbound = 0, inbound = 1;
constexpr const char * gcm = "rfc4106(gcm(aes))";

// In every message the VRF is the default one, whatever the connection's name for it.
U32 defaultVrf() { return Hul::VrfId::defaultVrfId(); }

Gant::String spiText( U32 spi ) { return Gant::format( "0x%08x", spi ); }

std::string_view keyBytes( const Ipsec::Ike::KeyMaterial & key, U16 bits ) {
   return key.bytes().substr( 0, static_cast< size_t >( std::ceil( bits / 8.0 ) ) );
}

void setTunnelType( SaEntry & entry, EncapIdType type ) {
   if ( type == EncapIdType::IpsecGre_ )
      entry.set_tunnel_type( 2 );
   else if ( type == EncapIdType::IpsecVti_ )
      entry.set_tunnel_type( 1 );
}

U32 cipherAlgorithmOf( const Gant::String & cryptoAlgo ) {
   if ( cryptoAlgo == "aes" ) return 5;
   if ( cryptoAlgo == gcm ) return 2;
   if ( cryptoAlgo == "cipher_null" ) return 1;
   return 0;
}

U32 authAlgorithmOf( const Ipsec::Ike::SecurityAssociation & sa ) {
   if ( sa.authAlgo() == "sha1" ) return 10;
   if ( sa.authAlgo() == "hmac(sha256)" ) return 14;
   if ( sa.authKeyLen() == 0 ) return 1;
   GANT_TRACE( 0, "IpsecHelper::addSaToUpdateSaArg Failed to set the auth algorithm for ", sa.authAlgo(),
               " key length: ", sa.authKeyLen() );
   return 0;
}

void setAlgorithms( SaEntry & entry, const Ipsec::Ike::SecurityAssociation & sa ) {
   entry.set_cipher_algorithm( cipherAlgorithmOf( sa.cryptoAlgo() ) );
   entry.set_auth_algorithm( authAlgorithmOf( sa ) );
   const auto cryptoInfo = keyBytes( sa.cryptoKey(), sa.cryptoKeyLen() );
   entry.set_crypto_info( cryptoInfo.data(), cryptoInfo.size() );
   if ( sa.cryptoAlgo() == gcm ) {
      entry.set_icv_len( sa.icvLen() / 8 );
   } else {
      const auto authInfo = keyBytes( sa.authKey(), sa.authKeyLen() );
      entry.set_auth_info( authInfo.data(), authInfo.size() );
   }
   // In bits, beside keys in bytes.
   entry.set_crypto_info_len( sa.cryptoKeyLen() );
   entry.set_auth_info_len( sa.authKeyLen() );
}

void setEncap( SaEntry & entry, const Ipsec::Ike::SecurityAssociation & sa ) {
   if ( sa.encapType() > 1 ) return;
   entry.set_encap_type( sa.encapType() );
   if ( sa.encapType() == 0 ) return;
   entry.set_encap_src_port( sa.encapSrcPort() );
   entry.set_encap_dst_port( sa.encapDstPort() );
}

// The values in one text: a line of the ring has no room for them one by one.
void traceCipher( const Ipsec::Ike::EncapId & encapId, const Ipsec::Ike::SecurityAssociation & sa ) {
   GANT_TRACE( 2, "IpsecHelper::addSaToUpdateSaArg Setting the cipher algorithm for ",
               Gant::textsOf( sa.cryptoAlgo(), " key length: ", sa.cryptoKeyLen(), " reqid: ", encapId.reqid(),
                              " spi: ", spiText( sa.sakey().id().spi() ), " ", sa.saddr(), " -> ",
                              sa.sakey().id().daddr(), " replay: ", sa.replay_window(), " ", sa.mode(),
                              " family: ", sa.sakey().family(), " icv: ", sa.icvLen(), " encap: ", sa.encapType() ) );
}

Vex::FlowKey flowKeyOf( const Ipsec::Ike::SecurityAssociation & sa ) {
   constexpr U8 udp = 17;
   const auto & id = sa.sakey().id();
   return Vex::FlowKey( sa.encapType() == 1 ? udp : id.proto(), sa.saddr().v4Addr(), id.daddr().v4Addr(),
                        Kynet::Port( sa.encapSrcPort() ), Kynet::Port( sa.encapDstPort() ), id.spi() );
}

} // namespace

vex::pb::IpsecUpdateSAArg * IpsecHelper::createUpdateSaArg( U32 vrfIdValue, U32 ipsecEncapIdValue,
                                                            U32 saDirection ) const {
   // Not in the channel's arena: it is overwritten once it is queued.
   auto * const arg = new vex::pb::IpsecUpdateSAArg;
   arg->set_vrf( vrfIdValue );
   arg->set_encap_id( ipsecEncapIdValue );
   arg->set_sa_direction( saDirection );
   return arg;
}

void IpsecHelper::addSaToUpdateSaArg( vex::pb::IpsecUpdateSAArg & arg, const EncapId & encapId,
                                      const SecurityAssociation & sa ) const {
   const auto & id = sa.sakey().id();
   auto & entry = *arg.add_saentries();
   setTunnelType( entry, encapId.type() );
   entry.set_sa_spi( id.spi() );
   entry.set_src_addr( sa.saddr().v4Addr().value() );
   entry.set_dst_addr( id.daddr().v4Addr().value() );
   entry.set_proto( id.proto() );
   entry.set_replay_window( sa.replay_window() );
   entry.set_flags( sa.mode() == SaMode::IPSEC_TRANSPORT_MODE_ ? 2 : 1 );
   entry.set_family( sa.sakey().family() );
   entry.set_sa_type( saTypeDefault() );
   traceCipher( encapId, sa );
   setAlgorithms( entry, sa );
   setEncap( entry, sa );
}

void IpsecHelper::sendDeleteSaCmd( U32 vrfIdValue, U32 ipsecEncapIdValue, U32 saDirection ) {
   auto * const arg = new vex::pb::IpsecDeleteSAArg;
   arg->set_vrf( vrfIdValue );
   arg->set_encap_id( ipsecEncapIdValue );
   arg->set_sa_direction( saDirection );
   enqManagementCmd( "deleteIpsecSAs", arg );
}

void IpsecHelper::setFlowKey( const Vrf & vrfName, const EncapId & encapId, const SecurityAssociation & sa ) {
   const IpsecConnectionKey key( vrfName, encapId );
   auto info = ipsecConnectionInfo( key );
   const auto spi = sa.sakey().id().spi();
   if ( const auto & present = info.flowKey(); !!present ) {
      GANT_TRACE( 2, "IpsecHelper::setFlowKey Flowkey add: entry exists for spi = ", spiText( present.spi() ), " ",
                  present.srcAddr(), " -> ", present.dstAddr(), " protocol ", present.protocol(),
                  ", skipping spi = ", spiText( spi ) );
      return;
   }
   const auto flowKey = flowKeyOf( sa );
   managementSm()->createFlowEntry( flowKey );
   info.ipsecConnectionKeyIs( key );
   info.flowKeyIs( flowKey );
   ipsecConnectionInfoIs( key, info );
   GANT_TRACE( 2, "IpsecHelper::setFlowKey Flowkey add: new entry for spi = ", spiText( spi ) );
}

void IpsecHelper::programOutSa( const Vrf &, const EncapId & encapId, const SecurityAssociation & sa ) {
   auto * const arg = createUpdateSaArg( defaultVrf(), encapId.reqid(), outbound );
   addSaToUpdateSaArg( *arg, encapId, sa );
   enqManagementCmd( "updateIpsecSAs", arg );
}

void IpsecHelper::programInSas( const Vrf & vrfName, const EncapId & encapId,
                                const HulIpsec::SecurityAssociationQueue & saq ) {
   auto * const arg = createUpdateSaArg( defaultVrf(), encapId.reqid(), inbound );
   setFlowKey( vrfName, encapId, saq.saq( saq.saqMetadata().tailIndex() ) );
   for ( const auto & sa : saq ) addSaToUpdateSaArg( *arg, encapId, sa );
   enqManagementCmd( "updateIpsecSAs", arg );
}

void IpsecHelper::deleteOutSa( const Vrf &, const EncapId & encapId ) {
   sendDeleteSaCmd( defaultVrf(), encapId.reqid(), outbound );
}

void IpsecHelper::deleteInSas( const Vrf &, const EncapId & encapId ) {
   sendDeleteSaCmd( defaultVrf(), encapId.reqid(), inbound );
}

void IpsecHelper::changeInSecurityAssociation( const Vrf & vrfName, const EncapId & encapId,
                                               const HulIpsec::SecurityAssociationQueue & saq ) {
   if ( saq.saqs() == 0 )
      deleteInSas( vrfName, encapId );
   else
      programInSas( vrfName, encapId, saq );
}

void IpsecHelper::changeOutSecurityAssociation( const Vrf & vrfName, const EncapId & encapId,
                                                const SecurityAssociation * sa ) {
   if ( sa == nullptr )
      deleteOutSa( vrfName, encapId );
   else
      programOutSa( vrfName, encapId, *sa );
   const IpsecConnectionKey key( vrfName, encapId );
   auto info = ipsecConnectionInfo( key );
   info.ipsecConnectionKeyIs( key );
   info.outSaPresentIs( sa != nullptr );
   ipsecConnectionInfoIs( key, info );
   for ( const auto & pair : pairsOf( vrfName, encapId ) )
      if ( pair->active() != info.outSaPresent() ) programActiveOutTunnelIpsecModulePair( pair, info.outSaPresent() );
}

} // namespace VexL3Unicast
