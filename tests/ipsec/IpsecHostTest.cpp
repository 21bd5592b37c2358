// The connections of a description, from their text to the state.
#include "GantActivity.h"
#include "HostSection.h"
#include "VexL3Mounts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Host {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const char * const cipherHex = "0x6369706865722d5345435245542d3031";
const char * const authHex = "0x686d61632d5345435245542d6f662d32302d6279";

std::string saText( const char * spi, const std::string & more = "" ) {
   return std::string( "{spi: " ) + spi + ", source: 192.0.2.1, destination: 198.51.100.9, encryption: aes, " +
          "encryption-key: " + cipherHex + ", authentication: sha1, authentication-key: " + authHex + more + "}";
}

class IpsecHost : public testing::Test {
 protected:
   IpsecHost() {
      for ( const char * name : { "Tunnel1", "Tunnel2" } )
         EXPECT_EQ( tell( "tunnel", std::string( "{name: " ) + name +
                                         ", mode: ipsec, source: 192.0.2.1, destination: 198.51.100.9}" ),
                    "" );
   }
   std::string tell( const char * kind, const std::string & text, Teller teller = Teller::description() ) {
      const Entry entry( YAML::Load( text ) );
      try {
         return sectionOfKind( kind ).replace( state, entry, teller ).message;
      } catch ( const EntryError & error ) {
         return error.what();
      }
   }
   std::string connection( const std::string & more ) { return tell( "ipsec", "{name: site-b, id: 5, " + more + "}" ); }
   const Ipsec::Ike::ConnectionTable & table() { return *state.tree().ipsecMounts->connectionTable(); }
   U32 idOf( const char * intfName ) {
      return state.tree().portDir->port( Kynet::IntfId::fromString( intfName ).value() ).ipsecEncapId();
   }

   RouterState state;
   const Ipsec::Ike::ConnectionKey key{ Kynet::NamespaceName::defaultNamespace(),
                                        Ipsec::Ike::EncapId( 5, Ipsec::Ike::EncapIdType::IpsecVti() ) };
};

TEST_F( IpsecHost, anEntryBecomesAConnectionForWhichItsTunnelsAreBuilt ) {
   ASSERT_EQ( connection( "interfaces: [Tunnel1], outbound: " + saText( "0x2000" ) + ", inbound: [" +
                          saText( "4096, mode: transport, replay-window: 32, udp: {source-port: 4500, "
                                  "destination-port: 4501}" ) +
                          "]" ),
              "" );
   ASSERT_TRUE( table().connectionHas( key ) );
   const auto & made = table().connection( key );
   EXPECT_EQ( made.name(), "site-b" );
   EXPECT_EQ( made.outSa()->sakey().id().spi(), 8192u );
   EXPECT_EQ( made.outSa()->cryptoKey().bytes(), "cipher-SECRET-01" );
   EXPECT_EQ( made.outSa()->cryptoKeyLen(), 128 );
   EXPECT_EQ( made.outSa()->authKeyLen(), 160 );
   EXPECT_EQ( made.outSa()->mode(), Ipsec::Ike::SaMode::IPSEC_TUNNEL_MODE_ );
   const auto & inbound = made.inSaq().saq( 0 );
   EXPECT_EQ( inbound.mode(), Ipsec::Ike::SaMode::IPSEC_TRANSPORT_MODE_ );
   EXPECT_EQ( inbound.replay_window(), 32u );
   EXPECT_EQ( inbound.encapSrcPort(), 4500 );
   EXPECT_EQ( inbound.encapDstPort(), 4501 );
   EXPECT_EQ( idOf( "Tunnel1" ), 5u );
   EXPECT_EQ( idOf( "Tunnel2" ), 0u );

   ASSERT_EQ( connection( "interfaces: Tunnel2" ), "" );
   EXPECT_EQ( idOf( "Tunnel1" ), 0u );
   EXPECT_EQ( idOf( "Tunnel2" ), 5u );
   // Under another id it is another connection, and the tunnel's modules are those of the new one.
   ASSERT_EQ( tell( "ipsec", "{name: site-b, id: 6, interfaces: Tunnel2}" ), "" );
   EXPECT_FALSE( table().connectionHas( key ) );
   EXPECT_EQ( table().connections(), 1u );
   EXPECT_EQ( idOf( "Tunnel2" ), 6u );
   EXPECT_EQ( state.ipsecDel( "site-b" ).message, "" );
   EXPECT_EQ( table().connections(), 0u );
   EXPECT_EQ( idOf( "Tunnel2" ), 0u );
   EXPECT_EQ( state.ipsecDel( "site-b" ).message, "IPsec connection site-b does not exist" );
}

