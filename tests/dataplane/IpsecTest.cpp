// Crypto devices, security associations and the modules that use them.

#include "DpTestRouter.h"

#include "DpEsp.h"
#include "DpIpsecManagement.h"
#include "DpListing.h"

#include "vex/ipsec.pb.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <atomic>
#include <set>
#include <sstream>
#include <thread>

namespace {

using namespace DpTest;

using Fields = std::map< std::string, std::string >;

constexpr const char * kCipherKey = "Cipher-Key-Of-16";
constexpr const char * kAuthKey = "Auth-Key-Of-20-Bytes";

// An association of AES-CBC with SHA-1 in tunnel mode, with fields changed, or with an empty value left out.
std::string entry( const Fields & changed = {} ) {
   Fields fields = { { "sa_spi", "257" },
                     { "sa_type", "0" },
                     { "family", "2" },
                     { "proto", "50" },
                     { "flags", "1" },
                     { "src_addr", "@192.0.2.1" },
                     { "dst_addr", "@192.0.2.2" },
                     { "cipher_algorithm", "5" },
                     { "auth_algorithm", "10" },
                     { "crypto_info", fmt::format( "'{}'", kCipherKey ) },
                     { "crypto_info_len", "128" },
                     { "auth_info", fmt::format( "'{}'", kAuthKey ) },
                     { "auth_info_len", "160" },
                     { "replay_window", "64" },
                     { "encap_type", "0" },
                     { "tunnel_type", "1" } };
   for ( const auto & [ name, value ] : changed ) fields[ name ] = value;
   std::string text = "saentries { ";
   for ( const auto & [ name, value ] : fields )
      if ( !value.empty() ) text += fmt::format( "{}: {} ", name, value );
   return text + "} ";
}

Fields gcm( const Fields & changed = {} ) {
   Fields fields = {
        { "cipher_algorithm", "2" },  { "auth_algorithm", "1" }, { "crypto_info", "'Cipher-Key-Of-16Salt'" },
        { "crypto_info_len", "160" }, { "auth_info", "" },       { "auth_info_len", "0" },
        { "icv_len", "16" } };
   for ( const auto & [ name, value ] : changed ) fields[ name ] = value;
   return fields;
}

const Fields kNullWithSha256 = { { "cipher_algorithm", "1" },
                                 { "auth_algorithm", "14" },
                                 { "crypto_info", "" },
                                 { "crypto_info_len", "0" },
                                 { "auth_info", "'Auth-Key-Of-32-Bytes-0123456789A'" },
                                 { "auth_info_len", "256" } };

std::string update( const std::string & entries, const std::string & key = "vrf: 0 encap_id: 7 sa_direction: 1" ) {
   return fmt::format( "mgmt updateIpsecSAs {} {}\n", key, entries );
}

constexpr const char * kManagement = R"(
   create mgmt IpsecManagement max_ipsec_sas: 3 max_ipsec_policies: 4
   mgmt initVirtDevice crypto_dev_name: 'crypto_openssl' max_nb_queue_pairs: 128 max_nb_sessions: 2 socket_id: -1
)";
constexpr const char * kNullDevice =
     "mgmt initVirtDevice crypto_dev_name: 'crypto_null' max_nb_queue_pairs: 1 max_nb_sessions: 1\n";

