// A security association of ESP (RFC 4303): how the packets of one direction of a connection are protected.
#pragma once

#include "DpRefusal.h"
#include "DpReplayWindow.h"
#include "DpSecret.h"

#include "vex/ipsec.pb.h"

#include <optional>

namespace Vexdp {

// Values of `cipher_algorithm` and `auth_algorithm`.
enum class IpsecCipher : std::uint8_t { null = 1, aesGcm = 2, aesCbc = 5 };
enum class IpsecAuth : std::uint8_t { none = 1, sha1 = 10, sha256 = 14 };

class IpsecSa {
 public:
   using Entry = vex::pb::IpsecUpdateSAArg::IpsecSAEntry;

   // SPIs up to this are reserved (RFC 4303, section 2.1).
   static constexpr std::uint32_t kMaxReservedSpi = 255;
   static constexpr std::uint32_t kMaxReplayWindow = 4096;

   // Names the SA by its SPI, and a key by its length alone. EINVAL, ERANGE: what the class or its algorithms don't
   // take.
   static Outcome check( const Entry & entry );
   // REQUIRES: check( entry ) is ok
   explicit IpsecSa( const Entry & entry );

   // It is the same in every field and key.
   bool is( const Entry & entry ) const;
   // As it was given, without the keys.
   const Entry & entry() const { return entry_; }
   // "AES-CBC 128, HMAC-SHA1-96", for texts.
   std::string desc() const;

   std::uint32_t spi() const { return entry_.sa_spi(); }
   Ipv4Addr src() const { return { entry_.src_addr() }; }
   Ipv4Addr dst() const { return { entry_.dst_addr() }; }
   bool tunnelMode() const;
   bool udp() const { return entry_.encap_type() == 1; }
   IpsecCipher cipher() const { return IpsecCipher( entry_.cipher_algorithm() ); }
   IpsecAuth auth() const { return IpsecAuth( entry_.auth_algorithm() ); }
   // Of GCM with its salt behind it.
   const Secret & cipherKey() const { return cipherKey_; }
   const Secret & authKey() const { return authKey_; }
   std::size_t icvLen() const;

   // Where the numbers begin that its packets are encrypted under; random.
   std::uint64_t ivStart() const { return ivStart_; }

   // Of the last packet that was sent.
   std::uint32_t sequence = 0;
   ReplayWindow replay;

 private:
   Entry entry_;
   Secret cipherKey_;
   Secret authKey_;
   std::uint64_t ivStart_;
};

// "SA 0x00000101: why"
Outcome inSa( std::uint32_t spi, const Outcome & out );

} // namespace Vexdp
