// The worker: a thread that carries packets from the devices through the graph, in bursts.
//
// It takes no lock. Whoever changes the graph, the tables or the devices holds it first, which waits until it is
// between two bursts, for as short as the change takes. So each packet sees what was before the change or what is after
// it.
//
//   state     event                          becomes
//   working   a hold                         held, at the end of the burst
//   working   nothing came in for a while    asleep: on the devices' descriptors, where all have one, or for kNap
//   asleep    a packet, or time              working, or held
//   held      let go                         working
#pragma once

#include "DpCounterTable.h"
#include "DpPortTable.h"
#include "DpWalk.h"

#include <poll.h>

#include <atomic>
#include <thread>
#include <vector>

namespace Vexdp {

class Worker {
 public:
   // What packets go through, and where they are counted: nobody else counts there while it isn't held.
   struct Way {
      Side side; // of the graph
      CounterTable * counters;
   };
   // All outlive it. When `busy` it never sleeps.
   Worker( PortTable & ports, const Way & way, bool busy );
   // REQUIRES: it isn't held
   ~Worker();

   // From one thread at a time, in turns.
   void hold();
   void letGo();
   // In the midst of a hold: it carries what waits, one burst, and is held again.
   void breathe();

   // All while it is held.
   void portsChanged();
   // The next packet goes another way.
   void wayIs( const Way & way );
   // Paused, it carries nothing: what comes in waits with the devices, as far as they have room.
   void pausedIs( bool paused );
   bool paused() const { return paused_; }
   void watcherIs( PacketWatcher * watcher ) { walk_.watcherIs( watcher ); }

 private:
   // A device, and where its packets go: into the graph, or, from the kernel's device, to the other one.
   struct Lane {
      Device * device;
      const Wire * wire;
      bool kernel;
   };

   void run();
   void begin();
   void end();
   // The packets that came in.
   std::size_t turn();
   std::size_t carry( Lane & lane );
   void handOut( Lane & lane );
   void sleep();
   void wake() const;

   PortTable & ports_;
   const bool busy_;
   Side side_;
   Walk walk_;
   std::vector< Lane > lanes_;
   std::vector< Packet > burst_;
   std::vector< pollfd > descriptors_; // while it is asleep
   bool sleepless_ = false;            // a device has no descriptor
   bool paused_ = false;
   int wake_ = -1; // an eventfd
   std::atomic< bool > held_ = false;
   std::atomic< bool > waiting_ = false;
   std::atomic< bool > working_ = false;
   std::atomic< bool > ending_ = false;
   std::thread thread_;
};

} // namespace Vexdp
