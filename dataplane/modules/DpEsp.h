// ESP (RFC 4303) on the bytes of a packet, in tunnel or transport mode, bare or in UDP (RFC 3948).
#pragma once

#include "DpIpsecSa.h"
#include "DpIpv4.h"

#include <optional>

namespace Vexdp {

// Why a packet couldn't be worked on; null: it was.
using EspFailure = const char *;

// Protects an IPv4 packet. Its sequence number is used up with `advance`. On failure the packet is as it was.
//
// In tunnel mode the outer header has the TOS of the inner one (RFC 4301, section 5.1.2.1), a TTL of its own, and no
// DF: the interface under the tunnel may fragment it.
EspFailure espSeal( IpsecSa & sa, Packet & packet, bool advance );

// What names the association of an ESP packet.
struct EspId {
   std::uint32_t spi;
   Ipv4Addr dst;
   std::optional< std::uint16_t > udpPort; // that it came to

   // Nothing when the packet is none: another protocol, a fragment, too short, UDP of the key exchange. Any other UDP
   // packet may hold ESP: an association tells.
   static std::optional< EspId > of( Packet & packet );
};

// Opens a packet that EspId::of found. With `advance` it has come, and doesn't come again. On failure the packet is as
// it was.
EspFailure espOpen( IpsecSa & sa, Packet & packet, bool advance );

} // namespace Vexdp
