#include "DpEngine.h"

#include "DpBatch.h"
#include "DpClock.h"
#include "DpEngineHold.h"
#include "DpFibIpv4.h"
#include "DpListing.h"
#include "DpProbe.h"
#include "DpTracePacket.h"
#include "RuntimeMemory.h"

#include <spdlog/spdlog.h>

#include <cerrno>
#include <chrono>

namespace Vexdp {

using namespace vex::pb;

namespace {
// Commands of a batch between which packets are carried.
constexpr unsigned kCommandsAtOnce = 64;
} // namespace

Engine::Engine( CounterTable & counters, const EngineOptions & options ) :
     counters_( counters ), unread_( options.workers ), limits_( options.limits ), memoryMost_( options.memoryMost ),
     graphs_( options.limits, options.workers ), eal_( options.eal ), fragments_( eal_ ),
     ports_( eal_, graphs_.surroundings().wires(), options.workers ), captures_( options.workers ),
     workers_( ports_, eal_, options.workers, options.busy ) {
   graphs_.surroundings().kept< UsedReassembly >().reassembly = &fragments_;
}

PortTable::Ports Engine::takePorts() {
   auto ports = ports_.takeAll();
   workers_.portsChanged();
   return ports;
}

void Engine::reset() {
   const std::lock_guard< std::mutex > lock( mutex_ );
   PortTable::Ports ended;
   GateHooks::Ended writers;
   {
      const Pause pause( *this );
      ended = takePorts();
      hooks_.clear( captures_, writers );
      watch();
      workers_.goOn();
      graphs_.clear();
      counters_.clear();
      counting_ = true;
      tellWay();
   }
   workers_.awaitAwake();
   lastBatch_ = 0;
   early_.clear();
}

void Engine::tellWay() { workers_.wayIs( way() ); }

bool Engine::beginBeside() {
   const std::lock_guard< std::mutex > lock( mutex_ );
   graphs_.drop();
   const bool another = !graphs_.live().modules().empty();
   if ( another ) graphs_.begin();
   const Pause pause( *this );
   counting_ = !another;
   tellWay();
   counters_.clear();
   lastBatch_ = 0;
   early_.clear();
   return another;
}

void Engine::endBeside() {
   const std::lock_guard< std::mutex > lock( mutex_ );
   graphs_.drop();
}

std::chrono::nanoseconds Engine::changeOver() {
   const auto began = std::chrono::steady_clock::now();
   std::unique_ptr< Graphs::Told > gone;
   {
      const Pause pause( *this );
      gone = graphs_.follow();
      counting_ = true;
      tellWay();
   }
   const auto held = std::chrono::steady_clock::now() - began;
   graphs_.free( std::move( gone ) );
   return held;
}

InStep Engine::inStep() {
   InStep done;
   done.set_early( early_ );
   if ( !graphs_.beside() ) return done;
   done.set_changed( true );
   done.set_held( std::uint64_t( changeOver().count() ) );
   return done;
}

void Engine::keepMemory() {
   if ( memoryMost_ == 0 || Runtime::resident() <= memoryMost_ ) return;
   constexpr std::size_t kMega = 1u << 20;
   early_ = fmt::format( "both graphs took more than {} MB", memoryMost_ / kMega );
   spdlog::warn( "{}: packets go through the one that is not complete", early_ );
   changeOver();
}

std::string Engine::shareCounters() {
   const Hold hold( *this );
   return counters_.share();
}

void Engine::resetModules() {
   const Hold hold( *this );
   graphs_.clear();
   counting_ = true;
   tellWay();
}

// No packet goes through a graph beside the one that forwards: there is nothing to hold.
void Engine::apply( const Batch & batch, BatchReply & reply ) {
   const std::lock_guard< std::mutex > lock( mutex_ );
   if ( graphs_.beside() ) {
      applyBatch( graphs_.requests(), batch, reply );
      keepMemory();
   } else {
      const Pause pause( *this );
      applyBatch( graphs_.requests(), batch, reply, [ this, count = 0u ]() mutable {
         if ( ++count % kCommandsAtOnce == 0 ) workers_.breathe();
      } );
   }
   lastBatch_ = batch.number();
   if ( batch.in_step() ) *reply.mutable_in_step() = inStep();
}

void Engine::apply( const bess::pb::CreateModuleRequest & request, bess::pb::CreateModuleResponse & response ) {
   const Hold hold( *this );
   const auto out = graphs_.requests().create( request, *response.mutable_name() );
   report( subjectOf( request ), out, response );
   if ( !out.ok() ) response.clear_name();
}

void Engine::apply( const bess::pb::DestroyModuleRequest & request, bess::pb::EmptyResponse & response ) {
   const Hold hold( *this );
   const auto subject = graphs_.requests().subject( request.name(), kDestroy );
   report( subject, graphs_.requests().destroy( request ), response );
}

void Engine::apply( const bess::pb::ConnectModulesRequest & request, bess::pb::EmptyResponse & response ) {
   const Hold hold( *this );
   report( graphs_.requests().subject( request.m1(), kConnect ), graphs_.requests().connect( request ), response );
}

void Engine::apply( const bess::pb::DisconnectModulesRequest & request, bess::pb::EmptyResponse & response ) {
   const Hold hold( *this );
   report( graphs_.requests().subject( request.name(), kDisconnect ), graphs_.requests().disconnect( request ),
           response );
}

void Engine::apply( const bess::pb::CommandRequest & request, bess::pb::CommandResponse & response ) {
   const Hold hold( *this );
   Requests::Target target;
   Answer answer;
   auto out = graphs_.requests().find( request.name(), request.cmd(), typeName( request.arg() ), target );
   if ( out.ok() ) {
      target.read( request.arg().value() );
      out = target.run( answer );
   }
   report( graphs_.requests().subject( request.name(), request.cmd() ), out, response );
   if ( answer ) response.mutable_data()->Swap( answer.get() );
}

void Engine::list( bess::pb::ListModulesResponse & response ) const {
   const Hold hold( *this );
   listModules( graphs_.told(), response );
}

void Engine::describe( const std::string & module, bess::pb::GetModuleInfoResponse & response ) const {
   const Hold hold( *this );
   report( { module, {}, "GetModuleInfo" }, describeModule( graphs_.told(), module, response ), response );
   hooks_.addTo( response );
}

// The workers begin with the first port: without any there is nothing to carry.
void Engine::apply( const bess::pb::CreatePortRequest & request, bess::pb::CreatePortResponse & response ) {
   const std::lock_guard< std::mutex > lock( mutex_ );
   PortTable::Port port;
   const auto out = ports_.make( request, port );
   report( { request.name(), request.driver(), "CreatePort" }, out, response );
   if ( !out.ok() ) return;
   response.set_name( port.listed.name() );
   response.set_mac_addr( port.listed.mac_addr() );
   makeWorkers();
   const Pause pause( *this );
   watch();
   ports_.add( std::move( port ) );
   workers_.portsChanged();
}

void Engine::apply( const bess::pb::DestroyPortRequest & request, bess::pb::EmptyResponse & response ) {
   const std::lock_guard< std::mutex > lock( mutex_ );
   PortTable::Port ended;
   {
      const Pause pause( *this );
      report( { request.name(), {}, "DestroyPort" }, ports_.take( request.name(), ended ), response );
      workers_.portsChanged();
   }
   workers_.awaitAwake();
}

void Engine::apply( const bess::pb::SetPortConfRequest & request, bess::pb::CommandResponse & response ) {
   const Hold hold( *this );
   auto * const device = ports_.find( request.name() );
   const auto out = device == nullptr ? refuse( ENOENT, "there is no such port" ) : device->confIs( request.conf() );
   report( { request.name(), {}, "SetPortConf" }, out, response );
}

void Engine::resetPorts() {
   const std::lock_guard< std::mutex > lock( mutex_ );
   PortTable::Ports ended;
   {
      const Pause pause( *this );
      ended = takePorts();
   }
   workers_.awaitAwake();
}

void Engine::list( bess::pb::ListPortsResponse & response ) const {
   const Hold hold( *this );
   for ( const auto & [ name, port ] : ports_.ports() ) *response.add_ports() = port.listed;
}

void Engine::describe( const bess::pb::GetPortConfRequest & request, bess::pb::GetPortConfResponse & response ) const {
   const Hold hold( *this );
   const auto * device = portOf( request.name(), "GetPortConf", response );
   if ( device == nullptr ) return;
   const auto conf = device->conf();
   response.mutable_conf()->set_mac_addr( conf.mac );
   response.mutable_conf()->set_mtu( conf.mtu );
   response.mutable_conf()->set_admin_up( conf.up );
}

void Engine::describe( const bess::pb::GetPortStatsRequest & request,
                       bess::pb::GetPortStatsResponse & response ) const {
   const Hold hold( *this );
   const auto * device = portOf( request.name(), "GetPortStats", response );
   if ( device == nullptr ) return;
   const auto stats = device->stats();
   const auto tell = []( const Device::Stat & stat, bess::pb::GetPortStatsResponse::Stat & told ) {
      told.set_packets( stat.packets );
      told.set_dropped( stat.dropped );
      told.set_bytes( stat.bytes );
   };
   tell( stats.in, *response.mutable_inc() );
   tell( stats.out, *response.mutable_out() );
   response.set_timestamp( secondsNow() );
}

void Engine::describe( const bess::pb::GetLinkStatusRequest & request,
                       bess::pb::GetLinkStatusResponse & response ) const {
   const Hold hold( *this );
   const auto * device = portOf( request.name(), "GetLinkStatus", response );
   if ( device == nullptr ) return;
   const auto link = device->link();
   if ( !link.lost.empty() )
      return report( { request.name(), {}, "GetLinkStatus" }, refuse( ENODEV, "{}", link.lost ), response );
   response.set_link_up( link.up );
   response.set_speed( link.speed );
   response.set_full_duplex( true );
}

void Engine::apply( const bess::pb::ConfigureGateHookRequest & request,
                    bess::pb::ConfigureGateHookResponse & response ) {
   GateHooks::Ended ended;
   const Hold hold( *this );
   const auto out =
        hooks_.configure( request, graphs_.live(), captures_, secondsNow(), *response.mutable_name(), ended );
   report( { request.hook().module_name(), {}, "ConfigureGateHook" }, out, response );
   if ( !out.ok() ) response.clear_name();
   watch();
}

void Engine::list( bess::pb::ListGateHooksResponse & response ) const {
   const Hold hold( *this );
   hooks_.list( graphs_.told(), response );
}

void Engine::apply( const bess::pb::GateHookCommandRequest & request, bess::pb::CommandResponse & response ) {
   const Hold hold( *this );
   report( { request.hook().module_name(), {}, "GateHookCommand" },
           GateHooks::command( request.hook(), request.cmd(), graphs_.told() ), response );
}

void Engine::dump( const bess::pb::DumpMempoolRequest &, bess::pb::DumpMempoolResponse & response ) const {
   const Hold hold( *this );
   for ( const auto & pool : eal_.pools() ) {
      auto & dump = *response.add_dumps();
      dump.set_initialized( true );
      dump.set_mp_size( pool.size );
      dump.set_mp_populated_size( pool.size );
      dump.set_mp_element_size( pool.elementSize );
      dump.set_mp_available_count( pool.available );
      dump.set_mp_in_use_count( pool.size - pool.available );
   }
}

void Engine::lookup( const LookupRequest & request, LookupReply & reply ) const {
   const Hold hold( *this );
   const auto subject = graphs_.requests().subject( request.module(), "Lookup" );
   const auto * module = graphs_.told().find( request.module() );
   if ( module == nullptr ) return report( subject, refuse( ENOENT, "no such module" ), reply );
   const auto * fib = dynamic_cast< const FibIpv4 * >( module );
   if ( fib == nullptr )
      return report( subject, refuse( EOPNOTSUPP, "class {} has no routes", module->mclass().name ), reply );
   report( subject, fib->lookup( request, reply ), reply );
}

void Engine::trace( const TracePacketRequest & request, TracePacketReply & reply ) {
   const Hold hold( *this );
   report( { request.intfname(), {}, "TracePacket" }, tracePacket( graphs_.told(), counters_, request, reply ), reply );
}

namespace {
void refuseIn( CaptureReply & reply, const Outcome & out ) {
   if ( out.ok() ) return;
   reply.mutable_error()->set_code( out.refusal().code );
   reply.mutable_error()->set_errmsg( out.refusal().reason );
}

} // namespace

// Packets that nobody looks at pay nothing for it.
void Engine::watch() {
   workers_.watchersAre(
        [ this ]( unsigned worker ) { return captures_.empty() ? nullptr : &captures_.eye( worker ); } );
}

Outcome Engine::captureIs( const CaptureRequest & request, std::unique_ptr< Capture > made, double now,
                           CaptureReply & reply ) {
   const Pause pause( *this );
   captures_.expire( now );
   std::uint64_t id = request.id();
   Outcome out;
   if ( request.end() && !Captures::ofHook( id ) )
      captures_.end( id );
   else if ( request.end() )
      out = refuse( ENOENT, "the capture is over" );
   else if ( !request.module().empty() && graphs_.live().find( request.module() ) == nullptr &&
             graphs_.told().find( request.module() ) == nullptr )
      out = refuse( ENOENT, "there is no module {}", request.module() );
   else
      out = captures_.begin( std::move( made ), now, id );
   watch();
   reply.set_id( id );
   return out;
}

void Engine::capture( const CaptureRequest & request, CaptureReply & reply ) {
   const bool begins = request.id() == 0 && !request.end();
   std::unique_ptr< Capture > made;
   if ( begins )
      if ( auto out = Capture::make( request, made ); !out.ok() ) return refuseIn( reply, out );
   const std::lock_guard< std::mutex > lock( mutex_ );
   const auto now = secondsNow();
   if ( begins || request.end() ) return refuseIn( reply, captureIs( request, std::move( made ), now, reply ) );
   const auto capture = Captures::ofHook( request.id() ) ? nullptr : captures_.find( request.id() );
   if ( !capture ) return refuseIn( reply, refuse( ENOENT, "the capture is over" ) );
   reply.set_id( request.id() );
   capture->tell( now, reply );
}

void Engine::drops( DropsReply & reply ) const {
   const Hold hold( *this );
   listDrops( graphs_.told(), reply );
   reply.set_timestamp( secondsNow() );
}

void Engine::gates( GatesReply & reply ) const {
   const Hold hold( *this );
   listGates( graphs_.told(), reply );
   reply.set_timestamp( secondsNow() );
}

void Engine::probe( const ProbeRequest & request, ProbeReply & reply ) {
   Probe probe( request, reply );
   if ( auto out = probe.check(); !out.ok() ) return report( { {}, {}, "Probe" }, out, reply );
   bool shared = true;
   while ( !probe.done() ) {
      {
         const Hold hold( *this );
         probe.some( graphs_.told(), counters_ );
         shared = !workers_.empty();
      }
      if ( shared ) probe.rest();
   }
}

Outcome Engine::dump( const DumpRequest & request, std::unique_ptr< Dump > & dump ) const {
   const Hold hold( *this );
   for ( const auto & name : request.module() )
      if ( graphs_.told().find( name ) == nullptr ) return refuse( ENOENT, "there is no module {}", name );
   dump = std::make_unique< Dump >( graphs_.told(), lastBatch_, request.module() );
   return {};
}

} // namespace Vexdp
