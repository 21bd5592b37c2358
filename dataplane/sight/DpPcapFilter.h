// A filter in pcap's language, for frames and for bare IP packets.
//
// Where DPDK's memory is there, it is compiled to the processor's code; what that compiler does not take, and the
// longest packets, go by pcap's interpreter. Both say the same.
#pragma once

#include "DpPacket.h"
#include "DpRefusal.h"

#include <memory>
#include <span>
#include <string>

namespace Vexdp {

class PcapFilter {
 public:
   PcapFilter();
   ~PcapFilter();
   // EINVAL: it is none, with pcap's words on it.
   Outcome textIs( const std::string & text );
   bool matches( const Packet & packet ) const;
   // By the interpreter alone.
   bool matchesSlowly( const Packet & packet ) const;
   // Whether both kinds of packets have compiled code.
   bool compiled() const;

 private:
   class Compiled;
   struct Programs;
   std::unique_ptr< Programs > programs_; // null: everything matches
};

} // namespace Vexdp
