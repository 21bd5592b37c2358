// show ipsec connections, sas, flows. Of keys only the lengths are shown.

#include "GantActivity.h"
#include "HostAgentView.h"
#include "HostShows.h"
#include "HulIpsecConnectionTableSm.h"
#include "StateIpsec.h"
#include "VexIpsecHelper.h"
#include "VexManagementSm.h"

namespace Host {

namespace {

using Ipsec::Ike::Connection;
using Ipsec::Ike::ConnectionKey;
using Ipsec::Ike::EncapIdType;
using Ipsec::Ike::SaMode;
using Ipsec::Ike::SecurityAssociation;

const Ipsec::Ike::ConnectionTable::Connections & connectionsOf( const AgentView & view ) {
   static const Ipsec::Ike::ConnectionTable::Connections none;
   const auto & mounts = view.agent()->ipsecMounts();
   return mounts && mounts->connectionTable() ? mounts->connectionTable()->connectionIterator() : none;
}

std::string typeName( EncapIdType type ) {
   if ( type == EncapIdType::IpsecGre_ ) return "gre";
   if ( type == EncapIdType::IpsecVti_ ) return "vti";
   return std::to_string( type.value() );
}

// Active is what packets leave by protected: a tunnel that was taken down and up has a new pair, which the agent's own
// mark doesn't follow.
Json pairsOf( const AgentView & view, const ConnectionKey & key, const Connection & connection, bool outSaPresent ) {
   auto pairs = Json::array();
   for ( const auto intfId : connection.intfList() ) {
      Json row{ { "interface", intfId.stringValue() } };
      const auto & pair = view.agent()->ipsecHelper()->outTunnelIpsecModulePair(
           VexL3Unicast::IpsecOutTunnelModuleKey( key.vrfName(), key.encapId(), intfId ) );
      row[ "active" ] = pair && outSaPresent;
      if ( pair ) {
         row[ "forward" ] = pair->forwardOutTunnelModule()->name();
         row[ "local" ] = pair->localOutTunnelModule()->name();
      }
      pairs.push_back( std::move( row ) );
   }
   return pairs;
}

void connectionRow( const AgentView & view, const ConnectionKey & key, Output & out ) {
   const auto & all = connectionsOf( view );
   const auto at = all.find( key );
   if ( at == all.end() ) return;
   const auto & connection = at->second;
   const auto & info = view.agent()->ipsecHelper()->ipsecConnectionInfo(
        VexL3Unicast::IpsecConnectionKey( key.vrfName(), key.encapId() ) );
   Json row{ { "connection", connection.name() },
             { "vrf", key.vrfName().value() },
             { "id", key.encapId().reqid() },
             { "type", typeName( key.encapId().type() ) },
             { "inboundSas", connection.inSaq().saqs() },
             { "outboundSa", info.outSaPresent() } };
   if ( !!info.flowKey() ) row[ "flow" ] = info.flowKey().stringValue();
   row[ "pairs" ] = pairsOf( view, key, connection, info.outSaPresent() );
   out.row( row );
}

std::string cipherName( const SecurityAssociation & sa ) {
   const auto bits = " " + std::to_string( sa.cryptoKeyLen() ) + " bits";
   if ( sa.cryptoAlgo() == "aes" ) return "AES-CBC" + bits;
   if ( sa.cryptoAlgo() == "rfc4106(gcm(aes))" ) return "AES-GCM" + bits + " with salt";
   if ( sa.cryptoAlgo() == "cipher_null" ) return "none";
   return sa.cryptoAlgo() + bits;
}

std::string authName( const SecurityAssociation & sa ) {
   if ( sa.cryptoAlgo() == "rfc4106(gcm(aes))" ) return "ICV " + std::to_string( sa.icvLen() ) + " bits";
   if ( sa.authAlgo() == "sha1" ) return "HMAC-SHA1";
   if ( sa.authAlgo() == "hmac(sha256)" ) return "HMAC-SHA256";
   return sa.authAlgo().empty() ? "none" : sa.authAlgo();
}

using SaPart = HulIpsec::HulConnectionTableSm::Part;

void saRow( const AgentView & view, const ConnectionKey & key, const Connection & connection, const char * direction,
            SaPart part, const SecurityAssociation & sa, Output & out ) {
   const auto said = view.agent()->ipsecConnectionTableSm()->state( key, part );
   const auto & id = sa.sakey().id();
   Json row{ { "connection", connection.name() },
             { "vrf", key.vrfName().value() },
             { "direction", direction },
             { "spi", Gant::format( "0x%08x", id.spi() ) },
             { "source", sa.saddr().stringValue() },
             { "destination", id.daddr().stringValue() },
             { "mode", sa.mode() == SaMode::IPSEC_TRANSPORT_MODE_ ? "transport" : "tunnel" },
             { "encryption", cipherName( sa ) },
             { "authentication", authName( sa ) },
             { "replayWindow", sa.replay_window() },
             { "state", said.progress.stringValue() },
             { "ageSeconds", Gant::activityManager()->now() - sa.agreedAt() } };
   if ( !said.reason.empty() ) row[ "reason" ] = said.reason;
   if ( sa.encapType() == 1 )
      row[ "udp" ] = std::to_string( sa.encapSrcPort() ) + " -> " + std::to_string( sa.encapDstPort() );
   out.row( row );
}

void saRows( const AgentView & view, const ConnectionKey & key, Output & out ) {
   const auto & all = connectionsOf( view );
   const auto at = all.find( key );
   if ( at == all.end() ) return;
   const auto & connection = at->second;
   for ( const auto & sa : connection.inSaq() ) saRow( view, key, connection, "inbound", SaPart::inboundSas, sa, out );
   if ( connection.outSa() ) saRow( view, key, connection, "outbound", SaPart::outboundSa, *connection.outSa(), out );
}

using Rows = void ( * )( const AgentView &, const ConnectionKey &, Output & );

template < Rows rows >
std::unique_ptr< Answer > perConnection( const Asked & asked ) {
   const AgentView view( asked.daemon );
   return perKey< ConnectionKey >( [ view ] { return Gant::keysOf( connectionsOf( view ) ); },
                                   [ view ]( const ConnectionKey & key, Output & out ) { rows( view, key, out ); } );
}

std::unique_ptr< Answer > flows( const Asked & asked ) {
   const AgentView view( asked.daemon );
   return atOnce( [ view ]( Output & out ) {
      for ( const auto & [ flow, users ] : view.agent()->managementSm()->flowEntryIterator() )
         out.row( Json{ { "protocol", flow.protocol() },
                        { "source", flow.srcAddr().stringValue() },
                        { "sourcePort", flow.srcPort().value() },
                        { "destination", flow.dstAddr().stringValue() },
                        { "destinationPort", flow.dstPort().value() },
                        { "spi", Gant::format( "0x%08x", flow.spi() ) },
                        { "users", users } } );
   } );
}

} // namespace

Commands ipsecShows() {
   return { { "show ipsec connections", {}, perConnection< connectionRow > },
            { "show ipsec sas", {}, perConnection< saRows > },
            { "show ipsec flows", {}, flows } };
}

} // namespace Host