TEST( IpsecManagement, anAssociationThatCannotWorkIsRefusedByItsSpi ) {
   Refusals expected;
   // Behind a good one, so that half an update would show.
   const auto add = [ &expected ]( const Fields & changed, const std::string & error, const std::string & why ) {
      expected.emplace_back( update( entry( { { "sa_spi", "301" } } ) + entry( changed ) ),
                             error + " mgmt: updateIpsecSAs: " + why );
   };
   add( { { "sa_spi", "" } }, "EINVAL", "saentries.sa_spi is missing" );
   for ( const auto * spi : { "0", "255" } )
      add( { { "sa_spi", spi } }, "EINVAL", fmt::format( "sa_spi {} is reserved, as all up to 255", spi ) );
   // Each line: the fields that are changed, in a base that may be named first, and what is said of the association.
   std::istringstream lines( R"(
      sa_type=1 => EINVAL sa_type 1 is unknown
      family=10 => EINVAL family 10 is not IPv4
      proto=51 => EINVAL proto 51 is not ESP, 50
      proto= => EINVAL proto is missing
      flags=3 => EINVAL flags 3 are neither tunnel mode, 1, nor transport mode, 2
      dst_addr=0 => EINVAL from 192.0.2.1 to 0.0.0.0 is no way
      cipher_algorithm=0 => EINVAL cipher_algorithm 0 is unknown
      auth_algorithm=0 => EINVAL auth_algorithm 0 is unknown
      crypto_info_len=16 => EINVAL crypto_info_len 16 is not 128 or 192 or 256 bits, which AES-CBC takes
      crypto_info_len=256 => EINVAL crypto_info has 16 bytes instead of the 32 of 256 bits
      crypto_info= => EINVAL crypto_info has 0 bytes instead of the 16 of 128 bits
      auth_info_len=20 => EINVAL auth_info_len 20 is not 160 bits, which HMAC-SHA1-96 takes
      auth_algorithm=1 => EINVAL auth_info_len 160 is not 0 bits, which no authentication takes
      icv_len=96 => EINVAL icv_len 96 is not 12 bytes, which HMAC-SHA1-96 takes
      GCM icv_len=128 => EINVAL icv_len 128 is not 16 or 12 or 8 bytes, which AES-GCM takes
      GCM icv_len= => EINVAL icv_len is missing
      GCM crypto_info_len=128 => EINVAL crypto_info_len 128 is not 160 or 224 or 288 bits, which AES-GCM takes
      GCM auth_algorithm=10 => EINVAL AES-GCM authenticates, and HMAC-SHA1-96 beside it
      cipher_algorithm=1 auth_algorithm=1 => EINVAL it neither encrypts nor authenticates
      replay_window=4097 => ERANGE replay_window 4097 is out of range, at most 4096
      encap_type= => EINVAL encap_type is missing
      encap_type=2 => EINVAL encap_type 2 is unknown
      encap_type=1 encap_src_port=4500 => EINVAL UDP encapsulation has no ports
      encap_type=1 encap_src_port=4500 encap_dst_port=65536 => ERANGE encap_dst_port 65536 is out of range, at most 65535
      tunnel_type=3 => ERANGE tunnel_type 3 is out of range, at most 2
      NULL => ENODEV crypto device crypto_null is not up
   )" );
   for ( std::string line; std::getline( lines, line ); ) {
      std::istringstream in( line );
      Fields changed;
      std::string word;
      while ( in >> word && word != "=>" )
         if ( const auto at = word.find( '=' ); at != word.npos )
            changed[ word.substr( 0, at ) ] = word.substr( at + 1 );
         else
            changed = word == "GCM" ? gcm() : kNullWithSha256;
      if ( in >> word ) add( changed, word, "SA 0x00000101:" + line.substr( line.find( word ) + word.size() ) );
   }
   expectRefusals( kManagement + update( entry( { { "sa_spi", "300" } } ) ), expected );
   EXPECT_EQ( expected.size(), 29u );
}

