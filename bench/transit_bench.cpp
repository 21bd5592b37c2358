// One core's way of 64-byte packets through a router, from one port in memory to another, over a table of a million
// prefixes and 64 next hops, to random addresses; with nothing on the way, with a capture open whose filter matches
// nothing, with a list of 1,000 rules and a policy of 8 classes, and with GRE around them, on the way in and on the way
// out. And the look-up alone, beside DPDK's DIR24-8 over the same table.
//
// What is told is the median burst, and the median 1,024 look-ups: on a machine that does other things the mean tells
// of those.
//
//    transit_bench [routes]      1,000,000 when it isn't said

#include "DpCaptures.h"
#include "DpFibIpv4.h"
#include "DpPrefixes.h"
#include "DpTestRouter.h"

#include <fmt/format.h>
#include <rte_eal.h>
#include <rte_fib.h>
#include <rte_memory.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <map>

namespace {

using namespace Vexdp;
using DpTest::Router;

constexpr unsigned kNextHops = 64;
constexpr unsigned kRuns = 5;
constexpr std::size_t kBurst = 32;
constexpr std::size_t kAddresses = 1u << 20;

// The port in memory: what leaves comes back for the next burst.
class Memory : public Outlet {
 public:
   void send( Packet && packet, unsigned ) override {
      Packet gone = std::move( packet );
      ++packets;
   }
   std::size_t packets = 0;
};

template < typename Work >
double seconds( Work work ) {
   const auto start = std::chrono::steady_clock::now();
   work();
   return std::chrono::duration< double >( std::chrono::steady_clock::now() - start ).count();
}

double median( std::vector< double > values ) {
   std::ranges::nth_element( values, values.begin() + std::ptrdiff_t( values.size() / 2 ) );
   return values[ values.size() / 2 ];
}

std::vector< std::uint32_t > randomAddresses( const std::vector< Ipv4Prefix > & prefixes ) {
   std::mt19937 random( 5 );
   std::vector< std::uint32_t > addresses( kAddresses );
   for ( auto & address : addresses ) do {
         const auto & prefix = prefixes[ random() % prefixes.size() ];
         address = prefix.addr.value | ( std::uint32_t( random() ) & ~maskOf( prefix.len ) );
      } while ( address >> 24 == 127 || address >> 16 == 0xa9fe ); // are not forwarded
   return addresses;
}

// Where the time goes: from one module's turn to the next one's.
class Stopwatch : public PacketWatcher {
 public:
   bool watches( const Module & ) const override { return true; }
   void enters( const Module & module, GateId, Packets, double ) override {
      stop();
      at_ = &module;
      since_ = std::chrono::steady_clock::now();
   }
   void leaves( const Module &, GateId, Packets, double ) override {}
   vex::pb::TracePacketReply * trace( const Module &, const Packet &, double ) override { return nullptr; }
   void traced( double ) override {}
   bool tracing( double ) const override { return false; }

   // The burst is over.
   void stop() {
      if ( at_ == nullptr ) return;
      const std::chrono::duration< double > spent = std::chrono::steady_clock::now() - since_;
      auto & times = times_[ at_ ];
      if ( times.empty() ) order_.push_back( at_ );
      times.push_back( spent.count() );
      at_ = nullptr;
   }
   // Nanoseconds a packet at each, in the median burst, in the order of the way.
   std::string text() const {
      std::string text;
      for ( const auto * const module : order_ )
         text += fmt::format( "{}{} {:.1f}", text.empty() ? "" : ", ", module->name(),
                              median( times_.at( module ) ) / kBurst * 1e9 );
      return text;
   }

 private:
   const Module * at_ = nullptr;
   std::chrono::steady_clock::time_point since_;
   std::map< const Module *, std::vector< double > > times_;
   std::vector< const Module * > order_;
};

class Transit {
 public:
   explicit Transit( const std::vector< Ipv4Prefix > & prefixes ) : addresses_( randomAddresses( prefixes ) ) {
      router_.set( "disconnect NextHop_et2:1\n connect NextHop_et2:1 tx_et2:0" );
      // Next hops have as many places as are written.
      router_.set( "destroy NextHop_et2\n create NextHop_et2 NextHop intf_id: 2 max_nexthops: 64\n"
                   "connect IpOutput_et2:1 NextHop_et2:0\n connect NextHop_et2:0 trap:0\n"
                   "connect NextHop_et2:1 tx_et2:0\n"
                   "NextHop_et2 setSrcMacAddr mac_addr: @02:00:00:00:00:02" );
      for ( unsigned i = 0; i < kNextHops; ++i )
         router_.set( fmt::format( "NextHop_et2 writeNH nexthopinfo {{ nh_index: {0} pkt_cmd: 1 "
                                   "mac_da: @02:aa:00:00:00:{0:02x} }}\n"
                                   "fibIpv4 addFec fec_id: {1} nh_info {{ gate: 2 nh_index: {0} }}",
                                   i, 100 + i ) );
      addRoutes( prefixes );
      wire_ = router_.graph.wires().of( "et2" );
      wire_->device = &memory_;
   }
   ~Transit() { wire_->device = nullptr; }

