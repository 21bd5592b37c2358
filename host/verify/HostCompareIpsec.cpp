// The crypto devices, and the security associations. The data plane tells no keys: of them their lengths are compared.

#include "HostComparer.h"
#include "StateIpsec.h"
#include "vex/ipsec.pb.h"
#include "VexIpsecHelper.h"

namespace Host {

using namespace VexL3Unicast;

namespace {

using Ipsec::Ike::EncapIdType;
using Ipsec::Ike::SaMode;
using Ipsec::Ike::SecurityAssociation;
using SaMessage = vex::pb::IpsecUpdateSAArg::IpsecSAEntry;

// What an association is to the data plane. Algorithms by their numbers in the messages.
struct Sa {
   Kynet::IpAddr source, destination;
   bool transport = false;
   U32 tunnelType = 0;
   U32 cipher = 0, auth = 0;
   U32 cipherBits = 0, authBits = 0, icvBytes = 0;
   U32 replayWindow = 0;
   U32 udpSource = 0, udpDestination = 0;
   bool udp = false;

   std::string inWords() const {
      auto words = source.stringValue() + " -> " + destination.stringValue() +
                   ( transport ? ", transport" : ", tunnel" ) + ", type " + std::to_string( tunnelType ) +
                   Gant::format( ", cipher %u of %u bits, authentication %u of %u bits, ICV of %u bytes, window %u",
                                 cipher, cipherBits, auth, authBits, icvBytes, replayWindow );
      return udp ? words + Gant::format( ", UDP %u -> %u", udpSource, udpDestination ) : words;
   }
};

Sa heldSa( const SaMessage & entry ) {
   Sa sa;
   sa.source = Kynet::IpAddr( entry.src_addr() );
   sa.destination = Kynet::IpAddr( entry.dst_addr() );
   sa.transport = entry.flags() == 2;
   sa.tunnelType = entry.tunnel_type();
   sa.cipher = entry.cipher_algorithm();
   sa.auth = entry.auth_algorithm();
   sa.cipherBits = entry.crypto_info_len();
   sa.authBits = entry.auth_info_len();
   sa.icvBytes = entry.icv_len();
   sa.replayWindow = entry.replay_window();
   sa.udp = entry.encap_type() == 1;
   sa.udpSource = entry.encap_src_port();
   sa.udpDestination = entry.encap_dst_port();
   return sa;
}

constexpr const char * gcm = "rfc4106(gcm(aes))";

U32 cipherOf( const SecurityAssociation & sa ) {
   if ( sa.cryptoAlgo() == "aes" ) return 5;
   if ( sa.cryptoAlgo() == gcm ) return 2;
   return sa.cryptoAlgo() == "cipher_null" ? 1 : 0;
}

U32 authOf( const SecurityAssociation & sa ) {
   if ( sa.authAlgo() == "sha1" ) return 10;
   if ( sa.authAlgo() == "hmac(sha256)" ) return 14;
   return sa.authKeyLen() == 0 ? 1 : 0;
}

Sa meantSa( const SecurityAssociation & meant, EncapIdType type ) {
   Sa sa;
   sa.source = meant.saddr().v4Addr();
   sa.destination = meant.sakey().id().daddr().v4Addr();
   sa.transport = meant.mode() == SaMode::IPSEC_TRANSPORT_MODE_;
   sa.tunnelType = type == EncapIdType::IpsecGre_ ? 2 : 1;
   sa.cipher = cipherOf( meant );
   sa.auth = authOf( meant );
   sa.cipherBits = meant.cryptoKeyLen();
   sa.authBits = meant.authKeyLen();
   sa.replayWindow = meant.replay_window();
   sa.udp = meant.encapType() == 1;
   if ( sa.udp ) {
      sa.udpSource = meant.encapSrcPort();
      sa.udpDestination = meant.encapDstPort();
   }
   if ( meant.cryptoAlgo() == gcm ) sa.icvBytes = meant.icvLen() / 8;
   return sa;
}

class IpsecComparer : public Comparer {
 public:
   IpsecComparer( Comparison & comparison, Vex::Module & module ) : Comparer( comparison, module ) {
      const auto & mounts = session().agent()->ipsecMounts();
      if ( !mounts || !mounts->connectionTable() ) return;
      for ( const auto & [ key, connection ] : mounts->connectionTable()->connectionIterator() ) {
         const auto & id = key.encapId();
         if ( connection.outSa() ) mean( id, outbound, *connection.outSa() );
         for ( const auto & sa : connection.inSaq() ) mean( id, inbound, sa );
      }
   }

