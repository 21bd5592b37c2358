// show ports: what stands between the data plane's graph and the outside. show workers,
// show buffers.
#include "HostShowPorts.h"

#include "HostKeptPort.h"
#include "HostPorts.h"
#include "HostShows.h"
#include "VexEnginePorts.h"

namespace Host {

namespace {

void direction( Json & row, const std::string & suffix, const PortTraffic & traffic ) {
   row[ "packets" + suffix ] = traffic.packets;
   row[ "bytes" + suffix ] = traffic.bytes;
   row[ "drops" + suffix ] = traffic.dropped;
   row[ "packetsPerSecond" + suffix ] = traffic.packetsPerSecond;
   row[ "bitsPerSecond" + suffix ] = traffic.bitsPerSecond;
}

void portRow( const PortKey & key, const KeptPort & port, Output & out ) {
   Json row{ { "port", port.name() } };
   if ( !!key.intfId ) row[ "interface" ] = key.intfId.stringValue();
   if ( const auto & wish = port.wish() ) {
      row[ "driver" ] = wish->create.driver();
      row[ "device" ] = wish->device;
      if ( !wish->netns.empty() ) row[ "netns" ] = wish->netns;
   }
   row[ "state" ] = textOf( port.state() );
   if ( !port.reason().empty() ) row[ "reason" ] = port.reason();
   row[ "mac" ] = port.mac();
   row[ "link" ] = port.linkUp();
   row[ "speed" ] = port.speed();
   direction( row, "In", port.in() );
   direction( row, "Out", port.out() );
   out.row( row );
}

std::unique_ptr< Answer > ports( const Asked & asked ) {
   const AgentView session( asked.daemon );
   return perKey< PortKey >(
        [ session ] {
           std::vector< PortKey > keys;
           if ( const auto * const all = session.ports() )
              for ( const auto & [ key, port ] : all->kept() ) keys.push_back( key );
           return keys;
        },
        [ session ]( const PortKey & key, Output & out ) {
           const auto * const all = session.ports();
           if ( const auto * const port = all == nullptr ? nullptr : all->port( key ) ) portRow( key, *port, out );
        } );
}

void workerRows( const bess::pb::ListWorkersResponse & reply, Output & out ) {
   for ( const auto & worker : reply.workers_status() ) {
      Json row{ { "worker", worker.wid() } };
      row[ "core" ] = worker.core() < 0 ? Json() : Json( worker.core() );
      row[ "running" ] = worker.running();
      row[ "trafficClasses" ] = worker.num_tcs();
      row[ "silentDrops" ] = worker.silent_drops();
      out.row( row );
   }
}

void bufferRows( const bess::pb::DumpMempoolResponse & reply, Output & out ) {
   for ( const auto & pool : reply.dumps() ) {
      if ( !pool.initialized() ) continue;
      out.row( { { "socket", pool.socket() },
                 { "buffers", pool.mp_size() },
                 { "bytesEach", pool.mp_element_size() },
                 { "available", pool.mp_available_count() },
                 { "inUse", pool.mp_in_use_count() } } );
   }
}

// What the data plane answers to one call.
template < typename Reply >
class Asking : public Answer {
 public:
   using Ask = Vex::EnginePorts::Call ( Vex::EnginePorts::* )( Vex::EnginePorts::Done< Reply > );
   using Rows = void ( * )( const Reply & reply, Output & out );
   Asking( const Asked & asked, Ask ask, Rows rows ) :
        view_( asked.daemon ), engine_( view_.channel()->peer() ), rows_( rows ),
        call_( ( engine_.*ask )( [ this, wake = asked.wake ]( const auto & error, const auto & reply ) {
           error_ = error.empty() ? reply.error().errmsg() : error;
           reply_ = reply;
           done_ = true;
           wake();
        } ) ) {}

   Step step( Output & out ) override {
      if ( !done_ ) return Step::wait;
      if ( !error_.empty() ) throw CommandError( ErrorCode::refused, "the data plane: " + error_ );
      rows_( reply_, out );
      return Step::done;
   }

 private:
   const AgentView view_;
   Vex::EnginePorts engine_;
   const Rows rows_;
   Reply reply_;
   std::string error_;
   bool done_ = false;
   Vex::EnginePorts::Call call_; // gone first: it calls back
};

template < typename Reply >
Command asking( const char * name, typename Asking< Reply >::Ask ask, typename Asking< Reply >::Rows rows ) {
   return { name, {}, [ ask, rows ]( const Asked & asked ) -> std::unique_ptr< Answer > {
              return std::make_unique< Asking< Reply > >( asked, ask, rows );
           } };
}

} // namespace

void portFacts( const AgentView & session, Kynet::IntfId intfId, Json & row ) {
   const auto * const ports = session.ports();
   if ( ports == nullptr ) return;
   const auto tell = [ & ]( bool kernel, const char * device, const char * state, const char * reason ) {
      const auto * const port = ports->port( { intfId, kernel, {} } );
      if ( port == nullptr || !port->wish() ) return true;
      row[ device ] = port->wish()->device;
      row[ state ] = port->leftOut() ? "none" : textOf( port->state() );
      if ( !port->reason().empty() ) row[ reason ] = port->reason();
      return port->state() == KeptPort::State::up;
   };
   if ( !tell( false, "device", "port", "portReason" ) && row[ "state" ] == "up" ) row[ "state" ] = "down";
   tell( true, "kernelDevice", "kernelState", "kernelReason" );
}

Commands portShows() {
   return { { "show ports", {}, ports },
            asking< bess::pb::ListWorkersResponse >( "show workers", &Vex::EnginePorts::listWorkers, workerRows ),
            asking< bess::pb::DumpMempoolResponse >( "show buffers", &Vex::EnginePorts::dumpMempool, bufferRows ) };
}

} // namespace Host
