#include "DpProbe.h"

#include "DpPorts.h"
#include "DpReport.h"
#include "DpWalk.h"

#include <cerrno>
#include <thread>

namespace Vexdp {

Outcome Probe::check() const { return requireAtMost( "packets", std::uint64_t( request_.packet_size() ), kMost ); }

void Probe::some( const Graph & graph, CounterTable & counters ) {
   const auto began = std::chrono::steady_clock::now();
   Walk walk( counters, Purpose::described );
   walk.stepsAre( request_.steps() );
   const PortRx * source = nullptr;
   for ( int n = 0; n < kAtOnce && !done(); ++n ) {
      const auto & packet = request_.packet( next_++ );
      auto & fate = *reply_.add_fate();
      if ( source == nullptr || source->intfname() != packet.intfname() ) source = sourceOf( graph, packet.intfname() );
      const auto out = source == nullptr ? refuse( ENOENT, "no PortRx has the interface \"{}\"", packet.intfname() )
                                         : tracePacket( graph, *source, walk, packet, fate );
      report( { packet.intfname(), {}, "Probe" }, out, fate );
   }
   took_ = std::chrono::steady_clock::now() - began;
}

void Probe::rest() const { std::this_thread::sleep_for( kRestsAsLong * took_ ); }

} // namespace Vexdp
