// A router of modules, into which packets are put for real.
#pragma once

#include "DpTestSupport.h"

#include "DpBatch.h"
#include "DpEthernet.h"
#include "DpModuleClass.h"
#include "DpTracePacket.h"

#include "bess/control.pb.h"

namespace DpTest {

using namespace Vexdp;

using Bytes = std::vector< std::uint8_t >;

// A sink that keeps what it gets.
class Tap : public Module {
 public:
   static const ModuleClass & moduleClass() {
      static const ModuleClass self =
           describe< Tap, bess::pb::EmptyArg >( "Tap", "keeps packets", { .igates = 1, .ogates = 0 }, {} );
      return self;
   }
   static Outcome check( const bess::pb::EmptyArg & ) { return {}; }
   Tap( Identity identity, const bess::pb::EmptyArg & ) : Module( std::move( identity ) ) {}

   Fate process( Packet & packet, Context & context ) override {
      packets.emplace_back( packet.data(), packet.data() + packet.size() );
      return context.deliver();
   }
   std::vector< Bytes > packets;
};

// A router of et1 (FIB gate 1), et2 (gate 2) and the GRE tunnel tu1 (gate 3), with a tap behind any gate, into which
// packets are put for real: everything counts.
class Router {
 public:
   explicit Router( std::shared_ptr< Surroundings > shared = std::make_shared< Surroundings >(), Side side = 0 ) :
        surroundings( std::move( shared ) ), graph( {}, surroundings, side ) {
      set( coreLines() );
      set( ethernetLines( "et1", 1 ) );
      set( ethernetLines( "et2", 2 ) );
      set( R"(
         fibIpv4 addFec fec_id: 0 nh_info { gate: 0 }
         fibIpv4 addFec fec_id: 2 nh_info { gate: 2 nh_index: 5 }
         fibIpv4 addRoute vrf: 0 prefix: @10.2.0.0 prefix_len: 16 fec_id: 2
         fibIpv4 addRoute vrf: 0 prefix: @10.1.0.1 prefix_len: 32 fec_id: 0
         NextHop_et2 writeNH nexthopinfo { nh_index: 5 pkt_cmd: 1 mac_da: @02:aa:00:00:00:05 }
      )" );
      tap( "NextHop_et2:1" );
   }

   void set( std::string_view lines ) {
      vex::pb::BatchReply reply;
      applyBatch( requests, reader.batch( lines ), reply );
      EXPECT_EQ( refusals( reply ), Lines() ) << lines;
   }

   // The tunnel, over et2.
   void addTunnel( const std::string & options = "", const std::string & encap = "" ) {
      set( tunnelLines( "tu1", 3,
                        "ip_encap_arg { proto: 47 tun_src_ip: @192.0.2.1 tun_dst_ip: @192.0.2.2 " + encap + " } " +
                             options ) );
      set( R"(
         connect NhResolve_tu1:1 IpOutput_et2:0
         NhResolve_tu1 addNhResolveEntry nhr_index: 9 ogate: 1 nhm_index: 5
         fibIpv4 addFec fec_id: 3 nh_info { gate: 3 nh_index: 9 }
         fibIpv4 addRoute vrf: 0 prefix: @10.3.0.0 prefix_len: 16 fec_id: 3
         fibIpv4 addRoute vrf: 0 prefix: @192.0.2.0 prefix_len: 24 fec_id: 2
      )" );
   }

   // Whatever the gate led to, it now leads to the tap.
   void tap( const std::string & gate ) {
      const auto module = gate.substr( 0, gate.rfind( ':' ) );
      const auto ogate = std::stoul( gate.substr( gate.rfind( ':' ) + 1 ) );
      auto made =
           std::make_unique< Tap >( Module::Identity{ "tap" + gate, Tap::moduleClass(), graph }, bess::pb::EmptyArg() );
      taps_[ gate ] = made.get();
      EXPECT_TRUE( graph.add( std::move( made ) ).ok() );
      EXPECT_TRUE( graph.disconnect( module, ogate ).ok() );
      EXPECT_TRUE( graph.connect( module, ogate, "tap" + gate, 0 ).ok() );
   }
   std::vector< Bytes > & tapped( const std::string & gate = "NextHop_et2:1" ) { return taps_.at( gate )->packets; }
   Lines frames() {
      Lines lines;
      for ( const auto & packet : tapped() ) lines.push_back( decodedFrame( packet ) );
      return lines;
   }

   // From 10.1.0.9, when it doesn't say.
   static vex::pb::TracePacketRequest requested( std::string_view text ) {
      vex::pb::TracePacketRequest request;
      parse( text, request );
      if ( request.src() == 0 ) request.set_src( 0x0a010009 );
      return request;
   }
   static Packet described( std::string_view request ) {
      const auto message = requested( request );
      Packet packet( 0 );
      EXPECT_TRUE( describedPacket( message, packet ).ok() ) << request;
      return packet;
   }
   // A frame to et1, or the given bytes.
   void frame( std::string_view request ) { frame( described( request ) ); }
   void frame( Packet packet, MacAddr dst = kEt1, std::uint16_t type = kEtherTypeIpv4 ) {
      prependEthernet( packet, dst, { { 0x02, 0xbb, 0, 0, 0, 1 } }, type );
      run( "rx_et1", std::move( packet ) );
   }
   void run( const std::string & source, Packet packet ) {
      Walk( counters, Purpose::counted ).run( *graph.find( source ), std::move( packet ) );
   }
   Lines trace( std::string_view text ) {
      vex::pb::TracePacketReply reply;
      const auto out = tracePacket( graph, counters, requested( text ), reply );
      return out.ok() ? stepsOf( reply ) : Lines{ out.refusal().reason };
   }
   std::string end( std::string_view text ) { return trace( text ).back(); }

   static constexpr MacAddr kEt1{ { 0x02, 0, 0, 0, 0, 0x01 } };

   CounterTable counters;
   std::shared_ptr< Surroundings > surroundings;
   Graph graph;
   Requests requests{ graph };
   RequestReader reader;

 private:
   std::map< std::string, Tap * > taps_;
};

} // namespace DpTest
