// Fragmentation of IPv4 packets (RFC 791).
#pragma once

#include "DpPacket.h"

#include <vector>

namespace Vexdp {

// The fragments of a packet, in order, none longer than `mtu`, each with the packet's meta data. A packet that is a
// fragment itself is cut further. Empty: it can't be done, because the header leaves no room or the offsets don't
// reach. REQUIRES: the packet holds an IPv4 header and nothing behind the total length
std::vector< Packet > fragmented( Packet & packet, std::size_t mtu );

} // namespace Vexdp
