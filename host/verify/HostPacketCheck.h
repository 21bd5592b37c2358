// verify --packets: packets that meet everything the router is told, walked through the data plane, and their fates
// compared with those of the model.
#pragma once

#include "HostAgentView.h"
#include "HostFindings.h"
#include "HostPacketProbes.h"
#include "VexEngineQuery.h"

#include "vex/engine.pb.h"

#include <chrono>

namespace Host {

// What does not go as it should is asked again when nothing is under way, for it may have changed in between: a
// difference is one that lasts.
class PacketCheck {
 public:
   // `wake` has step() called again, and `later` after a little while.
   PacketCheck( const AgentView & session, const RouterState & state, size_t most, std::function< void() > wake,
                std::function< void() > later );

   // Throws CommandError: the data plane does not answer, or never settles.
   Answer::Step step( Findings & findings );
   // After the last step.
   void write( Output & out ) const;

 private:
   struct Asked {
      PacketProbe probe;
      const char * what;
      bool again = false;
   };
   using Batch = std::vector< Asked >;
   using Clock = std::chrono::steady_clock;
   static constexpr size_t batchMost = 512;
   static constexpr size_t doubtsMost = 4096; // beyond them, what is found at a quiet moment counts at once
   static constexpr int roundsMost = 200;
   static constexpr std::chrono::microseconds slice{ 2000 };
   static bool over( Clock::time_point began ) { return Clock::now() - began > slice; }

   // False: the slice is over.
   bool fill();
   void send();
   // The same.
   bool compare( Findings & findings );
   void compare( Asked & asked, const vex::pb::TracePacketReply & found, Findings & findings );
   // The doubts become the next batch, when nothing is under way.
   void askDoubts();
   bool quiet() const;

   const AgentView session_;
   const std::function< void() > wake_, later_;
   ProbeScope scope_;
   std::deque< std::unique_ptr< ProbeSource > > sources_;
   Batch batch_;
   std::deque< Asked > doubts_;
   int rounds_ = 0;
   // Of the batch that was sent.
   bool wasQuiet_ = false;
   U64 generation_ = 0;
   bool answered_ = false;
   std::string error_;
   vex::pb::ProbeReply reply_;
   size_t next_ = 0; // to be compared
   std::vector< FateMet > met_;
   Vex::EngineQuery query_;
   std::unique_ptr< Vex::EngineCall > call_; // gone first: it calls back
};

} // namespace Host
