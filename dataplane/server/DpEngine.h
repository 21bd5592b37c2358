// The data plane: the graph, its counters, its ports, and everything that can be asked of them. Each operation takes
// the engine's lock, holds it and the worker to its end, and may be called from any thread. A batch lets the worker
// carry packets now and then; while a device is made or ended the worker works.
#pragma once

#include "DpCaptures.h"
#include "DpCounterTable.h"
#include "DpDump.h"
#include "DpGateHooks.h"
#include "DpGraph.h"
#include "DpIpFragments.h"
#include "DpPortTable.h"
#include "DpRequests.h"
#include "DpWorker.h"

#include <functional>
#include <mutex>

namespace Vexdp {

struct EngineOptions {
   Limits limits{};
   EalOptions eal{};
   bool busy = false; // the worker never sleeps
};

class Engine {
 public:
   // The counter table outlives the engine, and nobody else writes it.
   explicit Engine( CounterTable & counters, const EngineOptions & options = {} ) :
        counters_( counters ), graph_( options.limits ), requests_( graph_ ), eal_( options.eal ), fragments_( eal_ ),
        ports_( eal_, graph_.wires() ), busy_( options.busy ) {
      graph_.kept< UsedReassembly >().reassembly = &fragments_;
   }

   // Back to the state of a fresh data plane: no modules, no ports, counters at zero, no batch applied.
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

   void apply( const bess::pb::CreatePortRequest & request, bess::pb::CreatePortResponse & response );
   void apply( const bess::pb::DestroyPortRequest & request, bess::pb::EmptyResponse & response );
   void apply( const bess::pb::SetPortConfRequest & request, bess::pb::CommandResponse & response );
   void resetPorts();
   void list( bess::pb::ListPortsResponse & response ) const;
   void describe( const bess::pb::GetPortConfRequest & request, bess::pb::GetPortConfResponse & response ) const;
   void describe( const bess::pb::GetPortStatsRequest & request, bess::pb::GetPortStatsResponse & response ) const;
   void describe( const bess::pb::GetLinkStatusRequest & request, bess::pb::GetLinkStatusResponse & response ) const;
   void list( bess::pb::ListWorkersResponse & response ) const;
   // EEXIST: it is there. ENOSPC: there is but one.
   Outcome addWorker( const bess::pb::AddWorkerRequest & request );
   // EBUSY: it has ports. ENOENT: there is no such worker.
   Outcome destroyWorker( std::int64_t wid );
   Outcome pauseWorker( std::int64_t wid, bool paused );
   Outcome resetWorkers();
   void list( const bess::pb::ListTcsRequest & request, bess::pb::ListTcsResponse & response ) const;
   void describe( const bess::pb::GetTcStatsRequest & request, bess::pb::GetTcStatsResponse & response ) const;
   void apply( const bess::pb::ConfigureGateHookRequest & request, bess::pb::ConfigureGateHookResponse & response );
   void list( bess::pb::ListGateHooksResponse & response ) const;
   void apply( const bess::pb::GateHookCommandRequest & request, bess::pb::CommandResponse & response );
   void dump( const bess::pb::DumpMempoolRequest & request, bess::pb::DumpMempoolResponse & response ) const;

   void lookup( const vex::pb::LookupRequest & request, vex::pb::LookupReply & reply ) const;
   void trace( const vex::pb::TracePacketRequest & request, vex::pb::TracePacketReply & reply );
   // The worker is held for a few packets at a time, and carries its own for many times as long between them.
   void probe( const vex::pb::ProbeRequest & request, vex::pb::ProbeReply & reply );
   void drops( vex::pb::DropsReply & reply ) const;
   void gates( vex::pb::GatesReply & reply ) const;
   void capture( const vex::pb::CaptureRequest & request, vex::pb::CaptureReply & reply );

   // ENOENT: a module that is named is not there.
   Outcome dump( const vex::pb::DumpRequest & request, std::unique_ptr< Dump > & dump ) const;

   const CounterTable & counters() const { return counters_; }
   // See CounterTable::share().
   std::string shareCounters();
   const Limits & limits() const { return graph_.limits(); }

 private:
   // The worker between two bursts.
   class Pause;
   // The lock, and a pause.
   class Hold;
   // Both with the worker at a pause.
   void portsChanged();
   PortTable::Ports takePorts();
   void watch();
   void makeWorker();
   Outcome requireWorker( std::int64_t wid ) const;
   Outcome captureIs( const vex::pb::CaptureRequest & request, double now, vex::pb::CaptureReply & reply );
   // The device of the name, or the refusal in the response.
   template < class Response >
   const Device * portOf( const std::string & name, const char * request, Response & response ) const;

   mutable std::mutex mutex_;
   CounterTable & counters_;
   Graph graph_;
   Requests requests_;
   Eal eal_;
   IpFragments fragments_;
   PortTable ports_;
   const bool busy_;
   Captures captures_;
   GateHooks hooks_;
   std::unique_ptr< Worker > worker_; // null before there is a port
   std::uint64_t lastBatch_ = 0;
};

} // namespace Vexdp