TEST( IpsecManagement, whatDoesNotFitIsRefusedAsAWhole ) {
   const std::string device = "mgmt initVirtDevice crypto_dev_name: ";
   expectRefusals( "create mgmt IpsecManagement",
                   {
                        { update( entry() ),
                          "ENODEV mgmt: updateIpsecSAs: SA 0x00000101: crypto device crypto_openssl is not up" },
                        { device + "'crypto_qat' max_nb_queue_pairs: 1 max_nb_sessions: 1",
                          "ENOENT mgmt: initVirtDevice: there is no crypto driver \"crypto_qat\"" },
                        { device + "'crypto_null' max_nb_queue_pairs: 1 max_nb_sessions: 0",
                          "ERANGE mgmt: initVirtDevice: max_nb_sessions 0 leaves no room" },
                        { device + "'crypto_null' max_nb_sessions: 1",
                          "EINVAL mgmt: initVirtDevice: max_nb_queue_pairs is missing" },
                        { device + "'crypto_null' max_nb_queue_pairs: 1 max_nb_sessions: 1 socket_id: -2",
                          "ERANGE mgmt: initVirtDevice: socket_id -2 is out of range, at least -1, which is any" },
                        { "create other IpsecManagement",
                          "EEXIST other: CreateModule: class IpsecManagement has its one module, mgmt" },
                   } );
   expectRefusals( "", { { "create mgmt IpsecManagement max_ipsec_sas: 0",
                           "ERANGE mgmt: CreateModule: max_ipsec_sas 0 leaves no room" } } );
   // Two of the three associations that the table holds, and both of the device's sessions.
   const auto sa = []( const char * spi ) { return entry( { { "sa_spi", spi } } ); };
   expectRefusals(
        kManagement + std::string( kNullDevice ) + update( entry() ) +
             update( sa( "258" ), "vrf: 0 encap_id: 8 sa_direction: 1" ),
        {
             { update( sa( "259" ), "vrf: 0 encap_id: 9 sa_direction: 0" ),
               "ENOSPC mgmt: updateIpsecSAs: SA 0x00000103: crypto device crypto_openssl has 2 of 2 sessions" },
             { update( entry() + sa( "259" ) + sa( "260" ) ),
               "ENOSPC mgmt: updateIpsecSAs: no room for the 3 SAs of connection 7 in VRF 0, the table has 2 of 3" },
             { update( entry() + entry() ), "EEXIST mgmt: updateIpsecSAs: SA 0x00000101 to 192.0.2.2 is told twice" },
             { update( sa( "258" ) ),
               "EEXIST mgmt: updateIpsecSAs: SA 0x00000102 to 192.0.2.2 is of connection 8 in VRF 0" },
             { update( "" ), "EINVAL mgmt: updateIpsecSAs: saentries is missing" },
             { update( entry(), "encap_id: 7 sa_direction: 1" ), "EINVAL mgmt: updateIpsecSAs: vrf is missing" },
             { update( entry(), "vrf: 0 encap_id: 7 sa_direction: 2" ),
               "ERANGE mgmt: updateIpsecSAs: sa_direction 2 is out of range, at most 1" },
             { "mgmt deleteIpsecSAs vrf: 0 encap_id: 7", "EINVAL mgmt: deleteIpsecSAs: sa_direction is missing" },
             { kNullDevice, "EEXIST mgmt: initVirtDevice: crypto device crypto_null is up already" },
        } );
}

TEST( IpsecManagement, anUpdateReplacesItsKeyAndFreesWhatItHeld ) {
   Plane plane;
   plane.set( std::string( kManagement ) + kNullDevice );
   const auto listed = [ &plane ] {
      bess::pb::ListModulesResponse modules;
      plane.engine.list( modules );
      return modules.modules( 0 ).desc();
   };
   // The same connection in two VRFs, and in both directions.
   plane.set( update( entry() ) + update( entry( gcm() ), "vrf: 1 encap_id: 7 sa_direction: 0" ) );
   EXPECT_EQ( listed(), "2 of 3 SAs, crypto_null 0 of 1 sessions, crypto_openssl 2 of 2 sessions" );
   plane.set( update( entry( { { "sa_spi", "258" } } ) ) );
   EXPECT_EQ( listed(), "2 of 3 SAs, crypto_null 0 of 1 sessions, crypto_openssl 2 of 2 sessions" );
   plane.set( update( entry( kNullWithSha256 ) ) );
   EXPECT_EQ( listed(), "2 of 3 SAs, crypto_null 1 of 1 sessions, crypto_openssl 2 of 2 sessions" );
   // The agent deletes both directions of a connection, whatever they held.
   plane.set( R"(
      mgmt deleteIpsecSAs vrf: 0 encap_id: 7 sa_direction: 0
      mgmt deleteIpsecSAs vrf: 0 encap_id: 7 sa_direction: 1
      mgmt deleteIpsecSAs vrf: 1 encap_id: 7 sa_direction: 0
   )" );
   EXPECT_EQ( listed(), "0 of 3 SAs, crypto_null 0 of 1 sessions, crypto_openssl 0 of 2 sessions" );
   // The SPI is free again.
   plane.set( update( entry(), "vrf: 0 encap_id: 8 sa_direction: 1" ) );
}

TEST( IpsecManagement, aKeyIsToldByItsLengthAlone ) {
   Plane plane;
   plane.set( std::string( kManagement ) + update( entry() ) );
   std::string told;
   for ( const auto & line : plane.dump() ) told += line + "\n";
   EXPECT_NE( told.find( "mgmt updateIpsecSAs vrf: 0 encap_id: 7 sa_direction: 1 saentries { sa_spi: 257 sa_type: 0 "
                         "family: 2 proto: 50 flags: 1 src_addr: 3221225985 dst_addr: 3221225986 cipher_algorithm: 5 "
                         "auth_algorithm: 10 crypto_info_len: 128 auth_info_len: 160 replay_window: 64 encap_type: 0 "
                         "tunnel_type: 1 }" ),
              std::string::npos )
        << told;
   bess::pb::ListModulesResponse modules;
   plane.engine.list( modules );
   told += modules.ShortDebugString();
   vex::pb::BatchReply reply;
   plane.engine.apply(
        plane.reader.batch( update( entry( { { "crypto_info_len", "256" } } ) ) + update( entry() + entry() ) ),
        reply );
   ASSERT_EQ( reply.refusal_size(), 2 );
   for ( const auto & refusal : reply.refusal() ) told += refusal.SerializeAsString();
   for ( const std::string key : { kCipherKey, kAuthKey } )
      EXPECT_EQ( told.find( key.substr( 0, 6 ) ), std::string::npos ) << told;
}

