#include "DpTestRouter.h"

#include "DpEthernet.h"
#include "DpIpv4Fragment.h"
#include "DpTracePacket.h"

#include <algorithm>
#include <random>

namespace {

using namespace DpTest;
using namespace Vexdp;

constexpr const char * kTransit = "intfname: 'et1' src: @10.9.0.1 dst: @10.2.0.7 proto: 17 sport: 1000 dport: 53";

TEST( Walk, aTransitPacketPassesTheModulesOfBothInterfaces ) {
   Router router;
   router.set( "disconnect NextHop_et2:1\n connect NextHop_et2:1 tx_et2:0" );
   EXPECT_EQ(
        router.trace( kTransit ),
        ( Lines{ "rx_et1: in from et1 -> 0", "classify_et1: a frame to 02:00:00:00:00:01, EtherType 0x0800, VRF 0 -> 1",
                 "IpInput_et1: header is good -> 1",
                 "fibIpv4: longest match 10.2.0.0/16 -> FEC 2, member 1 of 1 (gate 2, next hop 5) -> 2",
                 "IpOutput_et2: 28 bytes fit -> 1",
                 "NextHop_et2: TTL 63, next hop 5, from 02:00:00:00:00:02 to 02:aa:00:00:00:05 -> 1",
                 "tx_et2: out to et2", "sent out of et2, 42 bytes" } ) );
   vex::pb::TracePacketRequest request;
   vex::pb::TracePacketReply reply;
   parse( kTransit, request );
   ASSERT_TRUE( tracePacket( router.graph, router.counters, request, reply ).ok() );
   EXPECT_EQ( reply.mac(), std::string( "\x02\xaa\0\0\0\x05", 6 ) );
   EXPECT_EQ( reply.module(), "tx_et2" );
}

TEST( Walk, aTransitPacketIsRewrittenOnItsWay ) {
   Router router;
   router.frame( kTransit );
   router.frame( "src: @10.9.0.1 dst: @10.2.0.7 proto: 6 sport: 1 dport: 80 tcp_flags: 2 dscp: 46 ttl: 2 length: 61" );
   router.frame( "src: @10.9.0.1 dst: @10.2.0.7 proto: 1 icmp_type: 8 ttl: 255 length: 33" );
   router.frame( "src: @10.9.0.1 dst: @10.2.0.7 proto: 89" );
   const std::string from = "02:00:00:00:00:02 > 02:aa:00:00:00:05 | 10.9.0.1 > 10.2.0.7 ";
   EXPECT_EQ(
        router.frames(),
        ( Lines{ from + "ttl 63 tos 0 len 28 | udp 1000 > 53", from + "ttl 1 tos 184 len 61 | tcp 1 > 80 mss 1460",
                 from + "ttl 254 tos 0 len 33 | icmp 8/0", from + "ttl 63 tos 0 len 20 | proto 89" } ) );
}

// Where a packet ends, and the counter that it ends under. Every module counts in counters of its own.
TEST( Walk, everyEndHasItsReasonAndItsCounter ) {
   Router router;
   router.set( R"(
      fibIpv4 setCounterIds no_route_counter: 1 no_fec_counter: 2
      NextHop_et2 setCounterIds mismatch_router_mac_counter: 3 bad_nexthop_cmd_counter: 4 invalid_nexthop_counter: 5
      IpOutput_et2 setCounterIds failed_frag_counter: 6
      NextHop_et2 writeNH nexthopinfo { nh_index: 1 pkt_cmd: 0 }
      NextHop_et2 writeNH nexthopinfo { nh_index: 2 pkt_cmd: 2 }
      NextHop_et2 writeNH nexthopinfo { nh_index: 3 pkt_cmd: 7 }
      NextHop_et2 writeNH nexthopinfo { nh_index: 4 pkt_cmd: 1 }
      fibIpv4 addFec fec_id: 11 nh_info { gate: 2 nh_index: 1 }
      fibIpv4 addFec fec_id: 12 nh_info { gate: 2 nh_index: 2 }
      fibIpv4 addFec fec_id: 13 nh_info { gate: 2 nh_index: 3 }
      fibIpv4 addFec fec_id: 14 nh_info { gate: 2 nh_index: 4 }
      fibIpv4 addFec fec_id: 15 nh_info { gate: 2 nh_index: 15 }
      fibIpv4 addFec fec_id: 16
      fibIpv4 addFec fec_id: 17 nh_info { gate: 4294967295 }
      fibIpv4 addFec fec_id: 18 nh_info { gate: 77 }
      fibIpv4 addFec fec_id: 19 nh_info { gate: 20 nh_index: 5 }
      create mfib McastFibIpv4 vrfname: 'default'
      connect fibIpv4:30 mfib:0
      connect mfib:0 trap:3
      fibIpv4 addFec fec_id: 30 nh_info { gate: 30 }
      fibIpv4 addRoute vrf: 0 prefix: @224.0.0.0 prefix_len: 4 fec_id: 30
      create NextHop_raw NextHop
      connect fibIpv4:20 NextHop_raw:0
      NextHop_raw setCounterIds mismatch_router_mac_counter: 8
      NextHop_raw writeNH nexthopinfo { nh_index: 5 pkt_cmd: 1 mac_da: @02:aa:00:00:00:05 }
   )" );
   for ( unsigned fec = 11; fec <= 20; ++fec )
      router.set( fmt::format( "fibIpv4 addRoute vrf: 0 prefix: @10.0.0.{0} prefix_len: 32 fec_id: {0}", fec ) );

   const struct {
      const char * packet;
      const char * end;
      CounterId counter;
   } cases[] = {
        { "dst: @172.16.0.1", "dropped at fibIpv4: no route to 172.16.0.1 in VRF 0", 1 },
        { "dst: @10.0.0.20", "dropped at fibIpv4: there is no FEC 20", 2 },
        { "dst: @10.0.0.16", "dropped at fibIpv4: FEC 16 has no members", kNoCounter },
        { "dst: @10.0.0.17", "dropped at fibIpv4: member 1 of 1 has no gate", kNoCounter },
        { "dst: @10.0.0.18", "dropped at fibIpv4: gate 77 is not connected", kNoCounter },
        { "dst: @10.0.0.11", "local at trap: next hop 1 is to be punted", kNoCounter },
        { "dst: @10.0.0.11 ttl: 1", "local at trap: next hop 1 is to be punted", kNoCounter },
        { "dst: @10.0.0.12", "dropped at NextHop_et2: next hop 2 is a drop entry", kNoCounter },
        { "dst: @10.0.0.13", "dropped at NextHop_et2: next hop 3 has the command 7", 4 },
        { "dst: @10.0.0.14", "dropped at NextHop_et2: next hop 4 has no MAC", 5 },
        { "dst: @10.0.0.15", "dropped at NextHop_et2: there is no next hop 15", 5 },
        { "dst: @10.0.0.19", "dropped at NextHop_raw: no source MAC is set", 8 },
        { "dst: @10.1.0.1 ttl: 1", "local at trap: to the router itself", kNoCounter },
        { "dst: @10.2.0.1 ttl: 1", "local at trap: the TTL expired", kNoCounter },
        { "dst: @239.1.2.3", "local at trap: no multicast route", kNoCounter },
   };
   for ( const auto & given : cases ) {
      const auto request = std::string( "intfname: 'et1' src: @10.9.0.1 proto: 17 " ) + given.packet;
      const auto before = router.counters.value( given.counter );
      EXPECT_EQ( router.end( request ), given.end ) << given.packet;
      EXPECT_EQ( router.counters.value( given.counter ), before ) << "counted though not asked to: " << given.packet;
      EXPECT_EQ( router.end( request + " count: true" ), given.end );
      EXPECT_EQ( router.counters.value( given.counter ), before + ( given.counter != kNoCounter ) ) << given.packet;
   }
   std::uint64_t counted = 0;
   for ( CounterId id = 0; id < 16; ++id ) counted += router.counters.value( id );
   EXPECT_EQ( counted, 6u );

   // With the trap gone, a punted packet is lost, and both reasons are told.
   router.set( "destroy trap" );
   EXPECT_EQ( router.end( "intfname: 'et1' dst: @10.0.0.11" ),
              "dropped at NextHop_et2: gate 0 is not connected (next hop 1 is to be punted)" );
}

TEST( Walk, whatCannotBeTracedIsRefused ) {
   Router router;
   const struct {
      const char * request;
      const char * reason;
   } cases[] = {
        { "intfname: 'et9'", "no PortRx has the interface \"et9\"" },
        { "", "no PortRx has the interface \"\"" },
        { "intfname: 'et1' proto: 256", "proto 256 is out of range, at most 255" },
        { "intfname: 'et1' dscp: 64", "dscp 64 is out of range, at most 63" },
        { "intfname: 'et1' sport: 65536", "sport 65536 is out of range, at most 65535" },
        { "intfname: 'et1' length: 65536", "length 65536 is out of range, at most 65535" },
        { "intfname: 'et1' proto: 17 length: 27", "length 27 is less than the headers of protocol 17, 28 bytes" },
   };
   for ( const auto & given : cases )
      EXPECT_EQ( router.trace( given.request ), Lines{ given.reason } ) << given.request;
}

TEST( Walk, gatesCountWhatPassesThemAndALoopEnds ) {
   Plane plane;
   plane.set( R"(
      create rx PortRx intfname: 'et1'
      create a IpInput
      create b IpInput
      connect rx:0 a:4
      connect a:1 b:0
      connect b:1 a:5
   )" );
   const auto counted = [ &plane ]( const char * module ) {
      bess::pb::GetModuleInfoResponse info;
      plane.engine.describe( module, info );
      std::string text;
      for ( const auto & gate : info.igates() )
         text += fmt::format( "in {}: {} packets {} bytes, ", gate.igate(), gate.pkts(), gate.bytes() );
      return text + fmt::format( "dead ends {}", info.deadends() );
   };
   const auto request = "intfname: 'et1' proto: 17 ";
   EXPECT_EQ( stepsOf( plane.trace( request ) ).back(), "dropped at a: loop" );
   EXPECT_EQ( counted( "a" ), "in 4: 0 packets 0 bytes, in 5: 0 packets 0 bytes, dead ends 0" );
   EXPECT_EQ( stepsOf( plane.trace( std::string( request ) + "count: true" ) ).back(), "dropped at a: loop" );
   // 128 modules: the source, then a and b in turn.
   EXPECT_EQ( counted( "a" ), "in 4: 1 packets 28 bytes, in 5: 63 packets 1764 bytes, dead ends 1" );
   EXPECT_EQ( counted( "b" ), "in 0: 63 packets 1764 bytes, dead ends 0" );
}

TEST( EtherClassify, takesWhatIsForTheRouter ) {
   const MacAddr virtualMac{ { 0, 0, 0x5e, 0, 1, 1 } };
   const struct {
      const char * what;
      MacAddr dst;
      std::uint16_t type;
      bool taken;
   } cases[] = {
        { "its own address", Router::kEt1, kEtherTypeIpv4, true },
        { "a virtual address", virtualMac, kEtherTypeIpv4, true },
        { "a unicast packet by broadcast", { { 0xff, 0xff, 0xff, 0xff, 0xff, 0xff } }, kEtherTypeIpv4, false },
        { "and by multicast", { { 0x01, 0x00, 0x5e, 0, 0, 5 } }, kEtherTypeIpv4, false },
        { "another station", { { 0x02, 0, 0, 0, 0, 0x02 } }, kEtherTypeIpv4, false },
        { "a type without a gate", Router::kEt1, 0x0806, false },
   };
   Router router;
   router.set( "classify_et1 addVirtualMac mac_addr: @00:00:5e:00:01:01" );
   for ( const auto & given : cases ) {
      router.tapped().clear();
      router.frame( Router::described( kTransit ), given.dst, given.type );
      EXPECT_EQ( router.tapped().size(), given.taken ? 1u : 0u ) << given.what;
   }
   router.set( "classify_et1 removeVirtualMac mac_addr: @00:00:5e:00:01:01" );
   router.tapped().clear();
   router.frame( Router::described( kTransit ), virtualMac );
   EXPECT_EQ( router.tapped().size(), 0u );
}

TEST( EtherClassify, aTunnelHasNoFramesAndAGroupItsOwnAddress ) {
   Router router;
   router.set( R"(
      create rx_tu1 PortRx intfname: 'tu1'
      create classify_tu1 EtherClassify intfname: 'tu1'
      connect rx_tu1:0 classify_tu1:0
      connect classify_tu1:1 IpInput_et1:0
      classify_tu1 setEtherTypeGate ether_type: 2048 ogate: 1
   )" );
   const std::string request = "dst: @225.129.2.3 intfname: ";
   EXPECT_EQ( router.trace( request + "'tu1'" )[ 1 ], "classify_tu1: EtherType 0x0800, VRF 0 -> 1" );
   EXPECT_EQ( router.trace( request + "'et1'" )[ 1 ],
              "classify_et1: a frame to 01:00:5e:01:02:03, EtherType 0x0800, VRF 0 -> 1" );
   EXPECT_EQ( router.trace( "dst: @255.255.255.255 intfname: 'et1'" )[ 1 ],
              "classify_et1: a frame to ff:ff:ff:ff:ff:ff, EtherType 0x0800, VRF 0 -> 1" );
}

TEST( PortRx, takesInNothingWhileItIsDisabled ) {
   Router router;
   const std::string packet = "intfname: 'et1' dst: @10.1.0.1";
   router.set( "rx_et1 setEnabled enabled: false" );
   EXPECT_EQ( router.end( packet ), "dropped at rx_et1: et1 is disabled" );
   EXPECT_EQ( Plane().apply( "create rx PortRx intfname: 'et1'\n rx setEnabled" ),
              Lines{ "1 EINVAL rx: setEnabled: enabled is missing" } );
   router.set( "rx_et1 setEnabled enabled: true" );
   EXPECT_TRUE( router.end( packet ).starts_with( "local at trap" ) );
}

TEST( IpInput, refusesWhatIsNoGoodHeaderUnderItsCounters ) {
   Router router;
   router.set( "IpInput_et1 setCounterIds bad_ip_checksum_counter: 1 bad_ip_len_counter: 2" );
   const struct {
      const char * what;
      std::size_t at;
      std::uint8_t value;
      CounterId counter;
   } cases[] = {
        { "version 5", 0, 0x55, 2 },
        { "header length 16", 0, 0x44, 2 },
        { "header over the packet", 0, 0x4f, 2 },
        { "total length under the header", 3, 19, 2 },
        { "total length over the frame", 3, 29, 2 },
        { "a TTL that the checksum doesn't know", 8, 60, 1 },
   };
   for ( const auto & given : cases ) {
      auto packet = Router::described( kTransit );
      packet.data()[ given.at ] = given.value;
      const auto before = router.counters.value( given.counter );
      router.frame( std::move( packet ) );
      EXPECT_EQ( router.counters.value( given.counter ), before + 1 ) << given.what;
   }
   EXPECT_EQ( router.tapped().size(), 0u );
}

TEST( IpInput, cutsThePaddingOfAShortFrame ) {
   Router router;
   const auto packet = Router::described( kTransit );
   Packet padded( 46 );
   std::ranges::copy( packet.span(), padded.data() );
   router.frame( std::move( padded ) );
   EXPECT_EQ( router.frames(),
              ( Lines{ "02:00:00:00:00:02 > 02:aa:00:00:00:05 | 10.9.0.1 > 10.2.0.7 ttl 63 tos 0 len 28 "
                       "| udp 1000 > 53" } ) );
}

TEST( Fib, flowsSpreadEvenlyAndStayWhereTheyAre ) {
   for ( const unsigned members : { 2u, 3u, 7u, 64u } ) {
      Router router;
      std::string fec = "fibIpv4 addFec fec_id: 2";
      for ( unsigned i = 0; i < members; ++i ) fec += fmt::format( " nh_info {{ gate: 2 nh_index: {} }}", i % 16 );
      router.set( fec );
      for ( unsigned i = 0; i < 16; ++i )
         router.set( fmt::format( "NextHop_et2 writeNH nexthopinfo {{ nh_index: {0} pkt_cmd: 1 mac_da: "
                                  "@02:aa:00:00:00:{0:02x} }}",
                                  i ) );
      // Flows as hosts make them: neighbouring addresses, neighbouring ports.
      constexpr unsigned kFlows = 8000;
      std::map< std::string, unsigned > byMember;
      for ( unsigned i = 0; i < kFlows; ++i ) {
         const auto flow = fmt::format( "src: {} dst: @10.2.0.7 proto: 17 sport: {} dport: 53",
                                        ip( "10.9.0.0" ) + i / 100, 32768 + i % 100 );
         router.tapped().clear();
         router.frame( flow );
         router.frame( flow + " ttl: 9 dscp: 10 length: 100" );
         ASSERT_EQ( router.tapped().size(), 2u );
         const auto mac = router.frames()[ 0 ].substr( 20, 17 );
         ASSERT_EQ( router.frames()[ 1 ].substr( 20, 17 ), mac ) << "a flow is split";
         ++byMember[ mac ];
      }
      const double fair = double( kFlows ) / std::min( members, 16u );
      for ( const auto & [ mac, flows ] : byMember )
         EXPECT_NEAR( flows, fair, fair * 0.15 ) << mac << " of " << members << " members";
      EXPECT_EQ( byMember.size(), std::min( members, 16u ) );
   }
}

TEST( Fib, theFragmentsOfAPacketStayTogether ) {
   Router router;
   router.set( R"(
      NextHop_et2 writeNH nexthopinfo { nh_index: 1 pkt_cmd: 1 mac_da: @02:aa:00:00:00:01 }
      fibIpv4 addFec fec_id: 2 nh_info { gate: 2 nh_index: 5 } nh_info { gate: 2 nh_index: 1 }
   )" );
   for ( unsigned port = 0; port < 32; ++port ) {
      auto whole = Router::described( fmt::format( "dst: @10.2.0.7 proto: 17 sport: {} length: 3000", port ) );
      router.tapped().clear();
      for ( auto & fragment : fragmented( whole, 600 ) ) router.frame( std::move( fragment ) );
      std::set< std::string > macs;
      for ( const auto & frame : router.frames() ) macs.insert( frame.substr( 20, 17 ) );
      EXPECT_EQ( macs.size(), 1u ) << "port " << port;
   }
}

TEST( Tunnel, transitPacketsAreWrappedAndLoseOneHopOnTheInside ) {
   const struct {
      const char * what;
      const char * options;
      const char * encap;
      const char * commands;
      const char * outer;
      const char * gre;
   } cases[] = {
        { "as configured, with a key", "gre_key: 77", "tun_tos: 184 tun_ttl: 9", "", "ttl 9 tos 184 len 56",
          "gre 0x800 key 77" },
        { "no key", "gre_key: 0", "tun_ttl: 9", "", "ttl 9 tos 0 len 52", "gre 0x800" },
        { "TOS off", "", "tun_tos: 184 tun_ttl: 9", "Ip4GreTun_tu1 setIp4TunTos tun_tos: false", "ttl 9 tos 0 len 52",
          "gre 0x800" },
        { "TOS on again", "", "tun_tos: 184 tun_ttl: 9",
          "Ip4GreTun_tu1 setIp4TunTos tun_tos: false\n Ip4GreTun_tu1 setIp4TunTos tun_tos: true",
          "ttl 9 tos 184 len 52", "gre 0x800" },
        { "TTL from inside", "", "tun_ttl: 9", "Ip4GreTun_tu1 setIp4TunTtl ttl_from_inner_header: true",
          "ttl 63 tos 0 len 52", "gre 0x800" },
        { "no TTL configured", "", "", "", "ttl 63 tos 0 len 52", "gre 0x800" },
   };
   for ( const auto & given : cases ) {
      Router router;
      router.addTunnel( given.options, given.encap );
      router.set( given.commands );
      router.frame( "src: @10.9.0.1 dst: @10.3.0.7 proto: 17 sport: 1 dport: 2" );
      EXPECT_EQ( router.frames(),
                 Lines{ fmt::format( "02:00:00:00:00:02 > 02:aa:00:00:00:05 | 192.0.2.1 > 192.0.2.2 {} | "
                                     "{} | 10.9.0.1 > 10.3.0.7 ttl 63 tos 0 len 28 | udp 1 > 2",
                                     given.outer, given.gre ) } )
           << given.what;
   }
}

TEST( Tunnel, theRoutersOwnPacketsKeepTheirTtlInsideAndOut ) {
   Router router;
   router.addTunnel( "", "tun_ttl: 1" );
   auto own = Router::described( "src: @10.3.0.1 dst: @10.3.0.7 proto: 17 sport: 1 dport: 2 ttl: 1" );
   router.run( "rxcp_tu1", std::move( own ) );
   EXPECT_EQ( router.frames(),
              ( Lines{ "02:00:00:00:00:02 > 02:aa:00:00:00:05 | 192.0.2.1 > 192.0.2.2 ttl 1 tos 0 len 52 | "
                       "gre 0x800 | 10.3.0.1 > 10.3.0.7 ttl 1 tos 0 len 28 | udp 1 > 2" } ) );
}

TEST( Tunnel, theWayThroughIsTold ) {
   Router router;
   router.addTunnel( "gre_key: 5", "tun_ttl: 9" );
   const auto steps = router.trace( "intfname: 'et1' src: @10.9.0.1 dst: @10.3.0.7 proto: 17" );
   EXPECT_EQ(
        Lines( steps.begin() + 3, steps.begin() + 8 ),
        ( Lines{ "fibIpv4: longest match 10.3.0.0/16 -> FEC 3, member 1 of 1 (gate 3, next hop 9) -> 3",
                 "IpOutput_tu1: 28 bytes fit -> 1",
                 "Ip4GreTun_tu1: TTL 63, GRE from 192.0.2.1 to 192.0.2.2, key 5, outer TTL 9 -> 1",
                 "NhResolve_tu1: resolve entry 9 -> gate 1, next hop 5 -> 1", "IpOutput_et2: 56 bytes fit -> 1" } ) );
   router.set( "NhResolve_tu1 addNhResolveEntry nhr_index: 9 ogate: 4294967295 nhm_index: 5" );
   EXPECT_EQ( router.end( "intfname: 'et1' dst: @10.3.0.7" ), "dropped at NhResolve_tu1: resolve entry 9 has no gate" );
   router.set( "NhResolve_tu1 deleteNhResolveEntry nhr_index: 9" );
   EXPECT_EQ( router.end( "intfname: 'et1' dst: @10.3.0.7" ), "dropped at NhResolve_tu1: there is no resolve entry 9" );
   EXPECT_EQ( router.end( "intfname: 'et1' dst: @10.3.0.7 ttl: 1" ), "local at trap: the TTL expired" );
}

TEST( Tunnel, aTtlThatEndsThereIsTheRouters ) {
   Router router;
   router.addTunnel();
   // Nobody connects a tunnel's trap gate.
   router.set( "disconnect Ip4GreTun_tu1:0" );
   EXPECT_EQ( router.end( "intfname: 'et1' dst: @10.3.0.7 ttl: 1" ), "local at trap: the TTL expired" );
   EXPECT_EQ( router.end( "intfname: 'et1' dst: @10.3.0.7 ttl: 1 length: 4000" ), "local at trap: the TTL expired" );
   router.set( "destroy trap" );
   EXPECT_EQ( router.end( "intfname: 'et1' dst: @10.3.0.7 ttl: 1" ),
              "dropped at Ip4GreTun_tu1: gate 0 is not connected (the TTL expired)" );
}

TEST( Tunnel, aRouteOfTheUnderlayIntoTheTunnelEnds ) {
   Router router;
   router.addTunnel();
   router.set( R"(
      disconnect NhResolve_tu1:1
      connect NhResolve_tu1:1 IpOutput_tu1:0
      NhResolve_tu1 addNhResolveEntry nhr_index: 9 ogate: 1 nhm_index: 9
   )" );
   // The packet grows until it doesn't fit, and its fragments grow and split in turn: the walk is what ends.
   router.frame( "dst: @10.3.0.7 length: 1400" );
   EXPECT_EQ( router.tapped().size(), 0u );
   EXPECT_EQ( router.end( "intfname: 'et1' dst: @10.3.0.7" ),
              "dropped at Ip4GreTun_tu1: no room for the tunnel's headers" );
}

// Modules trust nothing that they are handed.
TEST( Modules, anyBytesAtAnyModuleFindAnEnd ) {
   Router router;
   router.addTunnel( "gre_key: 1" );
   router.set( R"(
      IpInput_et1 setTcpMssAdjust mss: 100
      IpOutput_et2 setMtu ip_mtu: 68
      create mfib McastFibIpv6
      create ipsec Ip4IpsecTun tun_id: 1
      create mgmt IpsecManagement
      mgmt initVirtDevice crypto_dev_name: 'crypto_openssl' max_nb_queue_pairs: 1 max_nb_sessions: 9
      mgmt updateIpsecSAs vrf: 0 encap_id: 7 sa_direction: 0 saentries { sa_spi: 257 proto: 50 flags: 1 src_addr: 1 dst_addr: 2 cipher_algorithm: 5 auth_algorithm: 1 crypto_info: '0123456789ABCDEF' crypto_info_len: 128 encap_type: 0 }
      create espOut IpsecTunnelEgress vrf: 0 encap_id: 7
      create espIn IpsecTunnelIngress
      create encrypt IpsecEncrypt
      create decrypt IpsecDecrypt
      create db KyAclDb
      db createAcl acl_id: 1 acl_target: 0 rule { dst_port_lower: 7 dst_port_upper: 9 permit: true } rule { tcp_flag: 2 permit: false }
      create acl KyAcl
      acl applyAcl acl_id: 1
      create txcp PortTxCp intfname: 'et1'
   )" );
   std::mt19937 random( 1 );
   for ( int round = 0; round < 300; ++round ) {
      for ( const auto & [ name, module ] : router.graph.modules() ) {
         Packet packet( random() % 120 );
         for ( std::size_t i = 0; i < packet.size(); ++i ) packet.data()[ i ] = std::uint8_t( random() );
         // Half of them look like IPv4, with TCP and options of any kind behind it.
         if ( packet.size() > 0 && round % 2 == 0 ) packet.data()[ 0 ] = std::uint8_t( 0x45 + random() % 3 );
         if ( packet.size() > 9 && round % 4 == 0 ) packet.data()[ 9 ] = kProtoTcp;
         packet.meta.ethernet = random() % 2 == 0;
         packet.meta.nhIndex = std::uint32_t( random() % 20 );
         router.run( name, std::move( packet ) );
      }
   }
}

} // namespace