   void filter() {
      std::string rules, classes;
      for ( unsigned i = 0; i < 999; ++i )
         rules += fmt::format( "rule {{ src_ip: @172.{}.{}.0 src_ip_mask: @255.255.255.0 proto: 6 dst_port_lower: {} "
                               "dst_port_upper: {} permit: true }} ",
                               16 + i % 16, i / 16, i, i );
      for ( unsigned i = 0; i < 8; ++i )
         classes +=
              fmt::format( "rule {{ proto: 17 dst_port_lower: {0} dst_port_upper: {0} action_tc: true tc_data: {1} "
                           "action_dscp: true dscp_data: {1} }} ",
                           5000 + ( 7 - i ), i );
      router_.set( fmt::format( R"(
         create db KyAclDb
         db createAcl acl_id: 1 acl_target: 0 {} rule {{ permit: true }}
         db createPolicy acl_id: 2 acl_target: 1 {}
         create list KyAcl ingress: true
         create policy PolicyQos
         list applyAcl acl_id: 1
         policy applyServicePolicy policy_id: 2
         disconnect classify_et1:1
         connect classify_et1:1 list:0
         connect list:1 policy:0
         connect policy:0 IpInput_et1:0
      )",
                                rules, classes ) );
   }

   void captureIs( bool open ) {
      if ( !open ) return captures_.end( capture_ );
      vex::pb::CaptureRequest request;
      request.set_filter( "tcp port 1" );
      std::unique_ptr< Capture > capture;
      if ( !Capture::make( request, capture ).ok() || !captures_.begin( std::move( capture ), 1e12, capture_ ).ok() )
         throw std::runtime_error( "no capture" );
   }

   // From now on packets come in with GRE around them.
   void unwrap() {
      gre_ = true;
      router_.set( R"(
         create tunnelIngress TunnelIngress
         create rx_tu1 PortRx intfname: 'tu1' intf_id: 3
         create classify_tu1 EtherClassify intf_id: 3
         create IpInput_tu1 IpInput
         connect trap:1 tunnelIngress:0
         connect tunnelIngress:0 trap:0
         connect tunnelIngress:1 rx_tu1:0
         connect rx_tu1:0 classify_tu1:0
         connect classify_tu1:0 trap:0
         connect classify_tu1:1 IpInput_tu1:0
         connect IpInput_tu1:1 fibIpv4:0
         classify_tu1 setVrf vrf: 0
         classify_tu1 setEtherTypeGate ether_type: 2048 ogate: 1
         tunnelIngress addTunnel ogate: 1 vrf: 0 local_ip: @10.1.0.1 remote_ip: @192.0.2.2 gre: true
      )" );
   }
   // And all of them leave so, instead.
   void wrap() {
      gre_ = false;
      router_.addTunnel();
      for ( unsigned i = 0; i < kNextHops; ++i )
         router_.set( fmt::format( "fibIpv4 addFec fec_id: {} nh_info {{ gate: 3 nh_index: 9 }}", 100 + i ) );
   }

   // Seconds a packet.
   double run() { return run( captures_.empty() ? nullptr : &captures_.eye( 0 ) ); }
   std::string byModule() {
      Stopwatch watch;
      watch_ = &watch;
      run( &watch );
      watch_ = nullptr;
      return watch.text();
   }

 private:
   void addRoutes( const std::vector< Ipv4Prefix > & prefixes ) {
      vex::pb::FibIpv4RouteArg arg;
      arg.set_vrf( 0 );
      auto & fib = dynamic_cast< FibIpv4 & >( *router_.graph.find( "fibIpv4" ) );
      std::uint32_t value = 0;
      for ( const auto & prefix : prefixes ) {
         arg.set_prefix( prefix.addr.value );
         arg.set_prefix_len( prefix.len );
         arg.set_fec_id( 100 + value++ % kNextHops );
         if ( !fib.addRoute( arg ).ok() ) throw std::runtime_error( "a route was refused" );
      }
   }

