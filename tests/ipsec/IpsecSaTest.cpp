// Security associations on their way into messages.
#include "IpsecRouter.h"
#include "vex/ipsec.pb.h"
#include "VexDescribe.h"

#include <functional>

namespace Test {
namespace {

using Ipsec::Ike::SaMode;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

struct SaCase {
   const char * name;
   EncapIdType type;
   std::function< void( SecurityAssociation & ) > change;
   const char * entry;      // the message's entry in words
   const char * cryptoInfo; // and what the words leave out
   const char * authInfo;
};

void PrintTo( const SaCase & saCase, std::ostream * out ) { *out << saCase.name; }

void gcmOf( SecurityAssociation & sa ) {
   sa.cryptoAlgoIs( "rfc4106(gcm(aes))" );
   sa.cryptoKeyIs( KeyMaterial( "a-16-byte-key...salt" ) );
   sa.cryptoKeyLenIs( 160 );
   sa.authAlgoIs( "" );
   sa.authKeyIs( {} );
   sa.authKeyLenIs( 0 );
   sa.icvLenIs( 128 );
}

void udp( SecurityAssociation & sa ) {
   sa.encapTypeIs( 1 );
   sa.encapSrcPortIs( 4500 );
   sa.encapDstPortIs( 4501 );
}

#define IDENTITY "sa_spi 4096 sa_type 0 family 2 proto 50 "
#define ADDRESSES "src_addr 192.0.2.1 dst_addr 198.51.100.9 "

const SaCase saCases[] = {
     { "aesCbcWithSha1InTunnelMode", EncapIdType::IpsecVti(), []( auto & ) {},
       IDENTITY "flags 1 " ADDRESSES "cipher_algorithm 5 auth_algorithm 10 crypto_info <16 bytes> auth_info <20 bytes> "
                "crypto_info_len 128 auth_info_len 160 replay_window 64 encap_type 0 tunnel_type 1",
       cryptoSecret, authSecret },
     { "aesCbcWithSha256InTransportModeUnderGre", EncapIdType::IpsecGre(),
       []( auto & sa ) {
          sa.modeIs( SaMode::IPSEC_TRANSPORT_MODE() );
          sa.authAlgoIs( "hmac(sha256)" );
          sa.authKeyIs( KeyMaterial( "a key of thirty-two bytes, no :-" ) );
          sa.authKeyLenIs( 256 );
       },
       IDENTITY "flags 2 " ADDRESSES "cipher_algorithm 5 auth_algorithm 14 crypto_info <16 bytes> auth_info <32 bytes> "
                "crypto_info_len 128 auth_info_len 256 replay_window 64 encap_type 0 tunnel_type 2",
       cryptoSecret, "a key of thirty-two bytes, no :-" },
     { "aesGcmHasAnIcvAndNoAuthInfo", EncapIdType::IpsecVti(), gcmOf,
       IDENTITY "flags 1 " ADDRESSES "cipher_algorithm 2 auth_algorithm 1 crypto_info <20 bytes> "
                "crypto_info_len 160 auth_info_len 0 icv_len 16 replay_window 64 encap_type 0 tunnel_type 1",
       "a-16-byte-key...salt", "" },
     { "theNullCipherHasAnEmptyKey", EncapIdType::IpsecVti(),
       []( auto & sa ) {
          sa.cryptoAlgoIs( "cipher_null" );
          sa.cryptoKeyIs( {} );
          sa.cryptoKeyLenIs( 0 );
       },
       IDENTITY "flags 1 " ADDRESSES "cipher_algorithm 1 auth_algorithm 10 crypto_info <0 bytes> auth_info <20 bytes> "
                "crypto_info_len 0 auth_info_len 160 replay_window 64 encap_type 0 tunnel_type 1",
       "", authSecret },
     { "udpEncapsulationBringsItsPorts", EncapIdType::IpsecGre(), udp,
       IDENTITY "flags 1 " ADDRESSES "cipher_algorithm 5 auth_algorithm 10 crypto_info <16 bytes> auth_info <20 bytes> "
                "crypto_info_len 128 auth_info_len 160 replay_window 64 encap_type 1 encap_src_port 4500 "
                "encap_dst_port 4501 tunnel_type 2",
       cryptoSecret, authSecret },
};

class Sa : public testing::TestWithParam< SaCase > {};

TEST_P( Sa, becomesThisEntry ) {
   IpsecRouter router;
   auto sa = aesSha1( 4096 );
   GetParam().change( sa );
   vex::pb::IpsecUpdateSAArg arg;
   router.helper->addSaToUpdateSaArg( arg, EncapId( 5, GetParam().type ), sa );
   ASSERT_EQ( arg.saentries_size(), 1 );
   EXPECT_EQ( Vex::describe( arg.saentries( 0 ) ), GetParam().entry );
   EXPECT_EQ( arg.saentries( 0 ).crypto_info(), GetParam().cryptoInfo );
   EXPECT_EQ( arg.saentries( 0 ).auth_info(), GetParam().authInfo );
}

INSTANTIATE_TEST_SUITE_P( Ipsec, Sa, testing::ValuesIn( saCases ),
                          []( const auto & info ) { return Gant::String( info.param.name ); } );

// The lines of a message of associations that differ in their SPI.
Gant::String update( const char * direction, std::initializer_list< U32 > spis ) {
   auto out = Gant::textsOf( "ipsecManagementModule updateIpsecSAs vrf 0 encap_id 5 sa_direction ", direction );
   for ( const U32 spi : spis )
      out += Gant::textsOf( " saentries {sa_spi ", spi, " ", saCases[ 0 ].entry + std::strlen( "sa_spi 4096 " ), "}" );
   return out;
}

TEST_F( IpsecTest, aRekeyBringsTheWholeQueueAndLeavesTheFlow ) {
   const auto key = connectionKey( 5, EncapIdType::IpsecVti(), "red" );
   router.table->connectionIs( key, connection( {}, { 4096 }, 8192 ) );
   // Also in another VRF the message says the default one.
   EXPECT_THAT( router.take(), ElementsAre( update( "0", { 8192 } ), update( "1", { 4096 } ) ) );
   const Lines flow{ "50 192.0.2.1:0 -> 198.51.100.9:0 spi 0x00001000" };
   EXPECT_EQ( router.flows(), flow );

   router.table->connectionIs( key, connection( {}, { 4096, 4097 }, 8192 ) );
   EXPECT_THAT( router.take(), ElementsAre( update( "1", { 4096, 4097 } ) ) );
   EXPECT_THAT( traced( "VexIpsecHelper" ),
                Contains( "IpsecHelper::setFlowKey Flowkey add: entry exists for spi = 0x00001000 192.0.2.1 -> "
                          "198.51.100.9 protocol 50, skipping spi = 0x00001001" ) );
   // What the peer may send with comes before what this end sends with.
   router.table->connectionIs( key, connection( {}, { 4097 }, 8193 ) );
   EXPECT_THAT( router.take(), ElementsAre( update( "1", { 4097 } ), update( "0", { 8193 } ) ) );
   EXPECT_EQ( router.flows(), flow );
   EXPECT_EQ( router.managementSm->flowEntryIterator().begin()->second, 1u );
}

TEST_F( IpsecTest, theFlowIsThatOfTheNewestAssociationAndOfItsUdpPorts ) {
   HulIpsec::SecurityAssociationQueue saq;
   saq.saqEnq( aesSha1( 4096 ) );
   auto newest = aesSha1( 4097 );
   udp( newest );
   saq.saqEnq( newest );
   Connection made;
   made.inSaqIs( saq );
   router.table->connectionIs( connectionKey( 5 ), made );
   EXPECT_THAT( router.flows(), ElementsAre( "17 192.0.2.1:4500 -> 198.51.100.9:4501 spi 0x00001001" ) );
}

TEST_F( IpsecTest, anEmptyDirectionIsDeleted ) {
   const auto key = connectionKey( 5 );
   router.table->connectionIs( key, connection( {}, { 4096 }, 8192 ) );
   router.take();
   router.table->connectionIs( key, connection( {}, {}, std::nullopt ) );
   EXPECT_EQ( router.take(), lines( R"(
      ipsecManagementModule deleteIpsecSAs vrf 0 encap_id 5 sa_direction 1
      ipsecManagementModule deleteIpsecSAs vrf 0 encap_id 5 sa_direction 0
   )" ) );
   // The flow stays until the connection goes.
   EXPECT_EQ( router.flows().size(), 1u );
   router.table->connectionDel( key );
   EXPECT_THAT( router.flows(), IsEmpty() );
}

} // namespace
} // namespace Test