// A tunnel out, and the way back in, of connection 7 in VRF 0 with the same associations in both directions.
class IpsecRouter {
 public:
   explicit IpsecRouter( const std::shared_ptr< Surroundings > & surroundings = std::make_shared< Surroundings >(),
                         Side side = 0 ) :
        router( surroundings, side ) {
      router.set( R"(
         create mgmt IpsecManagement
         mgmt initVirtDevice crypto_dev_name: 'crypto_openssl' max_nb_queue_pairs: 1 max_nb_sessions: 10
         mgmt initVirtDevice crypto_dev_name: 'crypto_null' max_nb_queue_pairs: 1 max_nb_sessions: 10
         create out IpsecTunnelEgress vrf: 0 encap_id: 7 local_out: 0
         create own IpsecTunnelEgress vrf: 0 encap_id: 7 local_out: 1
         create in IpsecTunnelIngress
         create decrypt IpsecDecrypt
         create encrypt IpsecEncrypt
         connect out:0 IpInput_et1:0
         connect own:0 IpInput_et1:0
         connect in:0 IpInput_et1:0
         connect decrypt:0 IpInput_et1:0
         connect encrypt:0 IpInput_et1:0
      )" );
      for ( const auto * gate : { "out:0", "own:0", "in:0", "decrypt:0", "encrypt:0" } ) router.tap( gate );
   }

   void associate( const std::string & entries ) {
      router.set( update( entries, "vrf: 0 encap_id: 7 sa_direction: 0" ) + update( entries ) );
   }
   // What leaves the module; nothing when it drops the packet.
   std::optional< Bytes > through( const std::string & module, Packet packet ) {
      auto & tapped = router.tapped( module + ":0" );
      tapped.clear();
      router.run( module, std::move( packet ) );
      return tapped.empty() ? std::nullopt : std::optional( tapped.front() );
   }
   static Packet packetOf( const Bytes & bytes ) {
      Packet packet( bytes.size() );
      std::ranges::copy( bytes, packet.data() );
      return packet;
   }
   Bytes sealed( const std::string & described = kTransit ) {
      return through( "out", Router::described( described ) ).value_or( Bytes() );
   }
   std::uint32_t sequenceOf( const Bytes & sealed ) { return get32( &sealed.at( 24 ) ); }

   static constexpr const char * kTransit = "src: @10.9.0.1 dst: @10.3.0.7 proto: 17 sport: 1 dport: 2 dscp: 10";
   Router router;
};

class Ipsec : public testing::Test, protected IpsecRouter {};

std::string toNat( std::string request ) { return request.replace( request.find( "10.3.0.7" ), 8, "192.0.2.2" ); }

TEST_F( Ipsec, theFirstConnectionBetweenTwoHostsHasTheirPacketsAndTheNextWhenItGoes ) {
   const auto connection = []( unsigned id ) { return fmt::format( "vrf: 0 encap_id: {} sa_direction: 0", id ); };
   const auto transport = []( const char * spi ) {
      return entry( { { "flags", "2" }, { "sa_spi", spi }, { "src_addr", "@10.9.0.1" }, { "dst_addr", "@10.3.0.7" } } );
   };
   const auto spi = [ this ] {
      const auto bytes = through( "encrypt", Router::described( kTransit ) ).value();
      return bytes[ 9 ] == 50 ? get32( &bytes.at( 20 ) ) : 0;
   };
   EXPECT_EQ( spi(), 0u );
   router.set( update( transport( "600" ), connection( 9 ) ) );
   EXPECT_EQ( spi(), 600u );
   // the newest of the first connection, as long as it is between the two
   router.set( update( transport( "500" ) + transport( "501" ), connection( 8 ) ) );
   EXPECT_EQ( spi(), 501u );
   router.set( update( transport( "501" ) + entry( { { "sa_spi", "502" } } ), connection( 8 ) ) );
   EXPECT_EQ( spi(), 600u );
   router.set( update( transport( "503" ), connection( 8 ) ) );
   EXPECT_EQ( spi(), 503u );
   router.set( "mgmt deleteIpsecSAs " + connection( 8 ) );
   EXPECT_EQ( spi(), 600u );
   router.set( "mgmt deleteIpsecSAs " + connection( 9 ) );
   EXPECT_EQ( spi(), 0u );
}