   static constexpr std::size_t kGre = 24;
   void write( std::uint8_t * at, std::uint32_t dst ) {
      put32( at, 0x02000000 );
      put16( at + 4, 1 );
      put32( at + 6, 0x02bb0000 );
      put16( at + 10, 1 );
      put16( at + 12, 0x0800 );
      if ( gre_ ) {
         writeIpv4Header(
              at + 14,
              { .totalLen = 46 + kGre, .ttl = 64, .proto = 47, .src = { 0xc0000202 }, .dst = { 0x0a010001 } } );
         put32( at + 34, 0x0800 );
         at += kGre;
      }
      writeIpv4Header( at + 14, { .totalLen = 46, .ttl = 64, .proto = 17, .src = { 0x0a010009 }, .dst = { dst } } );
      put16( at + 34, 4000 );
      put16( at + 36, 5000 );
   }

   double run( PacketWatcher * watcher ) {
      auto & source = *router_.graph.find( "rx_et1" );
      Walk walk( router_.counters, Purpose::live );
      walk.watcherIs( watcher );
      std::vector< Packet > burst;
      burst.reserve( kBurst );
      memory_.packets = 0;
      std::vector< double > spent;
      for ( std::size_t at = 0; at < kAddresses; at += kBurst ) {
         for ( std::size_t i = 0; i < kBurst; ++i ) {
            auto * const begin = frames_[ i ];
            write( begin + Packet::kHeadroom, addresses_[ at + i ] );
            burst.emplace_back( Packet::Buffer{ begin, begin + sizeof frames_[ 0 ], begin, []( void * ) {} },
                                begin + Packet::kHeadroom, gre_ ? 60 + kGre : 60 );
            burst.back().meta.ethernet = true;
         }
         spent.push_back( seconds( [ & ] {
            walk.run( source, burst );
            burst.clear();
         } ) );
         if ( watch_ != nullptr ) watch_->stop();
      }
      if ( memory_.packets != kAddresses )
         throw std::runtime_error( fmt::format( "{} of {} packets left", memory_.packets, kAddresses ) );
      return median( std::move( spent ) ) / kBurst;
   }

   const std::vector< std::uint32_t > addresses_;
   Router router_;
   Memory memory_;
   Captures captures_;
   std::uint64_t capture_ = 0;
   bool gre_ = false;
   Stopwatch * watch_ = nullptr;
   std::shared_ptr< Wire > wire_;
   std::uint8_t frames_[ kBurst ][ 512 ];
};

// Look-ups in two tables over the same prefixes, in turns, in bursts as both take them.
class LookUps {
 public:
   LookUps( const std::vector< Ipv4Prefix > & prefixes, std::vector< std::uint32_t > addresses ) :
        addresses_( std::move( addresses ) ), found_( addresses_.size() ), fib_( newFib( prefixes.size() ) ) {
      std::uint32_t value = 0;
      for ( const auto & prefix : prefixes ) {
         lpm_.insert( prefix, value % kNextHops, true );
         if ( rte_fib_add( fib_, prefix.addr.value, prefix.len, value++ % kNextHops ) != 0 )
            throw std::runtime_error( "DIR24-8 refused a route" );
      }
   }
   ~LookUps() { rte_fib_free( fib_ ); }

   void run() {
      std::vector< double > own, other, ratios;
      for ( unsigned run = 0; run < kRuns; ++run ) {
         own.push_back( rate( [ this ]( std::size_t at ) { ours( at ); } ) );
         other.push_back( rate(
              [ this ]( std::size_t at ) { rte_fib_lookup_bulk( fib_, &addresses_[ at ], &found_[ at ], kBurst ); } ) );
         ratios.push_back( own.back() / other.back() );
      }
      const auto bytes = pool_.bytes() + ( 1u << 16 ) * sizeof( LpmEntry );
      fmt::print( "look-ups: {:.1f} M/s in {} MB; DIR24-8 {:.1f} M/s in {} MB; {:.2f} times\n", median( own ) / 1e6,
                  bytes >> 20, median( other ) / 1e6, ( 1u << 26 ) >> 20, median( ratios ) );
      for ( std::size_t at = 0; at < addresses_.size(); ++at )
         if ( lpm_.lookup( { addresses_[ at ] } )->value != found_[ at ] )
            throw std::runtime_error( "the tables do not agree" );
   }

