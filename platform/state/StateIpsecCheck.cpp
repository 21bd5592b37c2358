#include "StateIpsecCheck.h"

#include "StateInterface.h"
#include "StateIp.h"

#include <algorithm>
#include <vector>

namespace Ipsec::Ike {

namespace {

using Gant::String;
using Gant::textsOf;

struct Algorithm {
   String name;
   std::vector< U16 > keyBits; // the lengths that it takes
};
using Algorithms = std::vector< Algorithm >;

const char * const gcm = "rfc4106(gcm(aes))";

const Algorithms & ciphers() {
   // The key of GCM ends in a salt of 32 bits (RFC 4106, 8.1).
   static const Algorithms all = { { "aes", { 128, 192, 256 } }, { gcm, { 160, 224, 288 } }, { "cipher_null", { 0 } } };
   return all;
}

const Algorithms & authentications() {
   static const Algorithms all = { { "sha1", { 160 } }, { "hmac(sha256)", { 256 } }, { "", { 0 } } };
   return all;
}

template < typename Items >
String listed( const Items & items ) {
   String out;
   for ( const auto & item : items ) out += ( out.empty() ? "" : ", " ) + Gant::textOf( item );
   return out;
}

String wrongKey( const char * what, const Algorithms & algorithms, const String & name, const KeyMaterial & key,
                 U16 keyLen ) {
   const auto algorithm = std::ranges::find( algorithms, name, &Algorithm::name );
   if ( algorithm == algorithms.end() ) return textsOf( what, " algorithm ", name, " is unknown" );
   if ( std::ranges::find( algorithm->keyBits, keyLen ) == algorithm->keyBits.end() )
      return textsOf( what, " key of ", keyLen, " bits for ", name.empty() ? "no algorithm" : name,
                      ", which takes: ", listed( algorithm->keyBits ) );
   const auto bytes = key.bytes().size();
   return bytes == ( keyLen + 7u ) / 8 ? String() : textsOf( what, " key of ", keyLen, " bits has ", bytes, " bytes" );
}

String wrongAlgorithms( const SecurityAssociation & sa ) {
   if ( auto why = wrongKey( "encryption", ciphers(), sa.cryptoAlgo(), sa.cryptoKey(), sa.cryptoKeyLen() );
        !why.empty() )
      return why;
   if ( auto why = wrongKey( "authentication", authentications(), sa.authAlgo(), sa.authKey(), sa.authKeyLen() );
        !why.empty() )
      return why;
   if ( sa.cryptoAlgo() == "cipher_null" && sa.authAlgo().empty() ) return "neither encryption nor authentication";
   if ( sa.cryptoAlgo() != gcm ) return "";
   if ( !sa.authAlgo().empty() ) return textsOf( "authentication ", sa.authAlgo(), " beside ", gcm );
   return sa.icvLen() == 64 || sa.icvLen() == 96 || sa.icvLen() == 128
               ? ""
               : textsOf( "ICV of ", sa.icvLen(), " bits for ", gcm, ", which takes: 64, 96, 128" );
}

bool someIpv4( const Kynet::IpGenAddr & addr ) { return addr.af() == Kynet::AddressFamily::ipv4_ && !!addr.v4Addr(); }

String wrongPackets( const SecurityAssociation & sa ) {
   constexpr U8 esp = 50;
   constexpr U16 inet = 2;
   constexpr U32 replayWindowMax = 4096; // the data plane's
   const auto & id = sa.sakey().id();
   // Those from 1 to 255 are kept for later use (RFC 4303, 2.1).
   if ( id.spi() < 256 ) return "SPIs below 256 are reserved";
   if ( id.proto() != esp ) return textsOf( "protocol ", id.proto(), " is not ESP" );
   if ( sa.sakey().family() != inet || !someIpv4( sa.saddr() ) || !someIpv4( id.daddr() ) )
      return textsOf( "no two IPv4 addresses: ", sa.saddr(), " and ", id.daddr() );
   if ( sa.replay_window() > replayWindowMax )
      return textsOf( "replay window of ", sa.replay_window(), " packets, more than ", replayWindowMax );
   if ( sa.encapType() > 1 ) return textsOf( "encapsulation type ", sa.encapType(), " is unknown" );
   if ( sa.encapType() == 1 && ( sa.encapSrcPort() == 0 || sa.encapDstPort() == 0 ) )
      return "UDP encapsulation without ports";
   return "";
}

String wrongSa( const char * direction, const SecurityAssociation & sa ) {
   auto why = wrongPackets( sa );
   if ( why.empty() ) why = wrongAlgorithms( sa );
   if ( why.empty() ) return why;
   return textsOf( direction, " SA ", Gant::format( "0x%08x", sa.sakey().id().spi() ), ": ", why );
}

// A packet that comes in is known by these.
using InboundIds = Gant::OrderedMap< SaId, Gant::Name >;

InboundIds inboundIdsBesides( const ConnectionKey & key, const ConnectionTable & table ) {
   InboundIds ids;
   for ( const auto & [ otherKey, other ] : table.connectionIterator() )
      if ( otherKey != key )
         for ( const auto & sa : other.inSaq() ) ids.emplace( sa.sakey().id(), other.name() );
   return ids;
}

String wrongSas( const Connection & connection, InboundIds inboundIds ) {
   if ( connection.outSa() )
      if ( auto why = wrongSa( "outbound", *connection.outSa() ); !why.empty() ) return why;
   for ( const auto & sa : connection.inSaq() ) {
      if ( auto why = wrongSa( "inbound", sa ); !why.empty() ) return why;
      const auto [ at, added ] = inboundIds.emplace( sa.sakey().id(), connection.name() );
      if ( !added )
         return textsOf( "inbound SA ", Gant::format( "0x%08x", sa.sakey().id().spi() ), " is one of ", at->second,
                         " already" );
   }
   return "";
}

String wrongKeyOrName( const ConnectionKey & key, const Connection & connection, const CheckScope & scope,
                       bool replacing ) {
   const auto & [ reqid, type ] = key.encapId().fields();
   if ( reqid == 0 ) return "id 0 names no connection";
   if ( type != EncapIdType::IpsecGre_ && type != EncapIdType::IpsecVti_ )
      return textsOf( "type ", type, " is unknown" );
   if ( !scope.allVrfStatusLocal->vrfStatusHas( L3::VrfName( key.vrfName().value() ) ) )
      return textsOf( "VRF ", key.vrfName(), " does not exist" );
   for ( const auto & [ otherKey, other ] : scope.connectionTable->connectionIterator() ) {
      if ( otherKey == key && replacing ) continue;
      // The number is all by which the messages to the data plane tell connections apart.
      if ( otherKey.encapId().reqid() == reqid )
         return textsOf( "id ", reqid, " in VRF ", otherKey.vrfName(), " is that of ", other.name() );
      if ( other.name() == connection.name() )
         return textsOf( "the name is that of id ", otherKey.encapId().reqid(), " in VRF ", otherKey.vrfName() );
   }
   return "";
}

String wrongIntf( const ConnectionKey & key, Kynet::IntfId intfId, const CheckScope & scope ) {
   if ( !scope.tunnelIntfStatusDir->intfStatusHas( intfId ) ) return textsOf( "interface ", intfId, " is no tunnel" );
   const auto wanted = key.encapId().type() == EncapIdType::IpsecGre_ ? Interface::TunnelMode::greOverIpsec_
                                                                      : Interface::TunnelMode::ipsec_;
   const auto mode = scope.tunnelIntfStatusDir->intfStatus( intfId ).mode();
   if ( mode != wanted )
      return textsOf( "tunnel ", intfId, " has mode ", mode, ", not ", Interface::TunnelMode( wanted ) );
   for ( const auto & [ otherKey, other ] : scope.connectionTable->connectionIterator() )
      if ( otherKey != key && other.intfList().intf( intfId ) )
         return textsOf( "tunnel ", intfId, " is that of ", other.name() );
   return "";
}

String wrong( const ConnectionKey & key, const Connection & connection, const CheckScope & scope, bool replacing ) {
   if ( auto why = wrongKeyOrName( key, connection, scope, replacing ); !why.empty() ) return why;
   for ( const auto intfId : connection.intfList() )
      if ( auto why = wrongIntf( key, intfId, scope ); !why.empty() ) return why;
   return wrongSas( connection, inboundIdsBesides( key, *scope.connectionTable ) );
}

} // namespace

String refusalOf( const ConnectionKey & key, const Connection & connection, const CheckScope & scope, bool replacing ) {
   const auto why = wrong( key, connection, scope, replacing );
   return why.empty() ? why : textsOf( "IPsec connection ", connection.name(), ": ", why );
}

} // namespace Ipsec::Ike
