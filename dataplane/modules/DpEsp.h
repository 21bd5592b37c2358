// ESP (RFC 4303) on the bytes of a packet, in tunnel or transport mode, bare or in UDP (RFC 3948).
#pragma once

#include "DpIpsecSa.h"
#include "DpIpv4.h"

#include <optional>

namespace Vexdp {

class Context;

// Why a packet couldn't be worked on; null: it was.
using EspFailure = const char *;

// Protects an IPv4 packet, where it lies. Its sequence number is used up with `advance`. On failure the packet is as it
// was.
//
// In tunnel mode the outer header has TOS and DF of the inner one (RFC 4301, sections 5.1.2.1 and 8.1; RFC 6040) and a
// TTL of its own. Without DF its identification is of the pair of ends; with it nobody looks at one.
EspFailure espSeal( IpsecSa & sa, Packet & packet, bool advance, const Seat & seat = {} );

// What names the association of an ESP packet.
struct EspId {
   std::uint32_t spi;
   Ipv4Addr dst;
   std::optional< std::uint16_t > udpPort; // that it came to

   // Nothing when the packet is none: another protocol, a fragment, too short, UDP of the key exchange or a wrong
   // length in UDP. Any other UDP packet may hold ESP: an association tells.
   static std::optional< EspId > of( Packet & packet );
};

// Opens a packet that EspId::of found, where it lies. With `advance` it has come, and doesn't come again. On failure
// its bytes are of no use.
//
// In tunnel mode the inner header hears of congestion from the outer one (RFC 6040). In transport mode behind NAT the
// checksums of TCP and UDP, which covered other addresses, are made anew (RFC 3948, section 3.1.2).
EspFailure espOpen( IpsecSa & sa, Packet & packet, bool advance, const Seat & seat = {} );

// What a trace says of the association of a packet.
void noteSa( const IpsecSa & sa, Context & context );

} // namespace Vexdp
