// Puts the fragments of packets together, within bounds of number, age and memory.
#pragma once

#include "DpPacket.h"
#include "DpPerWorker.h"

#include <optional>

namespace Vexdp {

class Reassembly {
 public:
   virtual ~Reassembly() = default;
   // Whether it can be used at all.
   virtual bool ready() = 0;
   // Takes the fragment, from whichever worker. The whole packet, behind the front of this fragment, when it was the
   // last one that lacked; what is not whole in time is dropped. REQUIRES: ready(), the bytes begin with an IPv4 header
   // that is whole, and nothing is behind its total length
   virtual std::optional< Packet > add( Packet && fragment, const Seat & seat ) = 0;
};

// Of a graph (Graph::kept).
struct UsedReassembly {
   Reassembly * reassembly = nullptr; // null: there is none
};

} // namespace Vexdp
