// Several workers: what they carry, count and share.
#include "DpTestRouter.h"

#include "DpDescriptor.h"
#include "DpTokenBucket.h"
#include "DpWorkers.h"

#include <fcntl.h>
#include <unistd.h>

#include <deque>
#include <mutex>
#include <thread>

namespace DpTest {

namespace {

constexpr unsigned kWorkers = 4;
constexpr std::size_t kSourcePort = 34, kDestinationPort = 36; // in a frame of UDP

// A device of packets that are there beforehand. What leaves by it is told by flow, in the order in which it left.
class Memory : public Device {
 public:
   explicit Memory( unsigned queues ) : Device( kWorkers, queues ), coming( queues ) {}
   void receive( unsigned queue, std::vector< Packet > & burst ) override {
      auto & from = coming[ queue ];
      for ( std::size_t i = 0; i < kBurst && !from.empty(); ++i ) {
         burst.push_back( std::move( from.front() ) );
         from.pop_front();
      }
   }
   void send( Packet && packet, unsigned worker ) override {
      const Packet gone = std::move( packet );
      const std::lock_guard< std::mutex > lock( mutex );
      left[ get16( gone.data() + kSourcePort ) ].push_back( get16( gone.data() + kDestinationPort ) );
      ++by[ worker ];
   }
   Stats stats() const override { return {}; }
   Link link() const override { return {}; }
   Conf conf() const override { return {}; }
   Outcome confIs( const bess::pb::PortConf & ) override { return {}; }
   std::size_t count() {
      const std::lock_guard< std::mutex > lock( mutex );
      std::size_t sum = 0;
      for ( const auto & [ flow, numbers ] : left ) sum += numbers.size();
      return sum;
   }

   std::vector< std::deque< Packet > > coming;
   std::mutex mutex;
   std::map< unsigned, std::vector< unsigned > > left;
   std::map< unsigned, std::size_t > by; // workers
};

// Nobody is disturbed by whoever moves the queues about.
TEST( Workers, flowsKeepTheirOrderAndEverythingIsCountedOnceWhileQueuesGoFromHandToHand ) {
   constexpr unsigned kFlows = 32, kEach = 500, kLost = 100;
   Eal eal{ {} };
   Router router( std::make_shared< Surroundings >( kWorkers ) );
   router.set( "disconnect NextHop_et2:1\nconnect NextHop_et2:1 tx_et2:0\nfibIpv4 setCounterIds no_route_counter: 4" );
   CounterTable counters( kWorkers );
   PortTable ports( eal, router.graph.wires(), kWorkers );
   auto in = std::make_unique< Memory >( 8 );
   auto out = std::make_unique< Memory >( 1 );
   auto & sent = *out;
   for ( unsigned number = 0; number < kEach + kLost; ++number )
      for ( unsigned flow = 0; flow < kFlows; ++flow ) {
         auto packet = Router::described( fmt::format( "dst: {} proto: 17 sport: {} dport: {}",
                                                       number < kEach ? "@10.2.0.7" : "@10.77.0.1", flow, number ) );
         prependEthernet( packet, Router::kEt1, { { 0x02, 0xbb, 0, 0, 0, 1 } }, kEtherTypeIpv4 );
         in->coming[ flow % 8 ].push_back( std::move( packet ) );
      }
   const auto add = [ & ]( const char * name, std::unique_ptr< Device > device ) {
      PortTable::Port port;
      port.device = std::move( device );
      port.listed.set_name( name );
      port.wire = router.graph.wires().of( name );
      ports.add( std::move( port ) );
   };
   add( "et1", std::move( in ) );
   add( "et2", std::move( out ) );
   Workers workers( ports, eal, kWorkers, false );
   const Worker::Way way{ 0, &counters };
   for ( unsigned number = 0; number < kWorkers; ++number ) workers.add( number, way );

   for ( unsigned turn = 0; sent.count() < kFlows * kEach || counters.value( 4 ) < kFlows * kLost; ++turn ) {
      workers.hold();
      workers.portsChanged();
      workers.breathe();
      workers.letGo();
      workers.remove( turn % kWorkers );
      workers.add( turn % kWorkers, way );
   }

   workers.hold();
   EXPECT_EQ( sent.left.size(), kFlows );
   for ( const auto & [ flow, numbers ] : sent.left ) {
      ASSERT_EQ( numbers.size(), kEach ) << flow;
      for ( unsigned i = 0; i < kEach; ++i ) ASSERT_EQ( numbers[ i ], i ) << flow;
   }
   EXPECT_GT( sent.by.size(), 1u );
   EXPECT_EQ( counters.value( 4 ), kFlows * kLost );
   EXPECT_EQ( router.graph.find( "rx_et1" )->counters( true, 0 ).packets, kFlows * ( kEach + kLost ) );
   EXPECT_EQ( router.graph.find( "tx_et2" )->counters( false, 0 ).packets, kFlows * kEach );
   EXPECT_EQ( router.graph.find( "fibIpv4" )->deadEnds(), kFlows * kLost );
   workers.letGo();
   for ( unsigned number = 0; number < kWorkers; ++number ) workers.remove( number );
}

// Its descriptor says that something is wrong, and never that there are packets.
class Wrong : public Memory {
 public:
   Wrong() : Memory( 1 ) {
      std::array< int, 2 > ends{};
      EXPECT_EQ( pipe2( ends.data(), O_CLOEXEC ), 0 );
      close( ends[ 0 ] );
      unread_ = Descriptor( ends[ 1 ] );
   }
   void receive( unsigned, std::vector< Packet > & ) override { ++asked; }
   int descriptor( unsigned ) const override { return unread_.fd(); }
   Link link() const override {
      ++looked;
      return {};
   }
   std::atomic< unsigned > asked = 0;
   mutable std::atomic< unsigned > looked = 0; // each 100 ms

 private:
   Descriptor unread_;
};

TEST( Workers, aDeviceWithSomethingWrongKeepsNobodyAwake ) {
   Eal eal{ {} };
   Wires wires;
   PortTable ports( eal, wires, 1 );
   std::vector< Wrong * > devices;
   for ( const bool kernel : { false, true } ) {
      PortTable::Port port;
      devices.push_back( new Wrong );
      port.device.reset( devices.back() );
      port.listed.set_name( kernel ? "kernel:et1" : "et1" );
      port.wire = wires.of( "et1" );
      port.kernel = kernel;
      ports.add( std::move( port ) );
   }
   CounterTable counters;
   Workers workers( ports, eal, 1, false );
   workers.add( 0, { 0, &counters } );
   workers.hold();
   workers.portsChanged();
   workers.letGo();
   while ( devices[ 0 ]->looked < 5 ) std::this_thread::yield();
   EXPECT_LT( devices[ 0 ]->asked, 500u );
   workers.remove( 0 );
}

TEST( Workers, aBucketThatTheyShareIsNotFilledTwiceByOnesThatAreLate ) {
   TokenBucket bucket( 10, 5 );
   unsigned taken = 0;
   for ( unsigned i = 0; i < 100; ++i ) taken += bucket.take( i % 2 == 0 ? 100 : 99.9 );
   EXPECT_EQ( taken, 5u );
   EXPECT_FALSE( bucket.take( 50 ) );
   EXPECT_TRUE( bucket.take( 50.1 ) ) << "the clock was set back";
}

} // namespace

} // namespace DpTest