   bool finish() override {
      for ( const auto & [ key, sa ] : meant_ ) findings().missing( name(), inWords( key ), sa.inWords() );
      const auto meant = Gant::format( "%u queue pairs, %u sessions, socket %d", IpsecHelper::maxNbQueuePairsDefault(),
                                       IpsecHelper::maxNbSessionsDefault(), IpsecHelper::socketIdDefault() );
      for ( const char * device : { IpsecHelper::cryptoDevNameOpenSsl(), IpsecHelper::cryptoDevNameNull() } ) {
         const auto object = std::string( "crypto device " ) + device;
         const auto held = devices_.extract( device );
         if ( held.empty() )
            findings().missing( name(), object, meant );
         else
            findings().compare( name(), object, meant, held.mapped() );
      }
      for ( const auto & [ device, words ] : devices_ )
         findings().unexpected( name(), "crypto device " + device, words );
      return true;
   }

 protected:
   bool told( const std::string & cmd, const std::string & bytes ) override {
      if ( cmd == "initVirtDevice" ) return toldDevice( bytes );
      vex::pb::IpsecUpdateSAArg arg;
      if ( cmd != "updateIpsecSAs" || !arg.ParseFromString( bytes ) ) return false;
      for ( const auto & entry : arg.saentries() )
         compare( { arg.vrf(), arg.encap_id(), arg.sa_direction(), entry.sa_spi() }, heldSa( entry ) );
      return true;
   }

 private:
   // VRF, connection, direction, SPI, as in the messages.
   using Key = std::tuple< U32, U32, U32, U32 >;
   static constexpr U32 outbound = 0, inbound = 1;

   static std::string inWords( const Key & key ) {
      const auto & [ vrf, id, direction, spi ] = key;
      return ( direction == inbound ? "inbound" : "outbound" ) +
             Gant::format( " SA 0x%08x of IPsec connection %u", spi, id ) +
             ( vrf == 0 ? "" : " in VRF " + std::to_string( vrf ) );
   }
   void mean( const Ipsec::Ike::EncapId & id, U32 direction, const SecurityAssociation & sa ) {
      // In the messages every connection is in the default VRF.
      meant_[ { 0, id.reqid(), direction, sa.sakey().id().spi() } ] = meantSa( sa, id.type() );
   }

   void compare( const Key & key, const Sa & held ) {
      findings().compared( "security associations" );
      const auto at = meant_.find( key );
      if ( at == meant_.end() ) return findings().unexpected( name(), inWords( key ), held.inWords() );
      findings().compare( name(), inWords( key ), at->second.inWords(), held.inWords() );
      meant_.erase( at );
   }

   bool toldDevice( const std::string & bytes ) {
      vex::pb::IpsecInitVirtCryptoPMDArg arg;
      if ( !arg.ParseFromString( bytes ) ) return false;
      findings().compared( "crypto devices" );
      devices_[ arg.crypto_dev_name() ] =
           Gant::format( "%u queue pairs, %u sessions, socket %d", arg.max_nb_queue_pairs(), arg.max_nb_sessions(),
                         arg.has_socket_id() ? arg.socket_id() : -1 );
      return true;
   }

   std::map< Key, Sa > meant_; // not met yet
   std::map< std::string, std::string > devices_;
};

} // namespace

std::unique_ptr< Comparer > ipsecComparer( Comparison & comparison, Vex::Module & module ) {
   return std::make_unique< IpsecComparer >( comparison, module );
}

} // namespace Host
