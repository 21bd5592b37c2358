// The Ethernet II header on the bytes of a packet.
#pragma once

#include "DpIpv4.h"
#include "DpPacket.h"
#include "DpTypes.h"

#include <algorithm>

namespace Vexdp {

inline constexpr std::size_t kEthernetLen = 14;

// All zeros when the packet has no Ethernet header.
inline MacAddr destinationOf( const Packet & packet ) {
   MacAddr mac;
   if ( packet.meta.ethernet && packet.size() >= kEthernetLen )
      std::copy_n( packet.data(), mac.bytes.size(), mac.bytes.begin() );
   return mac;
}

// False, and no change, when there is no room.
inline bool prependEthernet( Packet & packet, const MacAddr & dst, const MacAddr & src, std::uint16_t etherType ) {
   auto * header = packet.open( kEthernetLen );
   if ( header == nullptr ) return false;
   std::ranges::copy( dst.bytes, header );
   std::ranges::copy( src.bytes, header + 6 );
   put16( header + 12, etherType );
   packet.meta.ethernet = true;
   return true;
}

} // namespace Vexdp
