// The data plane: the graph, its counters, and everything that can be asked of them. Each operation takes the engine's
// lock, holds it to its end, and may be called from any thread.
#pragma once

#include "DpCounterTable.h"
#include "DpDump.h"
#include "DpGraph.h"
#include "DpRequests.h"

#include <mutex>

namespace Vexdp {

class Engine {
 public:
   // The counter table outlives the engine, and nobody else writes it.
   explicit Engine( CounterTable & counters, const Limits & limits = {} ) :
        counters_( counters ), graph_( limits ), requests_( graph_ ) {}

   // Back to the state of a fresh data plane: no modules, counters at zero, no batch applied.
   void reset();
   // No modules.
   void resetModules();

   // See applyBatch().
   void apply( const vex::pb::Batch & batch, vex::pb::BatchReply & reply );

   // The same requests one by one.
   void apply( const bess::pb::CreateModuleRequest & request, bess::pb::CreateModuleResponse & response );
   void apply( const bess::pb::DestroyModuleRequest & request, bess::pb::EmptyResponse & response );
   void apply( const bess::pb::ConnectModulesRequest & request, bess::pb::EmptyResponse & response );
   void apply( const bess::pb::DisconnectModulesRequest & request, bess::pb::EmptyResponse & response );
   void apply( const bess::pb::CommandRequest & request, bess::pb::CommandResponse & response );

   void list( bess::pb::ListModulesResponse & response ) const;
   void describe( const std::string & module, bess::pb::GetModuleInfoResponse & response ) const;

   void lookup( const vex::pb::LookupRequest & request, vex::pb::LookupReply & reply ) const;
   void trace( const vex::pb::TracePacketRequest & request, vex::pb::TracePacketReply & reply );

   // ENOENT: a module that is named is not there.
   Outcome dump( const vex::pb::DumpRequest & request, std::unique_ptr< Dump > & dump ) const;

   const CounterTable & counters() const { return counters_; }
   // See CounterTable::share().
   std::string shareCounters();
   const Limits & limits() const { return graph_.limits(); }

 private:
   mutable std::mutex mutex_;
   CounterTable & counters_;
   Graph graph_;
   Requests requests_;
   std::uint64_t lastBatch_ = 0;
};

} // namespace Vexdp
