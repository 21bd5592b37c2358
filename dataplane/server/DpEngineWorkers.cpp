// Of the engine: workers, and their traffic classes, of which each receive queue has one. It has the name of its port,
// with the queue's number behind it where the port has several.
#include "DpClock.h"
#include "DpEngineHold.h"

#include <charconv>

namespace Vexdp {

namespace {

std::string className( const std::string & port, const Device & device, unsigned queue ) {
   return device.queues() == 1 ? port : fmt::format( "{}:{}", port, queue );
}

// "et1:2" is queue 2 of et1, when there is no port of that very name.
struct ClassName {
   std::string port;
   std::optional< unsigned > queue; // nothing: the whole port
};

ClassName classNamed( const std::string & name, const PortTable & ports ) {
   const auto colon = name.rfind( ':' );
   unsigned queue = 0;
   if ( ports.find( name ) != nullptr || colon == std::string::npos ) return { name, std::nullopt };
   const auto * const end = name.data() + name.size();
   const auto read = std::from_chars( name.data() + colon + 1, end, queue );
   const auto port = name.substr( 0, colon );
   const auto * device = ports.find( port );
   if ( read.ec != std::errc() || read.ptr != end || device == nullptr || queue >= device->queues() )
      return { name, std::nullopt };
   return { port, queue };
}

} // namespace

void Engine::list( bess::pb::ListWorkersResponse & response ) const {
   const Hold hold( *this );
   for ( unsigned wid = 0; wid < workers_.most(); ++wid ) {
      const auto * const worker = workers_.find( wid );
      if ( worker == nullptr ) continue;
      auto & status = *response.add_workers_status();
      status.set_wid( wid );
      status.set_core( -1 );
      status.set_running( !worker->paused() );
      status.set_num_tcs( std::int64_t( worker->lanes().size() ) );
   }
}

void Engine::makeWorkers() {
   if ( !workers_.empty() ) return;
   for ( unsigned wid = 0; wid < workers_.most(); ++wid ) workers_.add( wid, way() );
}

Outcome Engine::requireWorker( std::int64_t wid ) const {
   return workers_.find( wid ) != nullptr ? Outcome() : refuse( ENOENT, "there is no worker {}", wid );
}

Outcome Engine::addWorker( const bess::pb::AddWorkerRequest & request ) {
   const std::lock_guard< std::mutex > lock( mutex_ );
   const auto wid = request.wid();
   if ( wid < 0 || wid >= std::int64_t( workers_.most() ) )
      return workers_.most() == 1 ? refuse( ENOSPC, "one worker carries all packets, number 0" )
                                  : refuse( ENOSPC, "workers have numbers from 0 to {}", workers_.most() - 1 );
   if ( workers_.find( wid ) != nullptr ) return refuse( EEXIST, "worker {} is there", wid );
   workers_.add( unsigned( wid ), way() );
   const Pause pause( *this );
   workers_.portsChanged();
   watch();
   return {};
}

Outcome Engine::destroyWorker( std::int64_t wid ) {
   const std::lock_guard< std::mutex > lock( mutex_ );
   if ( auto out = requireWorker( wid ); !out.ok() ) return out;
   if ( workers_.count() == 1 && !ports_.ports().empty() )
      return refuse( EBUSY, "worker {} has {} ports", wid, ports_.ports().size() );
   workers_.remove( unsigned( wid ) );
   return {};
}

Outcome Engine::resetWorkers() {
   const std::lock_guard< std::mutex > lock( mutex_ );
   if ( !workers_.empty() && !ports_.ports().empty() )
      return refuse( EBUSY, "the workers have {} ports", ports_.ports().size() );
   for ( unsigned wid = 0; wid < workers_.most(); ++wid )
      if ( workers_.find( wid ) != nullptr ) workers_.remove( wid );
   return {};
}

Outcome Engine::pauseWorker( std::int64_t wid, bool paused ) {
   const Hold hold( *this );
   if ( auto out = requireWorker( wid ); !out.ok() ) return out;
   workers_.pausedIs( unsigned( wid ), paused );
   return {};
}

void Engine::listTcsOf( const Worker & worker, std::int64_t wid, bess::pb::ListTcsResponse & response ) const {
   for ( const auto & lane : worker.lanes() ) {
      auto & mclass = *response.add_classes_status()->mutable_class_();
      mclass.set_name( className( ports_.nameOf( *lane.device ), *lane.device, lane.queue ) );
      mclass.set_policy( "leaf" );
      mclass.set_blocked( worker.paused() );
      mclass.set_wid( wid );
      const auto & ends = lane.wire->ends[ graphs_.told().side() ];
      if ( const auto * const source = lane.kernel ? ends.ownSource : ends.source )
         mclass.set_leaf_module_name( source->name() );
      mclass.set_leaf_module_taskid( lane.queue );
   }
}

void Engine::list( const bess::pb::ListTcsRequest & request, bess::pb::ListTcsResponse & response ) const {
   const Hold hold( *this );
   if ( request.wid() >= 0 )
      if ( auto known = requireWorker( request.wid() ); !known.ok() )
         return report( { {}, {}, "ListTcs" }, known, response );
   for ( unsigned wid = 0; wid < workers_.most(); ++wid )
      if ( const auto * const worker = workers_.find( wid ); worker != nullptr )
         if ( request.wid() < 0 || request.wid() == wid ) listTcsOf( *worker, wid, response );
}

void Engine::describe( const bess::pb::GetTcStatsRequest & request, bess::pb::GetTcStatsResponse & response ) const {
   const Hold hold( *this );
   const auto asked = classNamed( request.name(), ports_ );
   const auto * device = portOf( asked.port, "GetTcStats", response );
   if ( device == nullptr ) return;
   Device::Carried sum;
   for ( unsigned queue = 0; queue < device->queues(); ++queue )
      if ( !asked.queue || asked.queue == queue ) sum += device->carried( queue );
   const auto in = asked.queue ? Device::Stat{ sum.packets, 0, sum.bytes } : device->stats().in;
   response.set_timestamp( secondsNow() );
   response.set_count( sum.bursts );
   response.set_cycles( sum.cycles );
   response.set_packets( in.packets );
   response.set_bits( in.bytes * 8 );
}

} // namespace Vexdp