TEST_F( Ipsec, whatGoesOutComesBackWithEveryAlgorithmModeAndLength ) {
   const Fields transport = { { "flags", "2" } };
   const Fields udp = { { "encap_type", "1" }, { "encap_src_port", "4500" }, { "encap_dst_port", "4501" } };
   const Fields aes256 = { { "crypto_info", "'0123456789ABCDEF0123456789ABCDEF'" }, { "crypto_info_len", "256" } };
   const Fields gcm256 = gcm( { { "crypto_info", "'0123456789ABCDEF0123456789ABCDEFSalt'" },
                                { "crypto_info_len", "288" },
                                { "icv_len", "8" } } );
   for ( const auto & algorithms : { Fields(), aes256, gcm(), gcm256, kNullWithSha256 } ) {
      for ( const bool inTransport : { false, true } ) {
         for ( const bool inUdp : { false, true } ) {
            Fields fields = algorithms;
            if ( inTransport ) fields.insert( transport.begin(), transport.end() );
            if ( inUdp ) fields.insert( udp.begin(), udp.end() );
            associate( entry( fields ) );
            for ( unsigned length = 28; length < 64; ++length ) {
               const auto request = fmt::format( "{} length: {}", kTransit, length );
               const auto bytes = sealed( request );
               ASSERT_GT( bytes.size(), length );
               // The front is a right IPv4 header, and nothing behind it is of the inner packet.
               const auto front = decodedIpv4( bytes );
               const auto way =
                    inTransport ? "10.9.0.1 > 10.3.0.7 ttl 63 tos 40" : "192.0.2.1 > 192.0.2.2 ttl 64 tos 40";
               EXPECT_TRUE( front.starts_with( fmt::format( "{} len {} | ", way, bytes.size() ) ) ) << front;
               EXPECT_EQ( bytes[ 9 ], inUdp ? 17 : 50 );
               if ( inUdp ) {
                  EXPECT_EQ( get32( &bytes[ 20 ] ), 4500u << 16 | 4501u );
               }
               // In transport mode the association's address is what is looked up.
               auto back = packetOf( bytes );
               if ( inTransport ) {
                  put32( back.data() + 16, ip( "192.0.2.2" ) );
                  Ipv4Header::of( back )->checksumRenew();
               }
               const auto opened = through( "in", std::move( back ) );
               ASSERT_TRUE( opened ) << entry( fields );
               // The checksum of UDP is for the address that it came to, as a NAT would have changed it.
               auto expected = Router::described( inTransport && inUdp ? toNat( request ) : request );
               Ipv4Header::of( expected )->ttlDecrement();
               if ( inTransport ) put32( expected.data() + 16, ip( "192.0.2.2" ) );
               if ( inTransport ) put16( expected.data() + 4, get16( &bytes[ 4 ] ) );
               Ipv4Header::of( expected )->checksumRenew();
               EXPECT_EQ( *opened, Bytes( expected.data(), expected.data() + expected.size() ) );
            }
         }
      }
   }
}

