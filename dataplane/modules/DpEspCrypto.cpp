#include "DpEspCrypto.h"

#include "DpIpv4.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <memory>

namespace Vexdp {

namespace {

constexpr std::size_t kSaltLen = 4;
constexpr std::size_t kGcmIvLen = 8;
constexpr std::size_t kCbcBlockLen = 16;
// Payload and trailer end at a multiple of this whatever the cipher is (RFC 4303, section 2.4).
constexpr std::size_t kAlignment = 4;

using CipherContext = std::unique_ptr< EVP_CIPHER_CTX, decltype( &EVP_CIPHER_CTX_free ) >;
CipherContext newContext() { return { EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free }; }

const EVP_CIPHER * cbcOf( std::size_t keyLen ) {
   return keyLen == 16 ? EVP_aes_128_cbc() : keyLen == 24 ? EVP_aes_192_cbc() : EVP_aes_256_cbc();
}

const EVP_CIPHER * gcmOf( std::size_t keyLen ) {
   return keyLen == 16 ? EVP_aes_128_gcm() : keyLen == 24 ? EVP_aes_192_gcm() : EVP_aes_256_gcm();
}

bool cbc( const IpsecSa & sa, const EspPieces & pieces, bool encrypt ) {
   const auto context = newContext();
   const auto key = sa.cipherKey().span();
   auto & payload = pieces.payload;
   int len = 0;
   return context &&
          EVP_CipherInit_ex( context.get(), cbcOf( key.size() ), nullptr, key.data(), pieces.iv.data(), encrypt ) ==
               1 &&
          EVP_CIPHER_CTX_set_padding( context.get(), 0 ) == 1 &&
          EVP_CipherUpdate( context.get(), payload.data(), &len, payload.data(), int( payload.size() ) ) == 1 &&
          std::size_t( len ) == payload.size();
}

// RFC 4106: the nonce is the salt, then the IV; SPI and sequence number are authenticated beside the payload.
bool gcm( const IpsecSa & sa, const EspPieces & pieces, bool encrypt ) {
   const auto context = newContext();
   const auto key = sa.cipherKey().span();
   const auto keyLen = key.size() - kSaltLen;
   std::array< std::uint8_t, kSaltLen + kGcmIvLen > nonce;
   std::ranges::copy( key.last( kSaltLen ), nonce.begin() );
   std::ranges::copy( pieces.iv, nonce.begin() + kSaltLen );
   auto & payload = pieces.payload;
   int len = 0;
   if ( !context ||
        EVP_CipherInit_ex( context.get(), gcmOf( keyLen ), nullptr, key.data(), nonce.data(), encrypt ) != 1 ||
        EVP_CipherUpdate( context.get(), nullptr, &len, pieces.header.data(), int( pieces.header.size() ) ) != 1 ||
        EVP_CipherUpdate( context.get(), payload.data(), &len, payload.data(), int( payload.size() ) ) != 1 )
      return false;
   const auto icv = pieces.icv;
   std::array< std::uint8_t, kCbcBlockLen > rest;
   if ( !encrypt && EVP_CIPHER_CTX_ctrl( context.get(), EVP_CTRL_GCM_SET_TAG, int( icv.size() ), icv.data() ) != 1 )
      return false;
   if ( EVP_CipherFinal_ex( context.get(), rest.data(), &len ) != 1 ) return false;
   return !encrypt || EVP_CIPHER_CTX_ctrl( context.get(), EVP_CTRL_GCM_GET_TAG, int( icv.size() ), icv.data() ) == 1;
}

// Over everything in front of the ICV, cut to its length.
bool hmac( const IpsecSa & sa, const EspPieces & pieces, ByteSpan icv ) {
   const auto * digest = sa.auth() == IpsecAuth::sha1 ? EVP_sha1() : EVP_sha256();
   const auto key = sa.authKey().span();
   const ConstByteSpan covered( pieces.header.data(), pieces.payload.data() + pieces.payload.size() );
   std::array< std::uint8_t, EVP_MAX_MD_SIZE > whole;
   if ( HMAC( digest, key.data(), int( key.size() ), covered.data(), covered.size(), whole.data(), nullptr ) ==
        nullptr )
      return false;
   std::copy_n( whole.begin(), icv.size(), icv.begin() );
   return true;
}

bool isAuthentic( const IpsecSa & sa, const EspPieces & pieces ) {
   std::array< std::uint8_t, EVP_MAX_MD_SIZE > bytes;
   const auto icv = ByteSpan( bytes ).first( pieces.icv.size() );
   return hmac( sa, pieces, icv ) && CRYPTO_memcmp( icv.data(), pieces.icv.data(), icv.size() ) == 0;
}

} // namespace

std::size_t espIvLen( IpsecCipher cipher ) {
   switch ( cipher ) {
   case IpsecCipher::null: return 0;
   case IpsecCipher::aesGcm: return kGcmIvLen;
   case IpsecCipher::aesCbc: return kCbcBlockLen;
   }
   return 0;
}

std::size_t espBlockLen( IpsecCipher cipher ) { return cipher == IpsecCipher::aesCbc ? kCbcBlockLen : kAlignment; }

// An IV of GCM must never come twice under a key. The sequence number alone would, when an association is taken away
// and given anew: so it counts from a random place.
bool espEncrypt( const IpsecSa & sa, std::uint32_t sequence, const EspPieces & pieces ) {
   switch ( sa.cipher() ) {
   case IpsecCipher::null: break;
   case IpsecCipher::aesGcm: {
      const auto iv = sa.ivStart() + sequence;
      put32( pieces.iv.data(), std::uint32_t( iv >> 32 ) );
      put32( pieces.iv.data() + 4, std::uint32_t( iv ) );
      return gcm( sa, pieces, true );
   }
   case IpsecCipher::aesCbc:
      if ( RAND_bytes( pieces.iv.data(), int( pieces.iv.size() ) ) != 1 || !cbc( sa, pieces, true ) ) return false;
      break;
   }
   return sa.auth() == IpsecAuth::none || hmac( sa, pieces, pieces.icv );
}

bool espDecrypt( const IpsecSa & sa, const EspPieces & pieces ) {
   if ( sa.cipher() == IpsecCipher::aesGcm ) return gcm( sa, pieces, false );
   if ( sa.auth() != IpsecAuth::none && !isAuthentic( sa, pieces ) ) return false;
   return sa.cipher() == IpsecCipher::null || cbc( sa, pieces, false );
}

} // namespace Vexdp
