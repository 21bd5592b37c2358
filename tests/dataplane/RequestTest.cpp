#include "DpTestSupport.h"

#include "DpBatch.h"
#include "DpListing.h"

#include "google/rpc/error_details.pb.h"
#include "vex/fib_ipv4.pb.h"
#include "vex/next_hop.pb.h"

#include <algorithm>
#include <cerrno>
#include <gmock/gmock.h>

namespace {

using namespace DpTest;
using namespace Vexdp;

constexpr const char * kFib = "create fib FibIpv4 max_rules: 2\n fib addVrf vrf: 1\n";

TEST( Requests, aRefusedOneNamesItsObjectAndChangesNothing ) {
   expectRefusals( "create a IpInput\n create b Trap\n connect a:0 b:7", refusalTable( R"(
      create c Firewall => ENOENT c: CreateModule: there is no module class "Firewall"
      create b NextHop => EEXIST b: CreateModule: the name is in use by a module of class Trap
      destroy c => ENOENT c: DestroyModule: no such module
      connect c:0 b:0 => ENOENT c: ConnectModules: no such module
      connect a:1 c:0 => ENOENT a: ConnectModules: there is no module c to connect to
      connect a:2 b:0 => ERANGE a: ConnectModules: output gate 2 is out of range, a of class IpInput has 2
      connect a:4294967296 b:0 => ERANGE a: ConnectModules: output gate 4294967296 is out of range, a of class IpInput has 2
      connect a:1 b:8192 => ERANGE a: ConnectModules: input gate 8192 is out of range, b of class Trap has 8192
      connect b:3 a:0 => ERANGE b: ConnectModules: output gate 3 is out of range, b of class Trap has 3
      connect a:0 b:8 => EBUSY a: ConnectModules: output gate 0 is in use, it leads to b:7
      disconnect a:1 => ENOTCONN a: DisconnectModules: output gate 1 is not connected
      disconnect a:18446744073709551615 => ENOTCONN a: DisconnectModules: output gate 18446744073709551615 is not connected
      disconnect c:1 => ENOENT c: DisconnectModules: no such module
      c addRoute => ENOENT c: addRoute: no such module
      a addRoute => EOPNOTSUPP a: addRoute: class IpInput has no such command
   )" ) );
   expectRefusals( std::string( kFib ) + R"(
      fib addRoute vrf: 1 prefix: @10.0.0.0 prefix_len: 8 fec_id: 1
   )",
                   refusalTable( R"(
      create other FibIpv4 max_rules: 0 => ERANGE other: CreateModule: max_rules 0 leaves no room
      create other FibIpv4 max_rules: 8388608 => ERANGE other: CreateModule: max_rules 8388608 is out of range, at most 8388607
      fib addRoute vrf: 1 prefix: @10.0.0.1 prefix_len: 8 fec_id: 1 => EINVAL fib: addRoute: prefix 10.0.0.1/8 has host bits set
      fib addRoute vrf: 1 prefix: 1 prefix_len: 0 fec_id: 1 => EINVAL fib: addRoute: prefix 0.0.0.1/0 has host bits set
      fib addRoute vrf: 1 prefix: 0 prefix_len: 33 fec_id: 1 => EINVAL fib: addRoute: prefix 0.0.0.0/33 has a length over 32
      fib addRoute vrf: 1 prefix: 0 prefix_len: 256 fec_id: 1 => EINVAL fib: addRoute: prefix 0.0.0.0/256 has a length over 32
      fib addRoute vrf: 1 prefix: 0 fec_id: 1 => EINVAL fib: addRoute: prefix_len is missing
      fib addRoute vrf: 1 prefix: 0 prefix_len: 0 => EINVAL fib: addRoute: fec_id is missing
      fib addRoute vrf: 3 prefix: 0 prefix_len: 0 fec_id: 1 => ENOENT fib: addRoute: there is no VRF 3
      fib delRoute vrf: 1 prefix: @10.0.0.0 prefix_len: 9 => ENOENT fib: delRoute: there is no prefix 10.0.0.0/9 in VRF 1
      fib addVrf vrf: 1 => EEXIST fib: addVrf: VRF 1 is there already
      fib delVrf vrf: 7 => ENOENT fib: delVrf: there is no VRF 7
      fib addFec fec_id: 1 nh_info { nh_index: 1 } => EINVAL fib: addFec: nh_info.gate is missing
      fib addFec fec_id: 1 nh_info { gate: 1 } nh_info { gate: 8192 } => ERANGE fib: addFec: nh_info.gate 8192 is out of range, the module has 8192 output gates
      fib delFec fec_id: 1 => ENOENT fib: delFec: there is no FEC 1
      fib showFib vrf: 9 => ENOENT fib: showFib: there is no VRF 9
      fib setCounterIds no_route_counter: 1 no_fec_counter: 1048576 => ERANGE fib: setCounterIds: no_fec_counter 1048576 is out of range, the table has 1048576 counters
   )" ) );
   expectRefusals( R"(
      create nh NextHop max_nexthops: 4
      nh writeNH nexthopinfo { nh_index: 1 pkt_cmd: 2 }
      create nhr NhResolve max_entries: 0
      create out IpOutput ip_mtu: 1500
      create in IpInput mss: 1400
      create c EtherClassify
      c addVirtualMac mac_addr: @00:00:5e:00:01:01
   )",
                   refusalTable( R"(
      nh writeNH nexthopinfo { nh_index: 0 pkt_cmd: 2 } nexthopinfo { nh_index: 4 pkt_cmd: 2 } => ERANGE nh: writeNH: nh_index 4 is out of range, at most 3
      nh writeNH nexthopinfo { nh_index: 0 pkt_cmd: 1 mac_da: '12345' } => EINVAL nh: writeNH: mac_da has 5 bytes instead of 6
      nh writeNH nexthopinfo { nh_index: 0 } => EINVAL nh: writeNH: nexthopinfo.pkt_cmd is missing
      nh deleteNH nexthopinfo { nh_index: 1 } nexthopinfo { nh_index: 4 } => ERANGE nh: deleteNH: nh_index 4 is out of range, at most 3
      nh setSrcMacAddr mac_addr: '1234567' => EINVAL nh: setSrcMacAddr: mac_addr has 7 bytes instead of 6
      create other NextHop max_nexthops: 1048577 => ERANGE other: CreateModule: max_nexthops 1048577 is out of range, at most 1048576
      nhr addNhResolveEntry nhr_index: 0 ogate: 1 nhm_index: 1 => EINVAL nhr: addNhResolveEntry: nhr_index 0 is reserved
      nhr addNhResolveEntry nhr_index: 1024 ogate: 1 nhm_index: 1 => ERANGE nhr: addNhResolveEntry: nhr_index 1024 is out of range, at most 1023
      nhr addNhResolveEntry nhr_index: 1 ogate: 1 => EINVAL nhr: addNhResolveEntry: nhm_index is missing
      nhr deleteNhResolveEntry nhr_index: 1024 => ERANGE nhr: deleteNhResolveEntry: nhr_index 1024 is out of range, at most 1023
      out setMtu ip_mtu: 67 => ERANGE out: setMtu: ip_mtu 67 is out of range, at least 68, or 0 for no limit
      out setMtu mss: 1400 => EINVAL out: setMtu: ip_mtu is missing
      in setTcpMssAdjust mss: 65536 => ERANGE in: setTcpMssAdjust: mss 65536 is out of range, at most 65535
      create t Ip4GreTun ip_encap_arg { tun_src_ip: @10.0.0.1 } => EINVAL t: CreateModule: ip_encap_arg.tun_dst_ip is missing
      create p PortRx intf_id: 1 => EINVAL p: CreateModule: intfname is missing
      create other EtherClassify mac_addr: '123' => EINVAL other: CreateModule: mac_addr has 3 bytes instead of 6
      c addVirtualMac mac_addr: @00:00:5e:00:01:01 => EEXIST c: addVirtualMac: virtual MAC 00:00:5e:00:01:01 is there already
      c removeVirtualMac mac_addr: @00:00:5e:00:01:02 => ENOENT c: removeVirtualMac: there is no virtual MAC 00:00:5e:00:01:02
      c setEtherTypeGate ether_type: 2048 ogate: 8192 => ERANGE c: setEtherTypeGate: ogate 8192 is out of range, at most 8191
      c clearEtherTypeGate ether_type: 2048 => ENOENT c: clearEtherTypeGate: EtherType 0x0800 has no gate
   )" ) );
}

TEST( Requests, absentIsNotZero ) {
   Plane plane;
   plane.set( R"(
      create out IpOutput ip_mtu: 1500 mss: 1400 do_mss_checksum: true
      out setMtu ip_mtu: 9000
      create in IpInput mss: 1300 do_mss_checksum: true
      in setTcpMssAdjust mss: 1200
      in setTcpMssAdjust do_mss_checksum: false
      in setCounterIds bad_ip_len_counter: 5
      in setCounterIds bad_ip_checksum_counter: 4
   )" );
   EXPECT_EQ( plane.dump( { "in" } ).back(), "in setTcpMssAdjust mss: 1200 do_mss_checksum: false" );
   EXPECT_EQ( plane.dump( { "in" } )[ 1 ], "in setCounterIds bad_ip_checksum_counter: 4 bad_ip_len_counter: 5" );
   EXPECT_EQ( plane.dump( { "out" } ).back(), "out setMtu ip_mtu: 9000" );
   // Back at the values of the init message there is nothing to say.
   plane.set( "in setTcpMssAdjust mss: 1300 do_mss_checksum: true\n out setMtu ip_mtu: 1500" );
   EXPECT_EQ( plane.dump( { "out" } ).size(), 1u );
   EXPECT_EQ( plane.dump( { "in" } ).size(), 2u );
}

TEST( Requests, everyCommandOfARunCountsAndARefusalStopsNothing ) {
   Plane plane;
   EXPECT_EQ( plane.apply( R"(
      create fib FibIpv4
      fib addVrf vrf: 0
      fib addRoute vrf: 0 prefix: @10.0.0.0 prefix_len: 8 fec_id: 1
      fib addRoute vrf: 0 prefix: @10.0.0.0 prefix_len: 6 fec_id: 2
      fib addRoute vrf: 0 prefix: @11.0.0.0 prefix_len: 8 fec_id: 3
      gone addRoute
      gone addRoute
      fib addRoute vrf: 0 prefix: @12.0.0.0 prefix_len: 8
   )" ),
              ( Lines{ "3 EINVAL fib: addRoute: prefix 10.0.0.0/6 has host bits set",
                       "5 ENOENT gone: addRoute: no such module", "6 ENOENT gone: addRoute: no such module",
                       "7 EINVAL fib: addRoute: fec_id is missing" } ) );
   EXPECT_EQ( plane.dump(), ( Lines{ "create_module { name: \"fib\" mclass: \"FibIpv4\" }", "fib addVrf vrf: 0",
                                     "fib addRoute vrf: 0 prefix: 167772160 prefix_len: 8 fec_id: 1",
                                     "fib addRoute vrf: 0 prefix: 184549376 prefix_len: 8 fec_id: 3" } ) );
}

TEST( Requests, bytesOfAnotherTypeOrOfNoneAreRefused ) {
   Plane plane;
   plane.set( "create fib FibIpv4\n fib addVrf vrf: 0" );
   vex::pb::Batch batch;
   auto & foreign = *batch.add_request()->mutable_command();
   foreign.set_module( "fib" );
   foreign.set_cmd( "addRoute" );
   foreign.set_type( "vex.pb.FibIpv4VrfArg" );
   foreign.add_arg();
   auto & garbage = *batch.add_request()->mutable_command();
   garbage = foreign;
   garbage.set_type( "vex.pb.FibIpv4RouteArg" );
   garbage.set_arg( 0, "\x0a\xff" );
   auto & create = *batch.add_request()->mutable_create_module();
   create.set_name( "x" );
   create.set_mclass( "NextHop" );
   create.mutable_arg()->PackFrom( vex::pb::FibIpv4Arg() );
   auto & unparsed = *batch.add_request()->mutable_create_module();
   unparsed = create;
   unparsed.mutable_arg()->set_type_url( "type.googleapis.com/vex.pb.NextHopInitArg" );
   unparsed.mutable_arg()->set_value( "\x08" );
   batch.add_request();

   vex::pb::BatchReply reply;
   plane.engine.apply( batch, reply );
   EXPECT_EQ( refusals( reply ),
              ( Lines{ "0 EINVAL fib: addRoute: the argument is of type \"vex.pb.FibIpv4VrfArg\" instead of "
                       "vex.pb.FibIpv4RouteArg",
                       "1 EINVAL fib: addRoute: the bytes are no vex.pb.FibIpv4RouteArg",
                       "2 EINVAL x: CreateModule: the init argument is of type \"vex.pb.FibIpv4Arg\" instead of "
                       "vex.pb.NextHopInitArg",
                       "3 EINVAL x: CreateModule: the bytes are no vex.pb.NextHopInitArg",
                       "4 EINVAL the request says nothing" } ) );
}

TEST( Requests, aRefusalCarriesTheStandardErrorModel ) {
   Plane plane;
   plane.set( kFib );
   vex::pb::BatchReply reply;
   plane.engine.apply( plane.reader.batch( "fib addVrf vrf: 1\n gone addVrf" ), reply );
   ASSERT_EQ( reply.refusal_size(), 2 );
   const auto & status = reply.refusal( 0 ).status();
   EXPECT_EQ( status.code(), 6 ); // ALREADY_EXISTS
   EXPECT_EQ( status.message(), "fib: addVrf: VRF 1 is there already" );
   google::rpc::ErrorInfo cause;
   google::rpc::ResourceInfo object;
   ASSERT_TRUE( status.details( 0 ).UnpackTo( &cause ) && status.details( 1 ).UnpackTo( &object ) );
   EXPECT_EQ( cause.reason(), "EEXIST" );
   EXPECT_EQ( cause.domain(), "vexdp" );
   EXPECT_EQ( cause.metadata().at( "module" ), "fib" );
   EXPECT_EQ( cause.metadata().at( "action" ), "addVrf" );
   EXPECT_EQ( object.resource_type(), "FibIpv4" );
   EXPECT_EQ( object.resource_name(), "fib" );
   ASSERT_TRUE( reply.refusal( 1 ).status().details( 1 ).UnpackTo( &object ) );
   EXPECT_EQ( object.resource_type(), "module" );
}

TEST( Requests, aFibHoldsWhatTheDataPlaneIsSetToWhateverItIsAskedFor ) {
   Plane plane( { .routes = 2 } );
   for ( const char * name :
         { "create less FibIpv4 max_rules: 1\n less", "create more FibIpv4 max_rules: 3\n more" } ) {
      const std::string fib = std::string( name ).substr( 7, 4 );
      plane.set( fmt::format( "{0} addVrf vrf: 1\n {1} addVrf vrf: 2\n"
                              "{1} addRoute vrf: 1 prefix: 0 prefix_len: 0 fec_id: 1\n"
                              "{1} addRoute vrf: 2 prefix: 0 prefix_len: 0 fec_id: 1\n"
                              "{1} addRoute vrf: 2 prefix: 0 prefix_len: 0 fec_id: 2",
                              name, fib ) );
      EXPECT_EQ( plane.apply( fib + " addRoute vrf: 2 prefix: @10.0.0.0 prefix_len: 8 fec_id: 1" ),
                 Lines{ "0 ENOSPC " + fib +
                        ": addRoute: no room for prefix 10.0.0.0/8 of VRF 2, the table is full with 2 routes" } );
   }
}

TEST( Requests, whatIsSaidOfARefusedBatchIsBounded ) {
   Plane plane;
   constexpr int kRequests = kRefusalsWithText + 100;
   vex::pb::Batch batch;
   for ( int i = 0; i < kRequests; ++i )
      batch.add_request()->mutable_destroy_module()->set_name( std::string( 5000, 'x' ) );
   vex::pb::BatchReply reply;
   plane.engine.apply( batch, reply );
   const auto count = [ & ]( auto has ) { return std::ranges::count_if( reply.refusal(), has ); };
   EXPECT_EQ( count( []( const auto & refusal ) { return refusal.error().code() == ENOENT; } ), kRequests );
   EXPECT_EQ( count( []( const auto & refusal ) { return !refusal.error().errmsg().empty(); } ), kRefusalsWithText );
   EXPECT_EQ( count( []( const auto & refusal ) { return refusal.has_status(); } ), kRefusalsWithStatus );
   EXPECT_EQ( reply.refusal( kRequests - 1 ).index(), unsigned( kRequests - 1 ) );
   EXPECT_LT( reply.ByteSizeLong(), std::size_t( kRefusalsWithText ) * 400 );
   EXPECT_EQ( plane.apply( "create " + std::string( 255, 'x' ) + " Trap" ), Lines() );
   EXPECT_THAT( plane.apply( "create " + std::string( 256, 'x' ) + " Trap" ).front(),
                testing::EndsWith( "CreateModule: a name of 256 bytes is longer than 255" ) );
}

TEST( Requests, aVrfTakesItsRoutesAlongAndLeavesTheFecs ) {
   Plane plane( { .routes = 2 } );
   plane.set( R"(
      create fib FibIpv4 max_rules: 2
      fib addVrf vrf: 0
      fib addVrf vrf: 1
      fib addFec fec_id: 1
      fib addRoute vrf: 0 prefix: 0 prefix_len: 0 fec_id: 1
      fib addRoute vrf: 1 prefix: @10.0.0.0 prefix_len: 8 fec_id: 1
      fib delVrf vrf: 1
      fib addVrf vrf: 2
      fib addRoute vrf: 2 prefix: @10.0.0.0 prefix_len: 8 fec_id: 1
   )" );
   EXPECT_EQ(
        plane.dump(),
        ( Lines{ "create_module { name: \"fib\" mclass: \"FibIpv4\" arg { [type.googleapis.com/vex.pb.FibIpv4Arg] "
                 "{ max_rules: 2 } } }",
                 "fib addVrf vrf: 0", "fib addVrf vrf: 2", "fib addRoute vrf: 0 prefix: 0 prefix_len: 0 fec_id: 1",
                 "fib addRoute vrf: 2 prefix: 167772160 prefix_len: 8 fec_id: 1", "fib addFec fec_id: 1" } ) );
}

TEST( Requests, aLookupFindsTheLongestMatchOrTheVeryPrefix ) {
   Plane plane;
   plane.set( R"(
      create fib FibIpv4
      create trap Trap
      fib addVrf vrf: 0
      fib addRoute vrf: 0 prefix: @10.0.0.0 prefix_len: 8 fec_id: 1
      fib addRoute vrf: 0 prefix: @10.1.0.0 prefix_len: 16 fec_id: 2
      fib addFec fec_id: 2 nh_info { gate: 3 nh_index: 4 }
   )" );
   const struct {
      const char * request;
      const char * reply;
   } cases[] = {
        { "address: @10.1.2.3",
          "found: true prefix: @10.1.0.0 prefix_len: 16 fec_id: 2 fec_found: true nh_info { gate: 3 nh_index: 4 }" },
        { "address: @10.2.0.0", "found: true prefix: @10.0.0.0 prefix_len: 8 fec_id: 1" },
        { "address: @10.1.0.0 prefix_len: 8",
          "error { code: 22 errmsg: 'fib: Lookup: prefix 10.1.0.0/8 has host bits set' }" },
        { "address: @10.0.0.0 prefix_len: 8", "found: true prefix: @10.0.0.0 prefix_len: 8 fec_id: 1" },
        { "address: @10.0.0.0 prefix_len: 9", "" },
        { "address: 0 prefix_len: 40",
          "error { code: 22 errmsg: 'fib: Lookup: prefix 0.0.0.0/40 has a length over 32' }" },
        { "address: @11.0.0.0", "" },
        { "vrf: 5", "error { code: 2 errmsg: 'fib: Lookup: there is no VRF 5' }" },
        { "module: 'none'", "error { code: 2 errmsg: 'none: Lookup: no such module' }" },
        { "module: 'trap'", "error { code: 95 errmsg: 'trap: Lookup: class Trap has no routes' }" },
   };
   for ( const auto & given : cases ) {
      vex::pb::LookupRequest request;
      vex::pb::LookupReply reply, expected;
      parse( given.request, request );
      if ( request.module().empty() ) request.set_module( "fib" );
      parse( given.reply, expected );
      plane.engine.lookup( request, reply );
      EXPECT_EQ( reply.DebugString(), expected.DebugString() ) << given.request;
   }
}

} // namespace