// Read by hand, from the formats of RFC 4303, 3602, 2404 and 4106.
TEST_F( Ipsec, thePacketIsWhatAnotherImplementationReads ) {
   const auto inner = [] {
      auto packet = Router::described( kTransit );
      Ipv4Header::of( packet )->ttlDecrement();
      return Bytes( packet.data(), packet.data() + packet.size() );
   }();
   const auto decrypted = []( const EVP_CIPHER * cipher, const Bytes & iv, const std::uint8_t * at, std::size_t len ) {
      auto * context = EVP_CIPHER_CTX_new();
      Bytes plain( len );
      int n = 0;
      EVP_DecryptInit_ex( context, cipher, nullptr, reinterpret_cast< const std::uint8_t * >( kCipherKey ), iv.data() );
      EVP_CIPHER_CTX_set_padding( context, 0 );
      EVP_DecryptUpdate( context, plain.data(), &n, at, int( len ) );
      EVP_CIPHER_CTX_free( context );
      return plain;
   };

   associate( entry() );
   auto bytes = sealed();
   // 20 outer, 8 ESP, 16 IV, 32 of 28 and trailer, 12 ICV
   ASSERT_EQ( bytes.size(), 88u );
   EXPECT_EQ( get32( &bytes[ 20 ] ), 257u );
   EXPECT_EQ( get32( &bytes[ 24 ] ), 1u );
   auto plain = decrypted( EVP_aes_128_cbc(), Bytes( &bytes[ 28 ], &bytes[ 44 ] ), &bytes[ 44 ], 32 );
   EXPECT_EQ( Bytes( plain.begin(), plain.begin() + 28 ), inner );
   EXPECT_EQ( Bytes( plain.begin() + 28, plain.end() ), ( Bytes{ 1, 2, 2, 4 } ) );
   Bytes digest( 20 );
   HMAC( EVP_sha1(), kAuthKey, 20, &bytes[ 20 ], 56, digest.data(), nullptr );
   EXPECT_EQ( Bytes( bytes.begin() + 76, bytes.end() ), Bytes( digest.begin(), digest.begin() + 12 ) );

   associate( entry( gcm() ) );
   bytes = sealed();
   // 20 outer, 8 ESP, 8 IV, 32 of 28 and trailer, 16 ICV
   ASSERT_EQ( bytes.size(), 84u );
   Bytes nonce = { 'S', 'a', 'l', 't' };
   nonce.insert( nonce.end(), &bytes[ 28 ], &bytes[ 36 ] );
   plain = decrypted( EVP_aes_128_gcm(), nonce, &bytes[ 36 ], 32 );
   EXPECT_EQ( Bytes( plain.begin(), plain.begin() + 28 ), inner );
   EXPECT_EQ( Bytes( plain.begin() + 28, plain.end() ), ( Bytes{ 1, 2, 2, 4 } ) );
   // The same association anew goes on where it was: no number and no nonce comes twice.
   router.set( "mgmt deleteIpsecSAs vrf: 0 encap_id: 7 sa_direction: 0" );
   associate( entry( gcm() ) );
   const auto anew = sealed();
   EXPECT_EQ( sequenceOf( anew ), 2u );
   EXPECT_FALSE( std::equal( &anew[ 28 ], &anew[ 36 ], &bytes[ 28 ] ) );
}

TEST_F( Ipsec, noBytesButTheSendersAreOpened ) {
   for ( const auto & fields : { Fields(), gcm(), kNullWithSha256 } ) {
      associate( entry( fields ) );
      const auto bytes = sealed();
      for ( std::size_t i = 20; i < bytes.size(); ++i ) {
         auto changed = bytes;
         changed[ i ] ^= 0x40;
         EXPECT_FALSE( through( "in", packetOf( changed ) ) ) << "byte " << i;
      }
      for ( std::size_t size = 20; size < bytes.size(); ++size ) {
         Bytes cut( bytes.begin(), bytes.begin() + std::ptrdiff_t( size ) );
         put16( &cut[ 2 ], std::uint16_t( size ) );
         EXPECT_FALSE( through( "in", packetOf( cut ) ) ) << size << " bytes";
      }
      EXPECT_TRUE( through( "in", packetOf( bytes ) ) );
      EXPECT_FALSE( through( "in", packetOf( bytes ) ) ) << "it came twice";
   }
}

TEST_F( Ipsec, aPacketMayComeLateButNotTwiceAndNotTooLate ) {
   associate( entry( { { "replay_window", "4" } } ) );
   std::vector< Bytes > sent;
   for ( int i = 0; i < 12; ++i ) sent.push_back( sealed() );
   const struct {
      std::uint32_t sequence;
      bool taken;
   } cases[] = { { 3, true },  { 1, true },  { 2, true },  { 3, false }, { 5, true },
                 { 1, false }, { 4, true },  { 2, false }, { 12, true }, { 8, false },
                 { 9, true },  { 11, true }, { 10, true }, { 9, false }, { 5, false } };
   for ( const auto & given : cases )
      EXPECT_EQ( through( "in", packetOf( sent[ given.sequence - 1 ] ) ).has_value(), given.taken ) << given.sequence;
}

