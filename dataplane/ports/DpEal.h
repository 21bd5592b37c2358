// DPDK's environment, which is started when the first port needs it: packet buffers, and devices by name.
//
// It can be started once in a process. Without huge pages it needs no preparation of the machine; then only virtual
// devices work.
#pragma once

#include "DpPacket.h"
#include "DpRefusal.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct rte_mbuf;
struct rte_mempool;

namespace Vexdp {

struct EalOptions {
   bool hugePages = false;
   unsigned memory = 256;            // MB
   std::vector< std::string > words; // further arguments, as EAL takes them
   unsigned buffers = 16384;         // packets of ordinary size
};

class Eal {
 public:
   struct Pool {
      std::string name;
      unsigned size;
      unsigned available;
      unsigned elementSize; // bytes
   };

   explicit Eal( EalOptions options ) : options_( std::move( options ) ) {}

   // Starts it, when it isn't. It stays refused for the reason that the first attempt gave.
   Outcome start();
   // Whether it is. From any thread.
   bool started() const { return started_.load( std::memory_order_acquire ); }

   // A thread of the caller's that will take and give back many packet buffers has some at hand, until leave().
   // False: it goes without. REQUIRES: started()
   static bool join();
   static void leave();

   // Frames of this length and more need buffers of the larger kind.
   static constexpr unsigned kLongFrame = 1920;
   // The pool whose buffers hold frames of this length; null when there is no memory for it.
   // REQUIRES: started()
   rte_mempool * poolFor( unsigned frameLen );

   std::vector< Pool > pools() const;

   // The packet has the buffer, and gives it back to its pool. What lies in several is copied into one of its own.
   static Packet packetOf( rte_mbuf * mbuf );
   // The packet's buffer with its bytes; a copy in one of the pool's where it is another's. Null, with the packet gone,
   // when the pool is empty or has no room for it.
   static rte_mbuf * mbufOf( Packet && packet, rte_mempool * pool );

 private:
   Outcome startHere();

   const EalOptions options_;
   bool tried_ = false;
   Refusal refusal_;
   std::atomic< bool > started_ = false;
   rte_mempool * usual_ = nullptr;
   std::mutex makingJumbo_;
   std::atomic< rte_mempool * > jumbo_ = nullptr;
};

} // namespace Vexdp
