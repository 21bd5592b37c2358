// What a user may not write.
#include "IpsecRouter.h"
#include "StateInterface.h"
#include "StateIp.h"
#include "StateIpsecCheck.h"

#include <functional>

namespace Test {
namespace {

using Interface::TunnelMode;
using Ipsec::Ike::SaKey;

class Scope {
 public:
   Scope() {
      vrfs->vrfStatusIs( L3::VrfName( "default" ), Ip::VrfStatus( 0, true ) );
      tunnel( "Tunnel1", TunnelMode::ipsec() );
      tunnel( "Tunnel2", TunnelMode::gre() );
      tunnel( "Tunnel3", TunnelMode::greOverIpsec() );
      tunnel( "Tunnel4", TunnelMode::ipsec() );
      auto other = connection( { "Tunnel4" }, { 3000 }, std::nullopt );
      other.nameIs( "site-a" );
      scope.connectionTable = connections;
      scope.allVrfStatusLocal = vrfs;
      scope.tunnelIntfStatusDir = tunnels;
      connections->connectionIs( connectionKey( 4 ), other );
   }
   void tunnel( const char * name, TunnelMode mode ) {
      Interface::TunnelIntfStatus status;
      status.modeIs( mode );
      tunnels->intfStatusIs( intf( name ), status );
   }
   Gant::Ptr< Ipsec::Ike::ConnectionTable > connections = Gant::make< Ipsec::Ike::ConnectionTable >();
   Gant::Ptr< Ip::AllVrfStatusLocal > vrfs = Gant::make< Ip::AllVrfStatusLocal >();
   Gant::Ptr< Interface::TunnelIntfStatusDir > tunnels = Gant::make< Interface::TunnelIntfStatusDir >();
   Ipsec::Ike::CheckScope scope;
};

// Of an outbound association with SPI 4096 that is right but for the change.
struct RefusedSa {
   const char * reason;
   std::function< void( SecurityAssociation & ) > change;
};

void spi( SecurityAssociation & sa, U32 spi ) {
   auto sakey = sa.sakey();
   auto id = sakey.id();
   id.spiIs( spi );
   sakey.idIs( id );
   sa.sakeyIs( sakey );
}

void cipher( SecurityAssociation & sa, const char * name, const char * key, U16 bits ) {
   sa.cryptoAlgoIs( name );
   sa.cryptoKeyIs( KeyMaterial( key ) );
   sa.cryptoKeyLenIs( bits );
}

void auth( SecurityAssociation & sa, const char * name, const char * key, U16 bits ) {
   sa.authAlgoIs( name );
   sa.authKeyIs( KeyMaterial( key ) );
   sa.authKeyLenIs( bits );
}

void gcm( SecurityAssociation & sa, U16 icvLen ) {
   cipher( sa, "rfc4106(gcm(aes))", "a-16-byte-key...salt", 160 );
   auth( sa, "", "", 0 );
   sa.icvLenIs( icvLen );
}

void encap( SecurityAssociation & sa, U16 type, U16 src, U16 dst ) {
   sa.encapTypeIs( type );
   sa.encapSrcPortIs( src );
   sa.encapDstPortIs( dst );
}

const RefusedSa refusedSas[] = {
     { "", []( auto & ) {} },
     { "", []( auto & sa ) { gcm( sa, 96 ); } },
     { "", []( auto & sa ) { cipher( sa, "cipher_null", "", 0 ); } },
     { "", []( auto & sa ) { encap( sa, 1, 4500, 4500 ); } },
     { "0x00000000: SPIs below 256 are reserved", []( auto & sa ) { spi( sa, 0 ); } },
     { "0x000000ff: SPIs below 256 are reserved", []( auto & sa ) { spi( sa, 255 ); } },
     { "", []( auto & sa ) { spi( sa, 256 ); } },
     { "0x00001000: protocol 51 is not ESP",
       []( auto & sa ) { sa.sakeyIs( SaKey( Ipsec::Ike::SaId( 4096, sa.sakey().id().daddr(), 51 ), 2 ) ); } },
     { "0x00001000: no two IPv4 addresses: 2001:db8::1 and 198.51.100.9",
       []( auto & sa ) { sa.saddrIs( Kynet::IpGenAddr::fromString( "2001:db8::1" ).value() ); } },
     { "0x00001000: encryption algorithm des is unknown", []( auto & sa ) { sa.cryptoAlgoIs( "des" ); } },
     { "0x00001000: authentication algorithm md5 is unknown", []( auto & sa ) { sa.authAlgoIs( "md5" ); } },
     { "0x00001000: encryption key of 120 bits for aes, which takes: 128, 192, 256",
       []( auto & sa ) { cipher( sa, "aes", "fifteen bytes..", 120 ); } },
     { "0x00001000: encryption key of 128 bits has 15 bytes",
       []( auto & sa ) { cipher( sa, "aes", "fifteen bytes..", 128 ); } },
     { "0x00001000: authentication key of 160 bits has 1 bytes", []( auto & sa ) { auth( sa, "sha1", "x", 160 ); } },
     { "0x00001000: authentication key of 160 bits for no algorithm, which takes: 0",
       []( auto & sa ) { sa.authAlgoIs( "" ); } },
     { "0x00001000: neither encryption nor authentication",
       []( auto & sa ) {
          cipher( sa, "cipher_null", "", 0 );
          auth( sa, "", "", 0 );
       } },
     { "0x00001000: ICV of 120 bits for rfc4106(gcm(aes)), which takes: 64, 96, 128",
       []( auto & sa ) { gcm( sa, 120 ); } },
     { "0x00001000: authentication sha1 beside rfc4106(gcm(aes))",
       []( auto & sa ) {
          gcm( sa, 96 );
          auth( sa, "sha1", authSecret, 160 );
       } },
     { "0x00001000: replay window of 5000 packets, more than 4096", []( auto & sa ) { sa.replay_windowIs( 5000 ); } },
     { "0x00001000: UDP encapsulation without ports", []( auto & sa ) { encap( sa, 1, 0, 4500 ); } },
     { "0x00001000: encapsulation type 2 is unknown", []( auto & sa ) { encap( sa, 2, 4500, 4500 ); } },
};

TEST( IpsecCheck, anAssociationThatMakesNoSenseIsRefusedByItsSpi ) {
   const Scope state;
   for ( const auto & [ reason, change ] : refusedSas ) {
      auto sa = aesSha1( 4096 );
      change( sa );
      const Gant::String tail = reason;
      auto outbound = connection( {}, {}, std::nullopt );
      outbound.outSaIs( sa );
      EXPECT_EQ( refusalOf( connectionKey( 5 ), outbound, state.scope, false ),
                 tail.empty() ? "" : "IPsec connection site-b: outbound SA " + tail );
      auto inbound = connection( {}, { 5000 }, std::nullopt );
      auto saq = inbound.inSaq();
      saq.saqEnq( sa );
      inbound.inSaqIs( saq );
      EXPECT_EQ( refusalOf( connectionKey( 5 ), inbound, state.scope, false ),
                 tail.empty() ? "" : "IPsec connection site-b: inbound SA " + tail );
   }
}

struct ConnectionCase {
   const char * reason;
   ConnectionKey key;
   Connection connection;
   bool replacing = false;
};

TEST( IpsecCheck, aConnectionThatFitsNothingIsRefusedByItsName ) {
   const Scope state;
   const auto usual = [] { return connection( { "Tunnel1" }, { 5000 }, 4096 ); };
   auto taken = usual();
   taken.nameIs( "site-a" );
   const ConnectionCase cases[] = {
        { "", connectionKey( 5 ), usual() },
        { "id 0 names no connection", connectionKey( 0 ), usual() },
        { "type 9 is unknown", connectionKey( 5, EncapIdType( U8( 9 ) ) ), usual() },
        { "VRF red does not exist", connectionKey( 5, EncapIdType::IpsecVti(), "red" ), usual() },
        { "id 4 in VRF default is that of site-a", connectionKey( 4 ), usual() },
        { "id 4 in VRF default is that of site-a", connectionKey( 4, EncapIdType::IpsecGre() ), usual() },
        { "", connectionKey( 4 ), usual(), true },
        { "the name is that of id 4 in VRF default", connectionKey( 5 ), taken },
        { "interface Ethernet1 is no tunnel", connectionKey( 5 ), connection( { "Ethernet1" }, {}, std::nullopt ) },
        { "tunnel Tunnel2 has mode gre, not ipsec", connectionKey( 5 ), connection( { "Tunnel2" }, {}, std::nullopt ) },
        { "tunnel Tunnel1 has mode ipsec, not greOverIpsec", connectionKey( 5, EncapIdType::IpsecGre() ), usual() },
        { "", connectionKey( 5, EncapIdType::IpsecGre() ), connection( { "Tunnel3" }, {}, std::nullopt ) },
        { "tunnel Tunnel4 is that of site-a", connectionKey( 5 ), connection( { "Tunnel4" }, {}, std::nullopt ) },
        { "inbound SA 0x00001388 is one of site-b already", connectionKey( 5 ),
          connection( {}, { 5000, 5000 }, std::nullopt ) },
        { "inbound SA 0x00000bb8 is one of site-a already", connectionKey( 5 ),
          connection( {}, { 3000 }, std::nullopt ) },
   };
   for ( const auto & [ reason, key, wanted, replacing ] : cases ) {
      const auto prefix = "IPsec connection " + wanted.name() + ": ";
      EXPECT_EQ( refusalOf( key, wanted, state.scope, replacing ), *reason == '\0' ? "" : prefix + reason );
   }
}

} // namespace
} // namespace Test