TEST( IpsecWorkers, noNumberIsSentTwiceAndNoPacketIsTakenTwiceWhoeverHasIt ) {
   constexpr unsigned kWorkers = 4, kEach = 500;
   for ( const auto & fields :
         { entry( { { "replay_window", "4096" } } ), entry( gcm( { { "replay_window", "4096" } } ) ) } ) {
      IpsecRouter router( std::make_shared< Surroundings >( kWorkers ), 0 );
      router.associate( fields );
      const auto & management = *router.router.graph.shared< IpsecManagement >();
      auto & out = *management.outbound( 0, 7 );
      auto & in = *management.inbound( out.spi(), out.dst() );
      const auto together = []( const auto & work ) {
         std::vector< std::thread > threads;
         for ( unsigned worker = 0; worker < kWorkers; ++worker )
            threads.emplace_back( work, Seat{ worker, kWorkers } );
         for ( auto & thread : threads ) thread.join();
      };
      std::array< std::vector< Packet >, kWorkers > sent;
      together( [ & ]( const Seat & seat ) {
         for ( unsigned i = 0; i < kEach; ++i ) {
            auto & packet = sent[ seat.worker ].emplace_back( Router::described( IpsecRouter::kTransit ) );
            EXPECT_EQ( espSeal( out, packet, true, seat ), nullptr );
         }
      } );
      std::set< std::uint32_t > numbers;
      for ( const auto & packets : sent )
         for ( const auto & packet : packets ) numbers.insert( get32( packet.data() + 24 ) );
      EXPECT_EQ( numbers.size(), kWorkers * kEach );
      EXPECT_EQ( *numbers.rbegin(), kWorkers * kEach );
      std::atomic< unsigned > taken = 0;
      together( [ & ]( const Seat & seat ) {
         for ( const auto & packets : sent )
            for ( auto packet : packets ) taken += espOpen( in, packet, true, seat ) == nullptr;
      } );
      EXPECT_EQ( taken, kWorkers * kEach );
   }
}

TEST_F( Ipsec, aRekeyTakesTheNewestOutAndBothIn ) {
   const Fields newer = { { "sa_spi", "258" } };
   associate( entry() );
   const auto late = sealed();
   EXPECT_EQ( sequenceOf( sealed() ), 2u );
   // Told again, it goes on; a sequence number never comes twice under a key.
   associate( entry() + entry( newer ) );
   EXPECT_EQ( get32( &sealed()[ 20 ] ), 258u );
   EXPECT_EQ( sequenceOf( sealed() ), 2u );
   EXPECT_TRUE( through( "in", packetOf( late ) ) );
   associate( entry() + entry( newer ) );
   EXPECT_FALSE( through( "in", packetOf( late ) ) ) << "an update doesn't forget what has come";
   EXPECT_EQ( sequenceOf( sealed() ), 3u );
   // The same SPI with another key is another association.
   associate( entry( { { "sa_spi", "258" }, { "auth_info", "'Auth-Key-Of-20-bytes'" } } ) );
   EXPECT_EQ( sequenceOf( sealed() ), 1u );
   EXPECT_FALSE( through( "in", packetOf( late ) ) );
}

TEST_F( Ipsec, anAssociationAnewOrWithAnotherWindowForgetsNothing ) {
   associate( entry() );
   const auto first = sealed();
   EXPECT_TRUE( through( "in", packetOf( first ) ) );
   for ( const auto * window : { "128", "0", "32" } ) {
      associate( entry( { { "replay_window", window } } ) );
      const auto next = sealed();
      EXPECT_TRUE( through( "in", packetOf( next ) ) ) << window;
      EXPECT_EQ( through( "in", packetOf( first ) ).has_value(), std::string( "0" ) == window ) << window;
   }
   EXPECT_EQ( sequenceOf( sealed() ), 5u );
   // Nobody authenticates: a forged number would shut the window.
   associate( entry( { { "auth_algorithm", "1" }, { "auth_info", "" }, { "auth_info_len", "0" } } ) );
   const auto plain = sealed();
   EXPECT_TRUE( through( "in", packetOf( plain ) ) && through( "in", packetOf( plain ) ) );
}

TEST_F( Ipsec, aGraphThatFollowsAnotherGoesOnWhereThatOneEndsWhoeverSendsMeanwhile ) {
   associate( entry() );
   const auto first = sealed();
   IpsecRouter next( router.surroundings, 1 );
   next.associate( entry() );
   const auto second = sealed();
   EXPECT_TRUE( through( "in", packetOf( first ) ) && through( "in", packetOf( second ) ) );
   EXPECT_FALSE( next.through( "in", packetOf( first ) ) || next.through( "in", packetOf( second ) ) );
   EXPECT_EQ( sequenceOf( next.sealed() ), 3u );
}

