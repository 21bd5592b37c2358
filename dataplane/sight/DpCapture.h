// One capture: what it takes, and the room between the workers, who put packets in, and whoever asks for them.
#pragma once

#include "DpPcapFilter.h"
#include "DpWalk.h"

#include <atomic>
#include <optional>
#include <string>
#include <vector>

namespace Vexdp {

// Workers write, one at a time for as long as a packet is copied; one thread at a time reads. No lock is between the
// two sides, and no worker waits for who reads: what finds no room is counted as lost.
class Capture {
 public:
   static constexpr std::size_t kRoom = 1024;      // packets
   static constexpr std::size_t kMostBytes = 2048; // of a packet
   static constexpr double kPatience = 10;         // seconds without being asked, after which it is over

   // EINVAL: the filter is none, or fields that mean nothing together. It takes as long as the filter: nobody is held.
   static Outcome make( const vex::pb::CaptureRequest & request, std::unique_ptr< Capture > & capture );

   // What it takes without a trace: packets as they come to the module, or as they leave it, by the gate or by any.
   struct Place {
      std::string module; // empty: as they come in by an interface and leave by one
      bool out = false;
      std::optional< GateId > gate{};
   };
   // Everything there.
   explicit Capture( Place place );
   // Patience begins.
   void askedAt( double now ) { asked_.store( now, std::memory_order_relaxed ); }

   // On the workers' threads.
   bool watches( const Module & module ) const;
   void enters( const Module & module, GateId igate, Packets packets, double now );
   void leaves( const Module & module, GateId ogate, Packets packets, double now );
   bool traces( const Module & source, const Packet & packet, double now ) const;
   void traced( const vex::pb::TracePacketReply & trace, const std::string & intfname, double now );
   bool tracing( double now ) const { return request_.trace() && !over( now ); }

   // What has come since the last call.
   void tell( double now, vex::pb::CaptureReply & reply );
   // One that was asked for long after now, too: the clock was set back.
   bool over( double now ) const {
      const auto since = now - asked_.load( std::memory_order_relaxed );
      return since > kPatience || since < -kPatience;
   }

 private:
   explicit Capture( const vex::pb::CaptureRequest & request );
   // Null: there is none. Both under the lock.
   vex::pb::CaptureReply::Packet * slot();
   void put() { written_.store( written_.load( std::memory_order_relaxed ) + 1, std::memory_order_release ); }
   void takeAll( const Module & module, Packets packets, double now );
   void take( const Module & module, const Packet & packet, double now );

   const vex::pb::CaptureRequest request_;
   const Place place_;
   PcapFilter filter_;
   std::vector< vex::pb::CaptureReply::Packet > slots_; // keep their memory
   SpinLock writing_;
   std::atomic< std::uint64_t > written_ = 0;
   std::atomic< std::uint64_t > read_ = 0;
   std::atomic< std::uint64_t > lost_ = 0;
   std::atomic< double > asked_ = 0;
};

} // namespace Vexdp
