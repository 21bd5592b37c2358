// show ports, show workers, show buffers: what stands between the data plane's graph and the outside.
#include "HostShowPorts.h"

#include "HostAsking.h"
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

void workerRow( const bess::pb::ListWorkersResponse::WorkerStatus & worker, Output & out ) {
   Json row{ { "worker", worker.wid() } };
   row[ "core" ] = worker.core() < 0 ? Json() : Json( worker.core() );
   row[ "running" ] = worker.running();
   row[ "trafficClasses" ] = worker.num_tcs();
   row[ "silentDrops" ] = worker.silent_drops();
   out.row( row );
}

void bufferRow( const bess::pb::DumpMempoolResponse::MempoolDump & pool, Output & out ) {
   if ( !pool.initialized() ) return;
   out.row( { { "socket", pool.socket() },
              { "buffers", pool.mp_size() },
              { "bytesEach", pool.mp_element_size() },
              { "available", pool.mp_available_count() },
              { "inUse", pool.mp_in_use_count() } } );
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
   return {
        { "show ports", {}, ports },
        asking( "show workers", &Vex::EnginePorts::listWorkers, &bess::pb::ListWorkersResponse::workers_status,
                workerRow ),
        asking( "show buffers", &Vex::EnginePorts::dumpMempool, &bess::pb::DumpMempoolResponse::dumps, bufferRow ) };
}

} // namespace Host
