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
      if ( !captures_.begin( request, 1e12, capture_ ).ok() ) throw std::runtime_error( "no capture" );
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
   double run() {
      std::vector< double > all;
      for ( unsigned i = 0; i < kRuns; ++i ) all.push_back( once() );
      return median( all );
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

   double once() {
      auto & source = *router_.graph.find( "rx_et1" );
      Walk walk( router_.counters, Purpose::live );
      walk.watcherIs( captures_.empty() ? nullptr : &captures_.eye( 0 ) );
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
   std::shared_ptr< Wire > wire_;
   std::uint8_t frames_[ kBurst ][ 512 ];
};

// Look-ups a second, in bursts as both take them.
template < typename Burst >
double lookUps( Burst burst ) {
   constexpr std::size_t kAtOnce = 1024;
   std::vector< double > all;
   for ( unsigned run = 0; run < kRuns; ++run )
      for ( std::size_t from = 0; from < kAddresses; from += kAtOnce )
         all.push_back( seconds( [ & ] {
            for ( std::size_t at = from; at < from + kAtOnce; at += kBurst ) burst( at );
         } ) );
   return kAtOnce / median( std::move( all ) );
}

double ours( const std::vector< Ipv4Prefix > & prefixes, const std::vector< std::uint32_t > & addresses,
             std::size_t & bytes ) {
   LpmPool pool;
   Lpm lpm( pool );
   std::uint32_t value = 0;
   for ( const auto & prefix : prefixes ) lpm.insert( prefix, value++ % kNextHops, true );
   bytes = pool.bytes() + ( 1u << 16 ) * sizeof( LpmEntry );
   std::uint64_t sum = 0;
   const auto rate = lookUps( [ & ]( std::size_t at ) {
      std::array< Ipv4Addr, kBurst > burst;
      std::array< Lpm::Match, kBurst > matches;
      for ( std::size_t i = 0; i < kBurst; ++i ) burst[ i ] = { addresses[ at + i ] };
      lpm.lookup( burst, matches.data() );
      for ( const auto match : matches ) sum += match.value;
   } );
   if ( sum == 0 ) throw std::runtime_error( "nothing was found" );
   return rate;
}

double dir24( const std::vector< Ipv4Prefix > & prefixes, const std::vector< std::uint32_t > & addresses ) {
   rte_fib_conf conf{};
   conf.type = RTE_FIB_DIR24_8;
   conf.max_routes = int( 2 * prefixes.size() );
   conf.dir24_8.nh_sz = RTE_FIB_DIR24_8_4B;
   conf.dir24_8.num_tbl8 = 1u << 15;
   auto * const fib = rte_fib_create( "bench", SOCKET_ID_ANY, &conf );
   if ( fib == nullptr ) throw std::runtime_error( "no DIR24-8 table" );
   std::uint32_t value = 0;
   for ( const auto & prefix : prefixes )
      if ( rte_fib_add( fib, prefix.addr.value, prefix.len, value++ % kNextHops ) != 0 )
         throw std::runtime_error( "DIR24-8 refused a route" );
   auto copy = addresses;
   std::vector< std::uint64_t > found( copy.size() );
   const auto rate =
        lookUps( [ & ]( std::size_t at ) { rte_fib_lookup_bulk( fib, &copy[ at ], &found[ at ], kBurst ); } );
   rte_fib_free( fib );
   return rate;
}

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
      const auto addresses = randomAddresses( prefixes );
      std::size_t bytes = 0;
      const auto own = ours( prefixes, addresses, bytes ), other = dir24( prefixes, addresses );
      fmt::print( "look-ups, {} routes: {:.1f} M/s in {} MB; DIR24-8 {:.1f} M/s in {} MB; {:.2f} times\n", routes,
                  own / 1e6, bytes >> 20, other / 1e6, ( 1u << 26 ) >> 20, own / other );
      Transit transit( prefixes );
      const auto bare = transit.run();
      transit.captureIs( true );
      const auto captured = transit.run();
      transit.captureIs( false );
      fmt::print( "transit, 64 bytes, with a capture that matches nothing: {:.2f} Mpps, {:.0f} ns, {:.3f} times\n",
                  1e-6 / captured, captured * 1e9, bare / captured );
      transit.filter();
      const auto filtered = transit.run();
      fmt::print( "transit, 64 bytes: {:.2f} Mpps, {:.0f} ns; with 1,000 rules and 8 classes {:.2f} Mpps, {:.0f} ns, "
                  "{:.2f} times\n",
                  1e-6 / bare, bare * 1e9, 1e-6 / filtered, filtered * 1e9, bare / filtered );
      Transit tunnelled( prefixes );
      tunnelled.unwrap();
      const auto in = tunnelled.run();
      tunnelled.wrap();
      const auto out = tunnelled.run();
      fmt::print( "GRE, 64 bytes inside: in {:.2f} Mpps, {:.0f} ns; out {:.2f} Mpps, {:.0f} ns\n", 1e-6 / in, in * 1e9,
                  1e-6 / out, out * 1e9 );
      return 0;
   } catch ( const std::exception & error ) {
      fmt::print( stderr, "transit_bench: {}\n", error.what() );
      return 1;
   }
}