TEST( SaHistory, aKeyIsRememberedHoweverManyOthersAreInUse ) {
   SaHistory history;
   vex::pb::IpsecUpdateSAArg::IpsecSAEntry entry;
   std::vector< std::shared_ptr< SaUse > > uses;
   for ( std::uint32_t spi = 1; spi <= 2 * SaHistory::kMost + 2; ++spi ) {
      entry.set_sa_spi( spi );
      uses.push_back( history.of( SaDirection::outbound, entry ) );
   }
   uses[ 0 ]->sequence = 77;
   uses[ 0 ].reset();
   entry.set_sa_spi( 0 );
   uses.push_back( history.of( SaDirection::outbound, entry ) );
   entry.set_sa_spi( 1 );
   EXPECT_EQ( history.of( SaDirection::outbound, entry )->sequence, 77u );
}

TEST_F( Ipsec, nothingLeavesInTheClear ) {
   router.set( R"(
      create rx PortRx intfname: 'et8'
      connect rx:0 out:0
   )" );
   const auto told = [ this ]( const std::string & more ) {
      return router.trace( std::string( "intfname: 'et8' " ) + kTransit + more )[ 1 ];
   };
   EXPECT_EQ( told( "" ), "out: connection 7 in VRF 0 has no outbound SA" );
   associate( entry() );
   const std::string text = "out: SA 0x00000101, tunnel mode, AES-CBC of 128 bits, HMAC-SHA1-96, ESP from 192.0.2.1 to "
                            "192.0.2.2, sequence {} -> 0";
   EXPECT_EQ( told( "" ), fmt::format( fmt::runtime( text ), 1 ) );
   EXPECT_EQ( told( " count: true" ), fmt::format( fmt::runtime( text ), 1 ) ) << "a trace uses up nothing";
   EXPECT_EQ( told( "" ), fmt::format( fmt::runtime( text ), 2 ) );
   EXPECT_EQ( told( " ttl: 1" ), "out: the TTL expired" );
   EXPECT_EQ( router.end( std::string( "intfname: 'et8' " ) + kTransit + " ttl: 1" ),
              "local at trap: the TTL expired" );
   // The router's own packets keep their TTL.
   const auto own = through( "own", Router::described( std::string( kTransit ) + " ttl: 1" ) );
   ASSERT_TRUE( own );
   EXPECT_TRUE( decodedIpv4( *through( "in", packetOf( *own ) ) ).starts_with( "10.9.0.1 > 10.3.0.7 ttl 1 " ) );

   router.set( "mgmt deleteIpsecSAs vrf: 0 encap_id: 7 sa_direction: 0" );
   EXPECT_EQ( told( "" ), "out: connection 7 in VRF 0 has no outbound SA" );
   router.set( "destroy mgmt" );
   EXPECT_EQ( told( "" ), "out: connection 7 in VRF 0 has no outbound SA" );
}

TEST_F( Ipsec, betweenHostsOnlyWhatAnAssociationIsForIsProtected ) {
   associate( entry( { { "flags", "2" } } ) );
   const auto protectedOnes = Router::described( "src: @192.0.2.1 dst: @192.0.2.2 proto: 6 dport: 80" );
   const auto other = Router::described( "src: @192.0.2.1 dst: @192.0.2.3 proto: 17 sport: 9 dport: 4500 length: 40" );
   const auto bytesOf = []( const Packet & packet ) { return Bytes( packet.data(), packet.data() + packet.size() ); };
   const auto sealedOne = through( "encrypt", protectedOnes );
   ASSERT_TRUE( sealedOne );
   EXPECT_EQ( ( *sealedOne )[ 9 ], 50 );
   EXPECT_EQ( through( "decrypt", packetOf( *sealedOne ) ), bytesOf( protectedOnes ) );
   EXPECT_EQ( through( "encrypt", other ), bytesOf( other ) );
   EXPECT_EQ( through( "decrypt", other ), bytesOf( other ) );
   EXPECT_FALSE( through( "in", other ) );
   auto fragment = protectedOnes;
   put16( fragment.data() + 6, 0x2000 );
   EXPECT_FALSE( through( "encrypt", fragment ) );
}

} // namespace
