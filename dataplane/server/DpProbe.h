// Many described packets, walked through the graph a few at a time.
#pragma once

#include "DpTracePacket.h"

#include <chrono>

namespace Vexdp {

// Between two calls of some() the graph may change, and real packets are carried.
class Probe {
 public:
   static constexpr int kMost = 65536;    // packets
   static constexpr int kAtOnce = 8;      // packets between which nobody else has the graph
   static constexpr int kRestsAsLong = 9; // as some() took

   // Both outlive it.
   Probe( const vex::pb::ProbeRequest & request, vex::pb::ProbeReply & reply ) : request_( request ), reply_( reply ) {}
   // ERANGE: there are too many.
   Outcome check() const;

   bool done() const { return next_ == request_.packet_size(); }
   // The next few. REQUIRES: the workers are held, and check() was good.
   void some( const Graph & graph, CounterTable & counters );
   // Leaves the graph to others. REQUIRES: the workers aren't held.
   void rest() const;

 private:
   const vex::pb::ProbeRequest & request_;
   vex::pb::ProbeReply & reply_;
   int next_ = 0;
   std::chrono::steady_clock::duration took_{};
};

} // namespace Vexdp
