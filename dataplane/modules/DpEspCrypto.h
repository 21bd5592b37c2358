// What the algorithms of an association do to the bytes of its packets.
#pragma once

#include "DpIpsecSa.h"

#include <cstdint>
#include <span>

namespace Vexdp {

using ByteSpan = std::span< std::uint8_t >;
using ConstByteSpan = std::span< const std::uint8_t >;

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

// Fills the IV, encrypts and authenticates. False: the library refused.
bool espEncrypt( const IpsecSa & sa, std::uint32_t sequence, const EspPieces & pieces );
// Authenticates and decrypts. False: not authentic; the payload is then of no use.
bool espDecrypt( const IpsecSa & sa, const EspPieces & pieces );

} // namespace Vexdp
