// A worker: a thread that carries packets from the receive queues that are its own through the graph, in bursts.
//
// It takes no lock but what its devices share (DpDevice.h). Whoever changes the graph, the tables or the devices holds
// all workers first (DpWorkers.h), which waits until each is between two turns, for as short as the change takes. So
// each packet sees what was before the change or what is after it.
//
//   state     event                          becomes
//   working   a hold                         held, at the end of the turn: a burst of each of its queues
//   working   nothing came in for a while    asleep: on its queues' descriptors, where all have one, or for kNap
//   asleep    a packet, or time              working, or held
//   held      let go                         working
//   any but   its end                        gone, at the end of the turn
//   held
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
   // What packets go through, and where they are counted: it counts by its own writer.
   struct Way {
      Side side; // of the graph
      CounterTable * counters;
   };
   // A queue, and where its packets go: into the graph, or, from the kernel's device, to the other one.
   struct Lane {
      Device * device;
      unsigned queue;
      const Wire * wire;
      bool kernel;
   };
   struct Common {
      PortTable & ports;
      const Eal & eal;
      const std::atomic< bool > & held; // all are to be
      bool busy;                        // those with a queue never sleep
   };
   // What is common outlives it.
   Worker( const Common & common, const Seat & seat, const Way & way );
   // REQUIRES: it isn't held
   ~Worker();

   // Whether it is at a turn: while `held` is set, it becomes false soon and stays so.
   bool working() const { return working_; }
   // Whether it waits to be let go.
   bool waiting() const { return waiting_; }
   // Whether it still sleeps on queues that it had before lanesAre(): it has been woken.
   bool asleepOnOthers() const { return napThen_ % 2 != 0 && naps_ == napThen_; }

   // All while it is held.
   // The queues that are its own, and all devices that it may send by. One worker is to keep the carriers right.
   void lanesAre( std::vector< Lane > lanes, std::vector< Device * > devices, bool keepsCarriers );
   const std::vector< Lane > & lanes() const { return lanes_; }
   // The next packet goes another way.
   void wayIs( const Way & way );
   // Paused, it carries nothing: what comes in waits with the devices, as far as they have room.
   void pausedIs( bool paused );
   bool paused() const { return paused_; }
   void watcherIs( PacketWatcher * watcher ) { walk_.watcherIs( watcher ); }

 private:
   void run();
   void begin();
   void end();
   // The packets that came in.
   std::size_t turn();
   std::size_t carry( const Lane & lane );
   void handOut( const Lane & lane );
   void sleep();
   void leaveOutWrong();
   void wake() const;
   void joinEal();

   const Common common_;
   const unsigned number_;
   Side side_;
   Walk walk_;
   std::vector< Lane > lanes_;
   std::vector< Device * > devices_;
   std::vector< Packet > burst_;
   std::vector< pollfd > descriptors_; // while it is asleep
   bool keepsCarriers_ = false;
   bool sleepless_ = false; // a queue has no descriptor
   bool wrong_ = false;     // one of them has something else to say than that there are packets
   bool paused_ = false;
   bool triedEal_ = false;
   bool inEal_ = false;
   int wake_ = -1; // an eventfd
   std::atomic< bool > ending_ = false;
   std::thread thread_;
   // What others look at, on a cache line of its own.
   alignas( kCacheLine ) std::atomic< bool > working_ = false;
   std::atomic< bool > waiting_ = false;
   std::atomic< unsigned > naps_ = 0; // twice those that are over, and one more while it sleeps on descriptors
   unsigned napThen_ = 0;             // what they were when the lanes changed
};

} // namespace Vexdp
