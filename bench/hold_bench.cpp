// How long a change holds the workers: until all of them are between two turns, with any number of them, asleep and
// carrying as much as they can.
#include "DpTestRouter.h"

#include "DpWorkers.h"

#include <algorithm>
#include <chrono>

namespace {

using namespace Vexdp;
using DpTest::Router;

// A device that brings the same packet without end, or nothing, and takes what leaves.
class Source : public Device {
 public:
   Source( unsigned workers, const Packet & packet, bool brings ) :
        Device( workers, workers ), packet_( packet ), brings_( brings ) {}
   void receive( unsigned, std::vector< Packet > & burst ) override {
      for ( std::size_t i = 0; brings_ && i < kBurst; ++i ) burst.push_back( packet_ );
   }
   void send( Packet && packet, unsigned ) override { const Packet gone = std::move( packet ); }
   Stats stats() const override { return {}; }
   Link link() const override { return {}; }
   Conf conf() const override { return {}; }
   Outcome confIs( const bess::pb::PortConf & ) override { return {}; }

 private:
   const Packet packet_;
   const bool brings_;
};

void measure( unsigned count, bool working ) {
   constexpr std::size_t kHolds = 5000;
   Eal eal{ {} };
   Router router( std::make_shared< Surroundings >( count ) );
   router.set( "disconnect NextHop_et2:1\nconnect NextHop_et2:1 tx_et2:0" );
   CounterTable counters( count );
   PortTable ports( eal, router.graph.wires(), count );
   auto packet = Router::described( "dst: @10.2.0.7 proto: 17" );
   prependEthernet( packet, Router::kEt1, { { 0x02, 0xbb, 0, 0, 0, 1 } }, kEtherTypeIpv4 );
   for ( const char * name : { "et1", "et2" } ) {
      PortTable::Port port;
      port.device = std::make_unique< Source >( count, packet, working && name[ 2 ] == '1' );
      port.listed.set_name( name );
      port.wire = router.graph.wires().of( name );
      ports.add( std::move( port ) );
   }
   Workers workers( ports, eal, count, false );
   for ( unsigned number = 0; number < count; ++number ) workers.add( number, { 0, &counters } );
   workers.hold();
   workers.portsChanged();
   workers.letGo();
   std::vector< double > held;
   for ( std::size_t i = 0; i < kHolds; ++i ) {
      std::this_thread::sleep_for( std::chrono::microseconds( 200 ) );
      const auto began = std::chrono::steady_clock::now();
      workers.hold();
      held.push_back( std::chrono::duration< double, std::micro >( std::chrono::steady_clock::now() - began ).count() );
      workers.letGo();
   }
   std::ranges::sort( held );
   fmt::print( "{} workers, {}: held after {:.1f} us (median), {:.1f} us (99%), {:.0f} us (longest)\n", count,
               working ? "working" : "asleep", held[ kHolds / 2 ], held[ kHolds * 99 / 100 ], held.back() );
   for ( unsigned number = 0; number < count; ++number ) workers.remove( number );
}

} // namespace

int main() {
   for ( const bool working : { false, true } )
      for ( const unsigned count : { 1u, 2u, 4u } ) measure( count, working );
}
