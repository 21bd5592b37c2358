// A security association of ESP (RFC 4303): how the packets of one direction of a connection are protected.
#pragma once

#include "DpEspCrypto.h"
#include "DpOuterIds.h"
#include "DpRefusal.h"
#include "DpSaHistory.h"
#include "DpSecret.h"

#include "vex/ipsec.pb.h"

#include <optional>

namespace Vexdp {

class IpsecSa {
 public:
   using Entry = vex::pb::IpsecUpdateSAArg::IpsecSAEntry;

   // SPIs up to this are reserved (RFC 4303, section 2.1).
   static constexpr std::uint32_t kMaxReservedSpi = 255;
   static constexpr std::uint32_t kMaxReplayWindow = 4096;

   // Names the SA by its SPI, and a key by its length alone. EINVAL, ERANGE: what the class or its algorithms don't
   // take.
   static Outcome check( const Entry & entry );
   // Goes on where the history has left its key. REQUIRES: check( entry ) is ok
   IpsecSa( const Entry & entry, std::uint32_t encapId, SaDirection direction, SaHistory & history, OuterIds & ids,
            unsigned workers = 1 );

   // It is the same in every field and key.
   bool is( const Entry & entry ) const;
   // As it was given, without the keys.
   const Entry & entry() const { return entry_; }
   // "AES-CBC 128, HMAC-SHA1-96", for texts.
   std::string desc() const;

   // The connection that it is of.
   std::uint32_t encapId() const { return encapId_; }
   std::uint32_t spi() const { return entry_.sa_spi(); }
   Ipv4Addr src() const { return { entry_.src_addr() }; }
   Ipv4Addr dst() const { return { entry_.dst_addr() }; }
   bool tunnelMode() const;
   bool udp() const { return entry_.encap_type() == 1; }
   IpsecCipher cipher() const { return IpsecCipher( entry_.cipher_algorithm() ); }
   IpsecAuth auth() const { return IpsecAuth( entry_.auth_algorithm() ); }
   std::size_t icvLen() const { return icvLen_; }

   // What its key has been used for: with whoever has the key, too, of which one at a time has packets.
   SaUse & use() { return *use_; }
   // That of its use, of its own size from here on. Under the lock of its use.
   ReplayWindow & replay();
   // As replay().admits(), and leaves the window as it is, its size too.
   bool wouldAdmit( std::uint32_t sequence ) const;
   EspSession & session() { return session_; }
   // Of its outer headers.
   std::atomic< std::uint16_t > & nextId() { return *ids_; }

 private:
   std::uint32_t windowSize() const;

   const Entry entry_;
   const std::uint32_t encapId_;
   const std::size_t icvLen_;
   const Secret cipherKey_; // of GCM with its salt behind it
   const Secret authKey_;
   const std::shared_ptr< SaUse > use_;
   const OuterIds::Counter ids_;
   EspSession session_;
};

// "SA 0x00000101: why"
Outcome inSa( std::uint32_t spi, const Outcome & out );

} // namespace Vexdp
