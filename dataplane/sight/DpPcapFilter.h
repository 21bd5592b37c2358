// A filter in pcap's language, for frames and for bare IP packets.
#pragma once

#include "DpPacket.h"
#include "DpRefusal.h"

#include <memory>
#include <string>

namespace Vexdp {

class PcapFilter {
 public:
   PcapFilter();
   ~PcapFilter();
   // EINVAL: it is none, with pcap's words on it.
   Outcome textIs( const std::string & text );
   bool matches( const Packet & packet ) const;

 private:
   struct Programs;
   std::unique_ptr< Programs > programs_; // null: everything matches
};

} // namespace Vexdp
