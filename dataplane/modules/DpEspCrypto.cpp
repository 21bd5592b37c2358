#include "DpEspCrypto.h"

#include "DpIpv4.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <algorithm>

namespace Vexdp {

namespace {

constexpr std::size_t kSaltLen = 4;
constexpr std::size_t kGcmIvLen = 8;
constexpr std::size_t kCbcBlockLen = 16;
// Payload and trailer end at a multiple of this whatever the cipher is (RFC 4303, section 2.4).
constexpr std::size_t kAlignment = 4;

const EVP_CIPHER * cbcOf( std::size_t keyLen ) {
   return keyLen == 16 ? EVP_aes_128_cbc() : keyLen == 24 ? EVP_aes_192_cbc() : EVP_aes_256_cbc();
}

const EVP_CIPHER * gcmOf( std::size_t keyLen ) {
   return keyLen == 16 ? EVP_aes_128_gcm() : keyLen == 24 ? EVP_aes_192_gcm() : EVP_aes_256_gcm();
}

} // namespace

// The library's interface to HMAC allocates for each message; its hashes themselves don't, and begin again from a copy
// of what the key left them in (RFC 2104, section 4).
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

class EspSession::Hmac {
 public:
   Hmac( bool sha256, ConstByteSpan key ) : sha256_( sha256 ) {
      begin( inner_, key, 0x36 );
      begin( outer_, key, 0x5c );
   }
   ~Hmac() {
      OPENSSL_cleanse( &inner_, sizeof inner_ );
      OPENSSL_cleanse( &outer_, sizeof outer_ );
   }

   // The first bytes of the code.
   void of( ConstByteSpan bytes, ByteSpan code ) const {
      std::array< std::uint8_t, SHA256_DIGEST_LENGTH > digest;
      const auto len = sha256_ ? SHA256_DIGEST_LENGTH : SHA_DIGEST_LENGTH;
      auto state = inner_;
      update( state, bytes );
      finish( state, digest );
      state = outer_;
      update( state, ConstByteSpan( digest ).first( len ) );
      finish( state, digest );
      std::copy_n( digest.begin(), code.size(), code.begin() );
   }

 private:
   union State {
      SHA_CTX sha1;
      SHA256_CTX sha256;
   };

   // REQUIRES: the key is no longer than a block
   void begin( State & state, ConstByteSpan key, std::uint8_t pad ) const {
      std::array< std::uint8_t, SHA_CBLOCK > block{}; // SHA-256 has the same size (FIPS 180-4)
      std::ranges::copy( key, block.begin() );
      for ( auto & byte : block ) byte ^= pad;
      if ( sha256_ )
         SHA256_Init( &state.sha256 );
      else
         SHA1_Init( &state.sha1 );
      update( state, block );
      OPENSSL_cleanse( block.data(), block.size() );
   }
   void update( State & state, ConstByteSpan bytes ) const {
      if ( sha256_ )
         SHA256_Update( &state.sha256, bytes.data(), bytes.size() );
      else
         SHA1_Update( &state.sha1, bytes.data(), bytes.size() );
   }
   void finish( State & state, ByteSpan digest ) const {
      if ( sha256_ )
         SHA256_Final( digest.data(), &state.sha256 );
      else
         SHA1_Final( digest.data(), &state.sha1 );
   }

