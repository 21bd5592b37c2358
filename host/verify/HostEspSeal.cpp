#include "HostEspSeal.h"

#include <memory>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

namespace Host {

namespace {

using Ipsec::Ike::SecurityAssociation;

struct CipherFree {
   void operator()( EVP_CIPHER_CTX * context ) const { EVP_CIPHER_CTX_free( context ); }
};
using Cipher = std::unique_ptr< EVP_CIPHER_CTX, CipherFree >;

constexpr size_t saltBytes = 4; // behind a key of GCM (RFC 4106, section 8.1)

U8 * bytesOf( std::string & text ) { return reinterpret_cast< U8 * >( text.data() ); }
const U8 * bytesOf( std::string_view text ) { return reinterpret_cast< const U8 * >( text.data() ); }

std::string word( U32 value ) {
   return { char( value >> 24 ), char( value >> 16 ), char( value >> 8 ), char( value ) };
}

std::string randomBytes( size_t size ) {
   std::string bytes( size, '\0' );
   return RAND_bytes( bytesOf( bytes ), int( size ) ) == 1 ? bytes : std::string();
}

// With its trailer, to a multiple of the block (RFC 4303, section 2.4).
std::string padded( std::string_view bytes, size_t block, U8 nextHeader ) {
   std::string out( bytes );
   char padding = 0;
   while ( ( out.size() + 2 ) % block != 0 ) out += ++padding;
   return out + padding + char( nextHeader );
}

bool update( const Cipher & cipher, std::string & out, std::string_view in ) {
   int length = 0;
   out.resize( in.size() );
   return EVP_EncryptUpdate( cipher.get(), bytesOf( out ), &length, bytesOf( in ), int( in.size() ) ) == 1 &&
          size_t( length ) == in.size();
}

// RFC 4106
std::string byGcm( const SecurityAssociation & sa, const std::string & header, const std::string & plain ) {
   const auto iv = randomBytes( 8 );
   const auto keyAndSalt = sa.cryptoKey().bytes();
   const auto key = keyAndSalt.substr( 0, keyAndSalt.size() - saltBytes );
   const auto nonce = std::string( keyAndSalt.substr( key.size() ) ) + iv;
   const auto * const kind = key.size() == 16   ? EVP_aes_128_gcm()
                             : key.size() == 24 ? EVP_aes_192_gcm()
                                                : EVP_aes_256_gcm();
   const Cipher cipher( EVP_CIPHER_CTX_new() );
   std::string sealed, icv( sa.icvLen() / 8, '\0' );
   int length = 0;
   const bool done =
        !iv.empty() && EVP_EncryptInit_ex( cipher.get(), kind, nullptr, bytesOf( key ), bytesOf( nonce ) ) == 1 &&
        EVP_EncryptUpdate( cipher.get(), nullptr, &length, bytesOf( header ), int( header.size() ) ) == 1 &&
        update( cipher, sealed, plain ) && EVP_EncryptFinal_ex( cipher.get(), nullptr, &length ) == 1 &&
        EVP_CIPHER_CTX_ctrl( cipher.get(), EVP_CTRL_GCM_GET_TAG, int( icv.size() ), icv.data() ) == 1;
   return done ? header + iv + sealed + icv : std::string();
}

// RFC 3602
std::string byCbc( const SecurityAssociation & sa, const std::string & header, const std::string & plain ) {
   const auto iv = randomBytes( 16 );
   const auto key = sa.cryptoKey().bytes();
   const auto * const kind = key.size() == 16   ? EVP_aes_128_cbc()
                             : key.size() == 24 ? EVP_aes_192_cbc()
                                                : EVP_aes_256_cbc();
   const Cipher cipher( EVP_CIPHER_CTX_new() );
   std::string sealed;
   const bool done = !iv.empty() &&
                     EVP_EncryptInit_ex( cipher.get(), kind, nullptr, bytesOf( key ), bytesOf( iv ) ) == 1 &&
                     EVP_CIPHER_CTX_set_padding( cipher.get(), 0 ) == 1 && update( cipher, sealed, plain );
   return done ? header + iv + sealed : std::string();
}

// RFC 2404, RFC 4868
std::string authenticated( const SecurityAssociation & sa, std::string packet ) {
   if ( sa.authAlgo().empty() || packet.empty() ) return packet;
   const bool sha1 = sa.authAlgo() == "sha1";
   const auto key = sa.authKey().bytes();
   U8 code[ EVP_MAX_MD_SIZE ];
   if ( HMAC( sha1 ? EVP_sha1() : EVP_sha256(), key.data(), int( key.size() ), bytesOf( std::string_view( packet ) ),
              packet.size(), code, nullptr ) == nullptr )
      return {};
   return packet.append( reinterpret_cast< const char * >( code ), sha1 ? 12 : 16 );
}

} // namespace

std::string espSealed( const SecurityAssociation & sa, U32 sequence, U8 nextHeader, std::string_view bytes ) {
   const auto header = word( sa.sakey().id().spi() ) + word( sequence );
   const bool cbc = sa.cryptoAlgo() == "aes";
   const auto plain = padded( bytes, cbc ? 16 : 4, nextHeader );
   if ( sa.cryptoAlgo() == "rfc4106(gcm(aes))" ) return byGcm( sa, header, plain );
   return authenticated( sa, cbc ? byCbc( sa, header, plain ) : header + plain );
}

} // namespace Host