TEST_F( IpsecHost, theMtuIsWhatTheAssociationLeavesOfAFullPacketUnlessItIsTold ) {
   const struct {
      const char * tunnel;
      const char * type;
      std::string outbound;
      U32 mtu;
   } cases[] = {
        { "mode: gre", "", "", 1476 },
        { "mode: gre, key: 7", "", "", 1472 },
        { "mode: ipsec", "vti", saText( "4096" ), 1438 },
        { "mode: ipsec", "vti", saText( "4096", ", udp: {source-port: 1, destination-port: 2}" ), 1422 },
        { "mode: ipsec", "vti", saText( "4096", ", mode: transport" ), 1458 },
        { "mode: gre-ipsec, key: 7", "gre", saText( "4096", ", mode: transport" ), 1430 },
        { "mode: gre-ipsec", "gre", saText( "4096" ), 1414 },
        { "mode: ipsec, mtu: 1300", "vti", saText( "4096" ), 1300 },
   };
   for ( const auto & [ tunnel, type, outbound, mtu ] : cases ) {
      const std::string ends = ", source: 192.0.2.1, destination: 198.51.100.8}";
      ASSERT_EQ( tell( "tunnel", std::string( "{name: Tunnel3, " ) + tunnel + ends ), "" );
      if ( !outbound.empty() ) {
         ASSERT_EQ( connection( "interfaces: Tunnel3, type: " + std::string( type ) + ", outbound: " + outbound ), "" );
      }
      const auto intfId = Kynet::IntfId::fromString( "Tunnel3" ).value();
      EXPECT_EQ( state.tree().ipStatus->intfStatus( intfId ).mtu(), mtu ) << tunnel << " " << outbound;
      state.ipsecDel( "site-b" );
   }
}

TEST_F( IpsecHost, whatIsWrongIsToldWithoutTheKeys ) {
   const struct {
      std::string more;
      const char * reason;
   } cases[] = {
        { "outbound: " + saText( "12" ),
          "IPsec connection site-b: outbound SA 0x0000000c: SPIs below 256 are reserved" },
        { "outbound: " + saText( "0x1ffffffff" ), "spi \"0x1ffffffff\" is not a number of 32 bits" },
        { "outbound: {spi: 4096, source: 192.0.2.1, destination: 198.51.100.9, encryption-key: 0x5345435245545g}",
          "encryption-key is not 0x and two hexadecimal digits for each byte, up to 64 bytes" },
        { "outbound: " + saText( "4096, mode: tunnels" ), "mode \"tunnels\" is not tunnel or transport" },
        { "outbound: " + saText( "4096", ", udp: {source-port: 4500}" ),
          "IPsec connection site-b: outbound SA 0x00001000: UDP encapsulation without ports" },
        { "interfaces: Ethernet1", "IPsec connection site-b: interface Ethernet1 is no tunnel" },
        { "type: gre, interfaces: Tunnel1",
          "IPsec connection site-b: tunnel Tunnel1 has mode ipsec, not greOverIpsec" },
        { "vrf: red", "IPsec connection site-b: VRF red does not exist" },
        { "keys: none", "unknown key \"keys\"" },
   };
   for ( const auto & [ more, reason ] : cases ) {
      const auto message = connection( more );
      EXPECT_EQ( message, reason );
      EXPECT_THAT( message, Not( HasSubstr( "5345435245" ) ) );
   }
   EXPECT_EQ( table().connections(), 0u );
   ASSERT_EQ( connection( "" ), "" );
   EXPECT_EQ( tell( "ipsec", "{name: site-c, id: 5}" ),
              "IPsec connection site-c: id 5 in VRF default is that of site-b" );
}

TEST_F( IpsecHost, whatAConnectionLeansOnStays ) {
   ASSERT_EQ( tell( "vrf", "red" ), "" );
   ASSERT_EQ( tell( "ipsec", "{name: site-b, id: 5, vrf: red, interfaces: Tunnel1}" ), "" );
   EXPECT_EQ( state.intfDel( Kynet::IntfId::fromString( "Tunnel1" ).value() ).message,
              "interface Tunnel1: IPsec connection site-b has it" );
   EXPECT_EQ( state.vrfDel( L3::VrfName( "red" ) ).message, "VRF red: IPsec connection site-b is in it" );
   EXPECT_EQ( tell( "tunnel", "{name: Tunnel1, source: 192.0.2.1, destination: 198.51.100.9}", Teller::command() ),
              "interface Tunnel1: IPsec connection site-b has it, and its mode stays" );
   EXPECT_EQ( state.ipsecDel( "site-b" ).message, "" );
   EXPECT_EQ( state.intfDel( Kynet::IntfId::fromString( "Tunnel1" ).value() ).message, "" );
   EXPECT_EQ( state.vrfDel( L3::VrfName( "red" ) ).message, "" );
}

TEST_F( IpsecHost, aRekeyLeavesTheAgeOfWhatStays ) {
   auto & loop = *Gant::activityManager();
   loop.manualTimeIs( loop.now() );
   const double first = loop.now(), second = first + 60;
   ASSERT_EQ( connection( "outbound: " + saText( "8192" ) + ", inbound: [" + saText( "4096" ) + "]" ), "" );
   loop.manualTimeIs( second );
   ASSERT_EQ( connection( "outbound: " + saText( "8193" ) + ", inbound: [" + saText( "4096" ) + ", " +
                          saText( "4097" ) + "]" ),
              "" );
   const auto & made = table().connection( key );
   EXPECT_EQ( made.outSa()->agreedAt(), second );
   EXPECT_EQ( made.inSaq().saq( 0 ).agreedAt(), first );
   EXPECT_EQ( made.inSaq().saq( 1 ).agreedAt(), second );
}

TEST_F( IpsecHost, anEntryThatIsForgottenHoldsNoKey ) {
   const Entry entry( YAML::Load( "{name: site-b, id: 5, inbound: [" + saText( "4096" ) + "]}" ) );
   sectionOfKind( "ipsec" ).forget( entry );
   EXPECT_THAT( YAML::Dump( entry.node() ), Not( HasSubstr( "6369706865722d" ) ) );
}

} // namespace
} // namespace Host
