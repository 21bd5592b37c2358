// What the algorithms of an association do to the bytes of its packets.
#pragma once

#include "DpPerWorker.h"

#include <array>
#include <cstdint>
#include <memory>
#include <span>

struct evp_cipher_ctx_st;

namespace Vexdp {

using ByteSpan = std::span< std::uint8_t >;
using ConstByteSpan = std::span< const std::uint8_t >;

// Values of `cipher_algorithm` and `auth_algorithm`.
enum class IpsecCipher : std::uint8_t { null = 1, aesGcm = 2, aesCbc = 5 };
enum class IpsecAuth : std::uint8_t { none = 1, sha1 = 10, sha256 = 14 };

// Of the initialization vector that every packet carries, bytes.
std::size_t espIvLen( IpsecCipher cipher );
// What is encrypted comes in multiples of this, bytes.
std::size_t espBlockLen( IpsecCipher cipher );

// The pieces of an ESP packet, one behind the other.
struct EspPieces {
   ByteSpan header; // SPI and sequence number, 8 bytes
   ByteSpan iv;
   ByteSpan payload; // in place, from plain to encrypted or back
   ByteSpan icv;
};

// The keys of an association, made ready for its packets by each worker: nothing is allocated for a packet but for its
// first one.
class EspSession {
 public:
   struct Keys {
      IpsecCipher cipher;
      IpsecAuth auth;
      ConstByteSpan cipherKey; // of GCM with its salt behind it
      ConstByteSpan authKey;
   };
   // The keys stay where they are while this is there.
   explicit EspSession( const Keys & keys, unsigned workers = 1 );
   ~EspSession();
   EspSession( const EspSession & ) = delete;
   EspSession & operator=( const EspSession & ) = delete;

   // Fills the IV, encrypts and authenticates. `number` never comes twice under a key. False: the library refused.
   bool encrypt( std::uint64_t number, const EspPieces & pieces, unsigned worker );
   // Authenticates and decrypts. False: not authentic; the payload is then of no use.
   bool decrypt( const EspPieces & pieces, unsigned worker );

 private:
   struct CipherFree {
      void operator()( evp_cipher_ctx_st * context ) const;
   };
   using Context = std::unique_ptr< evp_cipher_ctx_st, CipherFree >;
   class Hmac;

   evp_cipher_ctx_st * ready( Context & context, bool encrypt );
   bool cbc( Context & context, const EspPieces & pieces, bool encrypt );
   bool gcm( Context & context, const EspPieces & pieces, bool encrypt );
   bool isAuthentic( const EspPieces & pieces ) const;

   const Keys keys_;
   struct Contexts {
      Context encrypt;
      Context decrypt;
   };
   PerWorker< Contexts > contexts_;
   std::unique_ptr< Hmac > hmac_;
};

} // namespace Vexdp