   const bool sha256_;
   State inner_;
   State outer_;
};

#pragma GCC diagnostic pop

void EspSession::CipherFree::operator()( evp_cipher_ctx_st * context ) const { EVP_CIPHER_CTX_free( context ); }

EspSession::EspSession( const Keys & keys, unsigned workers ) :
     keys_( keys ), contexts_( workers ),
     hmac_( keys.auth == IpsecAuth::none ? nullptr
                                         : std::make_unique< Hmac >( keys.auth == IpsecAuth::sha256, keys.authKey ) ) {}

EspSession::~EspSession() = default;

// With the key in it, which a packet's own vector is added to. Null: the library refused.
evp_cipher_ctx_st * EspSession::ready( Context & context, bool encrypt ) {
   if ( context ) return context.get();
   Context made( EVP_CIPHER_CTX_new() );
   const bool gcm = keys_.cipher == IpsecCipher::aesGcm;
   const auto key = gcm ? keys_.cipherKey.first( keys_.cipherKey.size() - kSaltLen ) : keys_.cipherKey;
   const auto * cipher = gcm ? gcmOf( key.size() ) : cbcOf( key.size() );
   if ( !made || EVP_CipherInit_ex( made.get(), cipher, nullptr, key.data(), nullptr, encrypt ) != 1 ||
        EVP_CIPHER_CTX_set_padding( made.get(), 0 ) != 1 )
      return nullptr;
   context = std::move( made );
   return context.get();
}

bool EspSession::cbc( Context & context, const EspPieces & pieces, bool encrypt ) {
   auto * const at = ready( context, encrypt );
   auto & payload = pieces.payload;
   int len = 0;
   return at != nullptr && EVP_CipherInit_ex( at, nullptr, nullptr, nullptr, pieces.iv.data(), -1 ) == 1 &&
          EVP_CipherUpdate( at, payload.data(), &len, payload.data(), int( payload.size() ) ) == 1 &&
          std::size_t( len ) == payload.size();
}

// RFC 4106: the nonce is the salt, then the IV; SPI and sequence number are authenticated beside the payload.
bool EspSession::gcm( Context & context, const EspPieces & pieces, bool encrypt ) {
   auto * const at = ready( context, encrypt );
   std::array< std::uint8_t, kSaltLen + kGcmIvLen > nonce;
   std::ranges::copy( keys_.cipherKey.last( kSaltLen ), nonce.begin() );
   std::ranges::copy( pieces.iv, nonce.begin() + kSaltLen );
   auto & payload = pieces.payload;
   const auto icv = pieces.icv;
   int len = 0;
   if ( at == nullptr || EVP_CipherInit_ex( at, nullptr, nullptr, nullptr, nonce.data(), -1 ) != 1 ||
        EVP_CipherUpdate( at, nullptr, &len, pieces.header.data(), int( pieces.header.size() ) ) != 1 ||
        EVP_CipherUpdate( at, payload.data(), &len, payload.data(), int( payload.size() ) ) != 1 )
      return false;
   std::array< std::uint8_t, kCbcBlockLen > rest;
   if ( !encrypt && EVP_CIPHER_CTX_ctrl( at, EVP_CTRL_GCM_SET_TAG, int( icv.size() ), icv.data() ) != 1 ) return false;
   if ( EVP_CipherFinal_ex( at, rest.data(), &len ) != 1 ) return false;
   return !encrypt || EVP_CIPHER_CTX_ctrl( at, EVP_CTRL_GCM_GET_TAG, int( icv.size() ), icv.data() ) == 1;
}

namespace {

// Everything in front of the ICV.
ConstByteSpan covered( const EspPieces & pieces ) {
   return { pieces.header.data(), pieces.payload.data() + pieces.payload.size() };
}

} // namespace

bool EspSession::isAuthentic( const EspPieces & pieces ) const {
   std::array< std::uint8_t, SHA256_DIGEST_LENGTH > bytes;
   const auto icv = ByteSpan( bytes ).first( pieces.icv.size() );
   hmac_->of( covered( pieces ), icv );
   return CRYPTO_memcmp( icv.data(), pieces.icv.data(), icv.size() ) == 0;
}

std::size_t espIvLen( IpsecCipher cipher ) {
   switch ( cipher ) {
   case IpsecCipher::null: return 0;
   case IpsecCipher::aesGcm: return kGcmIvLen;
   case IpsecCipher::aesCbc: return kCbcBlockLen;
   }
   return 0;
}

std::size_t espBlockLen( IpsecCipher cipher ) { return cipher == IpsecCipher::aesCbc ? kCbcBlockLen : kAlignment; }

bool EspSession::encrypt( std::uint64_t number, const EspPieces & pieces, unsigned worker ) {
   auto & context = contexts_[ worker ].encrypt;
   switch ( keys_.cipher ) {
   case IpsecCipher::null: break;
   case IpsecCipher::aesGcm:
      put32( pieces.iv.data(), std::uint32_t( number >> 32 ) );
      put32( pieces.iv.data() + 4, std::uint32_t( number ) );
      return gcm( context, pieces, true );
   case IpsecCipher::aesCbc:
      if ( RAND_bytes( pieces.iv.data(), int( pieces.iv.size() ) ) != 1 || !cbc( context, pieces, true ) ) return false;
      break;
   }
   if ( hmac_ ) hmac_->of( covered( pieces ), pieces.icv );
   return true;
}

bool EspSession::decrypt( const EspPieces & pieces, unsigned worker ) {
   auto & context = contexts_[ worker ].decrypt;
   if ( keys_.cipher == IpsecCipher::aesGcm ) return gcm( context, pieces, false );
   if ( hmac_ && !isAuthentic( pieces ) ) return false;
   return keys_.cipher == IpsecCipher::null || cbc( context, pieces, false );
}

} // namespace Vexdp
