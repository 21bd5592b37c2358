// A device: where packets come from and go to outside of the graph. It is driven by the workers, and asked about by
// whoever holds them.
//
//   receive queues   each belongs to one worker at a time, which alone receives from it and counts what it carried;
//                    packets of one flow come by one of them
//   sending          any worker, at any time: what differs by worker, or is counted for each, is its own; what they
//                    share has a lock where there are several, taken once for a burst
#pragma once

#include "DpPacket.h"
#include "DpPerWorker.h"
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
   // Of what comes in, with all that may be around a packet. Longer ones are dropped, never cut.
   static constexpr std::size_t kMostBytes = kMaxMtu + 64;

   struct Stat {
      std::uint64_t packets = 0;
      std::uint64_t dropped = 0;
      std::uint64_t bytes = 0;

      Stat & operator+=( const Stat & other );
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

   // What came in by a queue.
   struct Carried {
      std::uint64_t bursts = 0;
      std::uint64_t cycles = 0; // of the processor's clock, in bursts with packets
      // Where there are several queues.
      std::uint64_t packets = 0;
      std::uint64_t bytes = 0;

      Carried & operator+=( const Carried & other );
   };

   // For so many workers.
   explicit Device( unsigned workers, unsigned queues = 1 ) : workers_( workers ), carried_( queues ) {}

   // Receive queues; at least one.
   unsigned queues() const { return carried_.size(); }
   Carried & carried( unsigned queue ) { return carried_[ queue ]; }
   const Carried & carried( unsigned queue ) const { return carried_[ queue ]; }

   // Adds at most kBurst packets.
   virtual void receive( unsigned queue, std::vector< Packet > & burst ) = 0;
   // Takes the packet at once, and may keep it until flush() by the same worker.
   void send( Packet && packet, unsigned worker ) override = 0;
   virtual void flush( unsigned /* worker */ ) {}
   // Readable when there is something to receive from the queue; -1 when there is no such thing.
   virtual int descriptor( unsigned /* queue */ ) const { return -1; }
   // Bare IP packets, not frames.
   virtual bool bare() const { return false; }

   virtual Stats stats() const = 0;
   virtual Link link() const = 0;
   virtual Conf conf() const = 0;
   // EINVAL, ERANGE: not a value for it. Other codes are the system's.
   virtual Outcome confIs( const bess::pb::PortConf & conf ) = 0;
   // The link of the interface's other device, that this one is to show.
   virtual void carrierIs( bool /* up */ ) {}

 protected:
   unsigned workers() const { return workers_; }
   // Several may be at it at once.
   bool shared() const { return workers_ > 1; }

 private:
   const unsigned workers_;
   PerWorker< Carried > carried_; // by queue
};

// Of all workers.
Device::Stat sumOf( const PerWorker< Device::Stat > & stats );

// The address from its text form. EINVAL: it is none, or not one station's.
Outcome stationFrom( const std::string & text, MacAddr & mac );

} // namespace Vexdp
