// A filter in pcap's language, for frames and for bare IP packets.
//
// pcap's own interpreter runs it. DPDK 22.11 can compile it to the processor's code, and must not: that code is wrong
// for many a filter, jumps anywhere for some, and takes for ever to make of (a or b) and (c or d) and so on.
#pragma once

#include "DpPacket.h"
#include "DpRefusal.h"

#include <memory>
#include <string>

namespace Vexdp {

class PcapFilter {
 public:
   // Alternatives in a text of this length take pcap a second or two.
   static constexpr std::size_t kMostText = 4096;

   PcapFilter();
   ~PcapFilter();
   // EINVAL: it is none, with pcap's words on it, or too long. It takes its time.
   Outcome textIs( const std::string & text );
   bool matches( const Packet & packet ) const;

 private:
   struct Programs;
   std::unique_ptr< Programs > programs_; // null: everything matches
};

} // namespace Vexdp
