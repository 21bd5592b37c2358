// A device: where packets come from and go to outside of the graph. It is driven by one worker, and asked about by
// whoever holds the worker.
#pragma once

#include "DpPacket.h"
#include "DpRefusal.h"
#include "DpWire.h"

#include "bess/control.pb.h"

#include <string>
#include <vector>

namespace Vexdp {

class Device : public Outlet {
 public:
   static constexpr std::size_t kBurst = 32;
   static constexpr std::uint32_t kMinMtu = 68; // RFC 791
   static constexpr std::uint32_t kMaxMtu = 9216;

   struct Stat {
      std::uint64_t packets = 0;
      std::uint64_t dropped = 0;
      std::uint64_t bytes = 0;
   };
   struct Stats {
      Stat in;
      Stat out;
   };
   struct Conf {
      std::string mac; // as text; empty: it has none
      std::uint32_t mtu = 0;
      bool up = false;
   };
   struct Link {
      bool up = false;
      std::uint32_t speed = 0; // Mbit/s, 0: not known
      std::string lost;        // why it will never be up again, such as "device veth1 is gone"
   };

   // What the worker did for it, which alone writes it.
   struct Carried {
      std::uint64_t bursts = 0;
      std::uint64_t cycles = 0; // of the processor's clock, in bursts with packets
   };
   Carried carried;

   // Adds at most kBurst packets.
   virtual void receive( std::vector< Packet > & burst ) = 0;
   // Takes the packet at once, and may keep it until flush().
   void send( Packet && packet ) override = 0;
   virtual void flush() {}
   // Readable when there is something to receive; -1 when there is no such thing.
   virtual int descriptor() const { return -1; }
   // Bare IP packets, not frames.
   virtual bool bare() const { return false; }

   virtual Stats stats() const = 0;
   virtual Link link() const = 0;
   virtual Conf conf() const = 0;
   // EINVAL, ERANGE: not a value for it. Other codes are the system's.
   virtual Outcome confIs( const bess::pb::PortConf & conf ) = 0;
   // The link of the interface's other device, that this one is to show.
   virtual void carrierIs( bool /* up */ ) {}
};

// The address from its text form. EINVAL: it is none, or not one station's.
Outcome stationFrom( const std::string & text, MacAddr & mac );

} // namespace Vexdp
