#include "DpEngine.h"

#include "DpBatch.h"
#include "DpFibIpv4.h"
#include "DpListing.h"
#include "DpTracePacket.h"

#include <cerrno>

namespace Vexdp {

using namespace vex::pb;

using Lock = std::lock_guard< std::mutex >;

void Engine::reset() {
   const Lock lock( mutex_ );
   graph_.clear();
   counters_.clear();
   lastBatch_ = 0;
}

std::string Engine::shareCounters() {
   const Lock lock( mutex_ );
   return counters_.share();
}

void Engine::resetModules() {
   const Lock lock( mutex_ );
   graph_.clear();
}

void Engine::apply( const Batch & batch, BatchReply & reply ) {
   const Lock lock( mutex_ );
   applyBatch( requests_, batch, reply );
   lastBatch_ = batch.number();
}

void Engine::apply( const bess::pb::CreateModuleRequest & request, bess::pb::CreateModuleResponse & response ) {
   const Lock lock( mutex_ );
   const auto out = requests_.create( request, *response.mutable_name() );
   report( subjectOf( request ), out, response );
   if ( !out.ok() ) response.clear_name();
}

void Engine::apply( const bess::pb::DestroyModuleRequest & request, bess::pb::EmptyResponse & response ) {
   const Lock lock( mutex_ );
   const auto subject = requests_.subject( request.name(), kDestroy );
   report( subject, requests_.destroy( request ), response );
}

void Engine::apply( const bess::pb::ConnectModulesRequest & request, bess::pb::EmptyResponse & response ) {
   const Lock lock( mutex_ );
   report( requests_.subject( request.m1(), kConnect ), requests_.connect( request ), response );
}

void Engine::apply( const bess::pb::DisconnectModulesRequest & request, bess::pb::EmptyResponse & response ) {
   const Lock lock( mutex_ );
   report( requests_.subject( request.name(), kDisconnect ), requests_.disconnect( request ), response );
}

void Engine::apply( const bess::pb::CommandRequest & request, bess::pb::CommandResponse & response ) {
   const Lock lock( mutex_ );
   Requests::Target target;
   Answer answer;
   auto out = requests_.find( request.name(), request.cmd(), typeName( request.arg() ), target );
   if ( out.ok() ) out = target.run( request.arg().value(), answer );
   report( requests_.subject( request.name(), request.cmd() ), out, response );
   if ( answer ) response.mutable_data()->Swap( answer.get() );
}

void Engine::list( bess::pb::ListModulesResponse & response ) const {
   const Lock lock( mutex_ );
   listModules( graph_, response );
}

void Engine::describe( const std::string & module, bess::pb::GetModuleInfoResponse & response ) const {
   const Lock lock( mutex_ );
   report( { module, {}, "GetModuleInfo" }, describeModule( graph_, module, response ), response );
}

void Engine::lookup( const LookupRequest & request, LookupReply & reply ) const {
   const Lock lock( mutex_ );
   const auto subject = requests_.subject( request.module(), "Lookup" );
   const auto * module = graph_.find( request.module() );
   if ( module == nullptr ) return report( subject, refuse( ENOENT, "no such module" ), reply );
   const auto * fib = dynamic_cast< const FibIpv4 * >( module );
   if ( fib == nullptr )
      return report( subject, refuse( EOPNOTSUPP, "class {} has no routes", module->mclass().name ), reply );
   report( subject, fib->lookup( request, reply ), reply );
}

void Engine::trace( const TracePacketRequest & request, TracePacketReply & reply ) {
   const Lock lock( mutex_ );
   report( { request.intfname(), {}, "TracePacket" }, tracePacket( graph_, counters_, request, reply ), reply );
}

Outcome Engine::dump( const DumpRequest & request, std::unique_ptr< Dump > & dump ) const {
   const Lock lock( mutex_ );
   for ( const auto & name : request.module() )
      if ( graph_.find( name ) == nullptr ) return refuse( ENOENT, "there is no module {}", name );
   dump = std::make_unique< Dump >( graph_, lastBatch_, request.module() );
   return {};
}

} // namespace Vexdp
