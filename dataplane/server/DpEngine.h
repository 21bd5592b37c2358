// The data plane: the graph, its counters, its ports, and everything that can be asked of them. Each operation takes
// the engine's lock, holds it and all workers to its end, and may be called from any thread. A batch lets the workers
// carry packets now and then; while a device is made or ended, and while a session makes a graph beside the one that
// forwards, they work.
#pragma once

#include "DpCaptures.h"
#include "DpCounterTable.h"
#include "DpDump.h"
#include "DpGateHooks.h"
#include "DpGraphs.h"
#include "DpIpFragments.h"
#include "DpPortTable.h"
#include "DpRequests.h"
#include "DpWorkers.h"

#include <chrono>
#include <functional>
#include <mutex>

namespace Vexdp {

struct EngineOptions {
   Limits limits{};
   EalOptions eal{};
   unsigned workers = 1;       // at most, to kMostWorkers
   bool busy = false;          // they never sleep
   std::size_t memoryMost = 0; // bytes of this process with two graphs; 0: whatever they take
};

class Engine {
 public:
   // The counter table outlives the engine, and nobody else writes it. REQUIRES: it has a writer for each worker
   explicit Engine( CounterTable & counters, const EngineOptions & options = {} );

   // Back to the state of a fresh data plane: no modules, no ports, counters at zero, no batch applied.
   void reset();
   // A session that is to disturb nothing: ports stay, and so does the graph, if it has modules, beside an empty one,
   // which is what all requests are about from here on. The counters are the session's, from zero; what still goes
   // through the other graph is counted nowhere. False: there was none, and the session's is the only one.
   bool beginBeside();
   // The session is over. What it made beside another graph goes.
   void endBeside();
   // No modules.
   void resetModules();

   // See applyBatch(). With `in_step`, packets go through the session's graph afterwards.
   void apply( const vex::pb::Batch & batch, vex::pb::BatchReply & reply );

   // The same requests one by one.
   void apply( const bess::pb::CreateModuleRequest & request, bess::pb::CreateModuleResponse & response );
   void apply( const bess::pb::DestroyModuleRequest & request, bess::pb::EmptyResponse & response );
   void apply( const bess::pb::ConnectModulesRequest & request, bess::pb::EmptyResponse & response );
   void apply( const bess::pb::DisconnectModulesRequest & request, bess::pb::EmptyResponse & response );
   void apply( const bess::pb::CommandRequest & request, bess::pb::CommandResponse & response );

   void list( bess::pb::ListModulesResponse & response ) const;
   void describe( const std::string & module, bess::pb::GetModuleInfoResponse & response ) const;

   void apply( const bess::pb::CreatePortRequest & request, bess::pb::CreatePortResponse & response );
   void apply( const bess::pb::DestroyPortRequest & request, bess::pb::EmptyResponse & response );
   void apply( const bess::pb::SetPortConfRequest & request, bess::pb::CommandResponse & response );
   void resetPorts();
   void list( bess::pb::ListPortsResponse & response ) const;
   void describe( const bess::pb::GetPortConfRequest & request, bess::pb::GetPortConfResponse & response ) const;
   void describe( const bess::pb::GetPortStatsRequest & request, bess::pb::GetPortStatsResponse & response ) const;
   void describe( const bess::pb::GetLinkStatusRequest & request, bess::pb::GetLinkStatusResponse & response ) const;
   void list( bess::pb::ListWorkersResponse & response ) const;
   // EEXIST: it is there. ENOSPC: it is not one of those that there may be.
   Outcome addWorker( const bess::pb::AddWorkerRequest & request );
   // EBUSY: it is the last one, and there are ports. ENOENT: there is no such worker.
   Outcome destroyWorker( std::int64_t wid );
   Outcome pauseWorker( std::int64_t wid, bool paused );
   // EBUSY: there are ports.
   Outcome resetWorkers();
   void list( const bess::pb::ListTcsRequest & request, bess::pb::ListTcsResponse & response ) const;
   void describe( const bess::pb::GetTcStatsRequest & request, bess::pb::GetTcStatsResponse & response ) const;
   void apply( const bess::pb::ConfigureGateHookRequest & request, bess::pb::ConfigureGateHookResponse & response );
   void list( bess::pb::ListGateHooksResponse & response ) const;
   void apply( const bess::pb::GateHookCommandRequest & request, bess::pb::CommandResponse & response );
   void dump( const bess::pb::DumpMempoolRequest & request, bess::pb::DumpMempoolResponse & response ) const;

   void lookup( const vex::pb::LookupRequest & request, vex::pb::LookupReply & reply ) const;
   void trace( const vex::pb::TracePacketRequest & request, vex::pb::TracePacketReply & reply );
   // The workers are held for a few packets at a time, and carry their own for many times as long between them.
   void probe( const vex::pb::ProbeRequest & request, vex::pb::ProbeReply & reply );
   void drops( vex::pb::DropsReply & reply ) const;
   void gates( vex::pb::GatesReply & reply ) const;
   // Its filter is made before anybody is held.
   void capture( const vex::pb::CaptureRequest & request, vex::pb::CaptureReply & reply );

   // ENOENT: a module that is named is not there.
   Outcome dump( const vex::pb::DumpRequest & request, std::unique_ptr< Dump > & dump ) const;

   const CounterTable & counters() const { return counters_; }
   // See CounterTable::share().
   std::string shareCounters();
   const Limits & limits() const { return limits_; }

 private:
   // All workers between two turns.
   class Pause;
   // The lock, and a pause.
   class Hold;
   // Packets go through the session's graph from here on, after they have waited so long. REQUIRES: another one is live
   std::chrono::nanoseconds changeOver();
   vex::pb::InStep inStep();
   // Ends the other graph when both take too much.
   void keepMemory();
   // With the workers at a pause, as takePorts() and watch().
   void tellWay();
   Worker::Way way() { return { graphs_.live().side(), counting_ ? &counters_ : &unread_ }; }
   PortTable::Ports takePorts();
   void watch();
   // All that there may be, unless some are there.
   void makeWorkers();
   void removeWorker( std::int64_t wid );
   Outcome requireWorker( std::int64_t wid ) const;
   void listTcsOf( const Worker & worker, std::int64_t wid, bess::pb::ListTcsResponse & response ) const;
   Outcome captureIs( const vex::pb::CaptureRequest & request, std::unique_ptr< Capture > made, double now,
                      vex::pb::CaptureReply & reply );
   // The device of the name, or the refusal in the response.
   template < class Response >
   const Device * portOf( const std::string & name, const char * request, Response & response ) const;

   mutable std::mutex mutex_;
   CounterTable & counters_;
   CounterTable unread_;  // of a graph whose session is gone
   bool counting_ = true; // the live graph does so in counters_
   const Limits limits_;
   const std::size_t memoryMost_;
   Graphs graphs_;
   Eal eal_;
   IpFragments fragments_;
   std::string early_; // why packets went through the session's graph before it was in step
   PortTable ports_;
   Captures captures_;
   GateHooks hooks_;
   Workers workers_; // none before there is a port
   std::uint64_t lastBatch_ = 0;
};

} // namespace Vexdp