 private:
   static rte_fib * newFib( std::size_t routes ) {
      rte_fib_conf conf{};
      conf.type = RTE_FIB_DIR24_8;
      conf.max_routes = int( 2 * routes );
      conf.dir24_8.nh_sz = RTE_FIB_DIR24_8_4B;
      conf.dir24_8.num_tbl8 = 1u << 15;
      auto * const fib = rte_fib_create( "bench", SOCKET_ID_ANY, &conf );
      if ( fib == nullptr ) throw std::runtime_error( "no DIR24-8 table" );
      return fib;
   }

   // A second.
   template < typename Burst >
   double rate( Burst burst ) {
      constexpr std::size_t kAtOnce = 1024;
      std::vector< double > all;
      for ( std::size_t from = 0; from < kAddresses; from += kAtOnce )
         all.push_back( seconds( [ & ] {
            for ( std::size_t at = from; at < from + kAtOnce; at += kBurst ) burst( at );
         } ) );
      return kAtOnce / median( std::move( all ) );
   }
   void ours( std::size_t at ) {
      std::array< Ipv4Addr, kBurst > burst;
      std::array< Lpm::Match, kBurst > matches;
      for ( std::size_t i = 0; i < kBurst; ++i ) burst[ i ] = { addresses_[ at + i ] };
      lpm_.lookup( burst, matches.data() );
      for ( std::size_t i = 0; i < kBurst; ++i ) found_[ at + i ] = matches[ i ].value;
   }

   std::vector< std::uint32_t > addresses_;
   std::vector< std::uint64_t > found_;
   LpmPool pool_;
   Lpm lpm_{ pool_ };
   rte_fib * const fib_;
};

void startEal() {
   std::string words[] = { "transit_bench",  "--no-huge",     "--no-pci", "--no-shconf",
                           "--no-telemetry", "--log-level=3", "-m",       "1024" };
   std::vector< char * > argv;
   for ( auto & word : words ) argv.push_back( word.data() );
   if ( rte_eal_init( int( argv.size() ), argv.data() ) < 0 ) throw std::runtime_error( "DPDK doesn't start" );
}

} // namespace

int main( int argc, char ** argv ) {
   try {
      const auto routes = argc > 1 ? std::strtoull( argv[ 1 ], nullptr, 10 ) : 1000000;
      startEal();
      const auto prefixes = DpBench::backbonePrefixes( routes );
      LookUps( prefixes, randomAddresses( prefixes ) ).run();
      Transit transit( prefixes ), filtering( prefixes ), unwrapping( prefixes ), wrapping( prefixes );
      filtering.filter();
      unwrapping.unwrap();
      wrapping.wrap();
      // In turns, so that what else the machine does meets all of them.
      std::vector< double > bare, captured, filtered, in, out, captureCosts, filterCosts;
      for ( unsigned run = 0; run < kRuns; ++run ) {
         bare.push_back( transit.run() );
         transit.captureIs( true );
         captured.push_back( transit.run() );
         transit.captureIs( false );
         filtered.push_back( filtering.run() );
         captureCosts.push_back( bare.back() / captured.back() );
         filterCosts.push_back( bare.back() / filtered.back() );
         in.push_back( unwrapping.run() );
         out.push_back( wrapping.run() );
      }
      const auto tell = []( const char * what, const std::vector< double > & times, const std::string & than ) {
         const auto time = median( times );
         fmt::print( "{}: {:.2f} Mpps, {:.0f} ns{}\n", what, 1e-6 / time, time * 1e9, than );
      };
      const auto than = []( const std::vector< double > & ratios ) {
         return fmt::format( ", {:.2f} times", median( ratios ) );
      };
      tell( "transit, 64 bytes", bare, "" );
      tell( "  with a capture that matches nothing", captured, than( captureCosts ) );
      tell( "  with 1,000 rules and 8 classes", filtered, than( filterCosts ) );
      tell( "GRE, 64 bytes inside, in", in, "" );
      tell( "GRE, 64 bytes inside, out", out, "" );
      for ( auto * const way : { &transit, &filtering, &unwrapping, &wrapping } )
         fmt::print( "ns by module: {}\n", way->byModule() );
      return 0;
   } catch ( const std::exception & error ) {
      fmt::print( stderr, "transit_bench: {}\n", error.what() );
      return 1;
   }
}
