#include "DpDescriptor.h"
#include "DpEthernet.h"
#include "DpPmdDevice.h"
#include "DpTestSupport.h"
#include "DpTracePacket.h"
#include "Process.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <set>
#include <thread>

namespace DpTest {

using namespace Vexdp;

namespace {

std::string pathOf( const std::string & name ) { return fmt::format( "@vexdp-test-{}-{}", getpid(), name ); }

bess::pb::CreatePortRequest requestFor( const std::string & name ) {
   bess::pb::UnixSocketPortArg arg;
   arg.set_path( pathOf( name ) );
   bess::pb::CreatePortRequest request;
   request.set_name( name );
   request.set_driver( "UnixSocketPort" );
   request.mutable_arg()->PackFrom( arg );
   return request;
}

bess::pb::Error created( Engine & engine, const bess::pb::CreatePortRequest & request ) {
   bess::pb::CreatePortResponse response;
   engine.apply( request, response );
   return response.error();
}

// Both ends are ours: nothing on the machine is needed. By so many workers.
class Wired : public testing::TestWithParam< unsigned > {
 protected:
   Wired() { tell( 5 ); }

   // What makes a router by the next hop, of 5 and 6.
   void tell( unsigned nextHop ) {
      plane.set( coreLines() );
      for ( const auto * intf : { "et1", "et2" } ) plane.set( ethernetLines( intf, intf[ 2 ] - '0' ) );
      plane.set( fmt::format( "fibIpv4 addFec fec_id: 2 nh_info {{ gate: 2 nh_index: {} }}", nextHop ) );
      plane.set( R"(
         fibIpv4 addRoute vrf: 0 prefix: @10.2.0.0 prefix_len: 16 fec_id: 2
         NextHop_et2 writeNH nexthopinfo { nh_index: 5 pkt_cmd: 1 mac_da: @02:aa:00:00:00:05 }
         NextHop_et2 writeNH nexthopinfo { nh_index: 6 pkt_cmd: 1 mac_da: @02:aa:00:00:00:06 }
      )" );
   }

   bess::pb::Error make( const std::string & name ) { return created( plane.engine, requestFor( name ) ); }

   static Descriptor client( const std::string & name ) {
      Descriptor made( ::socket( AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0 ) );
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      const auto path = pathOf( name );
      path.copy( address.sun_path, path.size() );
      address.sun_path[ 0 ] = 0;
      const timeval patience{ 20, 0 };
      setsockopt( made.fd(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience );
      EXPECT_EQ( connect( made.fd(), reinterpret_cast< sockaddr * >( &address ),
                          socklen_t( offsetof( sockaddr_un, sun_path ) + path.size() ) ),
                 0 )
           << path;
      return made;
   }

   static Packet transit() {
      vex::pb::TracePacketRequest request;
      parse( "src: @10.1.0.9 dst: @10.2.0.7 proto: 17 sport: 1 dport: 2", request );
      Packet packet( 0 );
      EXPECT_TRUE( describedPacket( request, packet ).ok() );
      prependEthernet( packet, { { 0x02, 0, 0, 0, 0, 1 } }, { { 0x02, 0xbb, 0, 0, 0, 1 } }, kEtherTypeIpv4 );
      return packet;
   }
   static void send( const Descriptor & to, const Packet & packet ) {
      EXPECT_EQ( ::send( to.fd(), packet.data(), packet.size(), 0 ), ssize_t( packet.size() ) );
   }
   // The frame's destination; empty when none came.
   static std::string received( const Descriptor & from ) {
      MacAddr mac;
      std::array< std::uint8_t, 2048 > bytes;
      if ( recv( from.fd(), bytes.data(), bytes.size(), 0 ) < ssize_t( kEthernetLen ) ) return {};
      std::copy_n( bytes.begin(), mac.bytes.size(), mac.bytes.begin() );
      return fmt::format( "{}", mac );
   }

   // Whatever can be, all of it in its turns.
   void changeAll( unsigned turn ) {
      plane.set( fmt::format( "fibIpv4 addFec fec_id: 2 nh_info {{ gate: 2 nh_index: {} }}", 5 + turn % 2 ) );
      plane.set( fmt::format( "IpOutput_et2 setMtu ip_mtu: {}\nIpInput_et1 setTcpMssAdjust mss: {}", 1400 + turn % 100,
                              1000 + turn % 100 ) );
      plane.set( R"(
         fibIpv4 addRoute vrf: 0 prefix: @10.2.0.0 prefix_len: 24 fec_id: 2
         fibIpv4 delRoute vrf: 0 prefix: @10.2.0.0 prefix_len: 24
         NextHop_et2 writeNH nexthopinfo { nh_index: 5 pkt_cmd: 1 mac_da: @02:aa:00:00:00:05 }
         create db KyAclDb
         db createAcl acl_id: 1 acl_target: 0 rule { permit: true counter_id: 9 log: true }
         create acl KyAcl ingress: true
         acl applyAcl acl_id: 1 ipv4: true
         connect acl:1 fibIpv4:0
         disconnect IpInput_et1:1
         connect IpInput_et1:1 acl:0
         db createAcl acl_id: 1 acl_target: 0 rule { proto: 17 permit: true counter_id: 9 }
         disconnect IpInput_et1:1
         connect IpInput_et1:1 fibIpv4:0
         destroy acl
         destroy db
      )" );
      const auto last = std::int64_t( GetParam() ) - 1;
      if ( last > 0 ) {
         bess::pb::AddWorkerRequest worker;
         worker.set_wid( last );
         EXPECT_TRUE( plane.engine.destroyWorker( last ).ok() && plane.engine.addWorker( worker ).ok() );
      }
      EXPECT_TRUE( plane.engine.pauseWorker( 0, true ).ok() && plane.engine.pauseWorker( 0, false ).ok() );
      // Its address is free again, though a worker has slept on it.
      const auto another = "et9";
      EXPECT_EQ( make( another ).errmsg(), "" );
      bess::pb::DestroyPortRequest port;
      port.set_name( another );
      bess::pb::EmptyResponse gone;
      plane.engine.apply( port, gone );
      vex::pb::CaptureRequest capture;
      capture.set_trace( turn % 2 == 0 );
      vex::pb::CaptureReply captured;
      plane.engine.capture( capture, captured );
      capture.set_id( captured.id() );
      plane.engine.capture( capture, captured );
      capture.set_end( true );
      plane.engine.capture( capture, captured );
      vex::pb::GatesReply gates;
      plane.engine.gates( gates );
      vex::pb::DropsReply drops;
      plane.engine.drops( drops );
   }

   Plane plane{ {}, GetParam() };
};

INSTANTIATE_TEST_SUITE_P( Workers, Wired, testing::Values( 1u, 4u ) );

TEST_P( Wired, packetsComeInByOnePortAndLeaveByTheOtherWhicheverIsMadeFirst ) {
   ASSERT_EQ( make( "et2" ).errmsg(), "" );
   ASSERT_EQ( make( "et1" ).errmsg(), "" );
   EXPECT_EQ( make( "et1" ).errmsg(), "et1: CreatePort: there is a port et1 already" );
   auto out = client( "et2" );
   const auto in = client( "et1" );
   send( in, Packet( 0 ) );
   send( in, transit() );
   EXPECT_EQ( received( out ), "02:aa:00:00:00:05" );

   // The interface's modules go and come again: the port meets the new ones.
   plane.set( "destroy rx_et1\ncreate rx_et1 PortRx intfname: 'et1' intf_id: 1\nconnect rx_et1:0 classify_et1:0" );
   send( client( "et1" ), transit() );
   EXPECT_EQ( received( out ), "02:aa:00:00:00:05" );

   plane.engine.reset();
   bess::pb::ListPortsResponse ports;
   plane.engine.list( ports );
   EXPECT_EQ( ports.ports_size(), 0 );
}

TEST_P( Wired, aTcpdumpReadsThePacketsOfAGateFromItsFifoUntilItGoes ) {
   ASSERT_EQ( make( "et1" ).errmsg() + make( "et2" ).errmsg(), "" );
   ::Test::Directory directory;
   const auto path = directory.path( "fifo" );
   ASSERT_EQ( mkfifo( path.c_str(), 0600 ), 0 );
   bess::pb::TcpdumpArg arg;
   arg.set_fifo( path );
   bess::pb::ConfigureGateHookRequest hook;
   hook.mutable_hook()->set_class_name( "TcpDump" );
   hook.mutable_hook()->set_module_name( "rx_et1" );
   hook.mutable_hook()->set_ogate( -1 );
   hook.mutable_hook()->mutable_arg()->PackFrom( arg );
   hook.set_enable( true );
   bess::pb::ConfigureGateHookResponse response;
   plane.engine.apply( hook, response );
   ASSERT_EQ( response.error().errmsg(), "" );

   const auto out = client( "et2" );
   const auto packet = transit();
   Descriptor reader( open( path.c_str(), O_RDONLY | O_CLOEXEC ) );
   send( client( "et1" ), packet );
   EXPECT_EQ( received( out ), "02:aa:00:00:00:05" );
   constexpr std::size_t fileHeader = 24, packetHeader = 16;
   std::string bytes( fileHeader + packetHeader + packet.size(), 0 );
   for ( std::size_t got = 0; got < bytes.size(); ) {
      const auto n = read( reader.fd(), bytes.data() + got, bytes.size() - got );
      ASSERT_GT( n, 0 );
      got += std::size_t( n );
   }
   EXPECT_EQ( bytes.substr( 0, 4 ), "\xd4\xc3\xb2\xa1" );
   EXPECT_EQ( bytes.substr( fileHeader + packetHeader ),
              std::string( reinterpret_cast< const char * >( packet.data() ), packet.size() ) );

   hook.set_enable( false );
   plane.engine.apply( hook, response );
   EXPECT_EQ( response.error().errmsg(), "" );
   EXPECT_EQ( read( reader.fd(), bytes.data(), bytes.size() ), 0 );

   // One that goes while nothing flows ends its hook, too.
   hook.set_enable( true );
   plane.engine.apply( hook, response );
   reader = Descriptor( open( path.c_str(), O_RDONLY | O_CLOEXEC ) );
   reader = Descriptor();
   const auto hooked = [ & ] {
      bess::pb::ListGateHooksResponse hooks;
      plane.engine.list( hooks );
      return std::ranges::count( hooks.hooks(), "TcpDump", &bess::pb::GateHookInfo::class_name ) != 0;
   };
   const auto end = std::chrono::steady_clock::now() + std::chrono::seconds( 20 );
   while ( hooked() && std::chrono::steady_clock::now() < end ) std::this_thread::yield();
   EXPECT_FALSE( hooked() );
}

TEST_P( Wired, aFilterThatIsLongInTheMakingHoldsUpNobody ) {
   vex::pb::CaptureRequest request;
   for ( unsigned i = 0; i < 150; ++i ) request.mutable_filter()->append( fmt::format( "host 10.0.0.{} or ", i ) );
   request.mutable_filter()->append( "(port 240 or tcp) and not port 125" );
   const auto began = std::chrono::steady_clock::now();
   auto capturing = std::async( std::launch::async, [ & ] {
      vex::pb::CaptureReply reply;
      plane.engine.capture( request, reply );
      return reply.error().errmsg();
   } );
   auto longest = std::chrono::steady_clock::duration::zero();
   while ( capturing.wait_for( std::chrono::seconds( 0 ) ) != std::future_status::ready ) {
      const auto asked = std::chrono::steady_clock::now();
      bess::pb::ListModulesResponse modules;
      plane.engine.list( modules );
      longest = std::max( longest, std::chrono::steady_clock::now() - asked );
   }
   EXPECT_EQ( capturing.get(), "" );
   EXPECT_LT( longest, ( std::chrono::steady_clock::now() - began ) / 2 );
}

TEST_P( Wired, eachPacketSeesWhatWasBeforeAChangeOrWhatIsAfterIt ) {
   ASSERT_EQ( make( "et1" ).errmsg(), "" );
   ASSERT_EQ( make( "et2" ).errmsg(), "" );
   const auto in = client( "et1" ), out = client( "et2" );
   std::atomic< bool > ending = false;
   std::thread changer( [ & ] {
      for ( unsigned i = 0; !ending; ++i ) changeAll( i );
   } );
   std::multiset< std::string > seen;
   const auto packet = transit();
   for ( unsigned i = 0; i < 2000; ++i ) {
      send( in, packet );
      seen.insert( received( out ) );
   }
   ending = true;
   changer.join();
   EXPECT_EQ( seen.count( "02:aa:00:00:00:05" ) + seen.count( "02:aa:00:00:00:06" ), 2000u );
   EXPECT_GT( seen.count( "02:aa:00:00:00:06" ), 0u );
}

TEST_P( Wired, aGraphForwardsUntilTheOneBesideItIsInStepAndNoPacketIsLost ) {
   ASSERT_EQ( make( "et1" ).errmsg(), "" );
   ASSERT_EQ( make( "et2" ).errmsg(), "" );
   const auto in = client( "et1" ), out = client( "et2" );
   const auto packet = transit();
   const auto way = [ & ] {
      send( in, packet );
      return received( out ).back();
   };
   plane.counters.add( 7 );

   EXPECT_TRUE( plane.engine.beginBeside() );
   EXPECT_EQ( plane.counters.value( 7 ), 0u );
   EXPECT_EQ( plane.dump(), Lines() ) << "requests are about the session's own";
   tell( 6 );
   EXPECT_EQ( way(), '5' );
   plane.engine.endBeside();
   EXPECT_EQ( way(), '5' );

   std::atomic< bool > ending = false;
   std::thread changer( [ & ] {
      for ( unsigned i = 0; !ending; ++i ) {
         EXPECT_TRUE( plane.engine.beginBeside() );
         tell( 5 + i % 2 );
         vex::pb::Batch batch;
         vex::pb::BatchReply reply;
         batch.set_in_step( true );
         plane.engine.apply( batch, reply );
         EXPECT_TRUE( reply.in_step().changed() && reply.in_step().held() > 0 );
      }
   } );
   std::multiset< char > seen;
   for ( unsigned i = 0; i < 2000; ++i ) seen.insert( way() );
   ending = true;
   changer.join();
   EXPECT_EQ( seen.count( '5' ) + seen.count( '6' ), 2000u );
   EXPECT_GT( seen.count( '6' ), 0u );
}

TEST( Workers, eachHasItsQueuesUntilItGoesAndTheLastStaysWithThePorts ) {
   Plane plane( {}, 2 );
   const auto workers = [ & ] {
      bess::pb::ListWorkersResponse response;
      plane.engine.list( response );
      std::string text;
      for ( const auto & each : response.workers_status() )
         text += fmt::format( "{} {} {};", each.wid(), each.running(), each.num_tcs() );
      return text;
   };
   for ( const auto * name : { "et1", "et2", "kernel:et1" } )
      EXPECT_EQ( created( plane.engine, requestFor( name ) ).errmsg(), "" );
   auto twoQueues = requestFor( "et9" );
   twoQueues.set_num_inc_q( 2 );
   EXPECT_EQ( created( plane.engine, twoQueues ).errmsg(), "et9: CreatePort: num_inc_q 2 is out of range, at most 1" );
   EXPECT_EQ( workers(), "0 true 2;1 true 1;" );
   EXPECT_TRUE( plane.engine.pauseWorker( 1, true ).ok() );
   EXPECT_EQ( workers(), "0 true 2;1 false 1;" );
   bess::pb::ListTcsRequest request;
   request.set_wid( 1 );
   bess::pb::ListTcsResponse classes;
   plane.engine.list( request, classes );
   ASSERT_EQ( classes.classes_status_size(), 1 );
   EXPECT_EQ( classes.classes_status( 0 ).class_().ShortDebugString(),
              R"(name: "et2" blocked: true policy: "leaf" wid: 1)" );
   EXPECT_TRUE( plane.engine.destroyWorker( 0 ).ok() );
   EXPECT_EQ( workers(), "1 false 3;" );
   EXPECT_EQ( plane.engine.destroyWorker( 1 ).refusal().code, EBUSY );
   EXPECT_EQ( plane.engine.resetWorkers().refusal().code, EBUSY );
   bess::pb::AddWorkerRequest added;
   added.set_wid( 2 );
   EXPECT_EQ( plane.engine.addWorker( added ).refusal().code, ENOSPC );
   added.set_wid( 0 );
   EXPECT_TRUE( plane.engine.addWorker( added ).ok() );
   EXPECT_EQ( workers(), "0 true 2;1 false 1;" );
}

TEST( Ports, aPathIsTakenFromNobodyButTheDead ) {
   Plane plane;
   ::Test::Directory directory;
   const auto path = directory.path( "socket" ), file = directory.path( "file" );
   std::ofstream{ file } << "another's";
   {
      sockaddr_un address{ AF_UNIX, {} };
      path.copy( address.sun_path, sizeof address.sun_path - 1 );
      const Descriptor killed( ::socket( AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0 ) );
      ASSERT_EQ( bind( killed.fd(), reinterpret_cast< sockaddr * >( &address ), sizeof address ), 0 );
   }
   const auto madeAt = [ & ]( const std::string & name, const std::string & where ) {
      auto request = requestFor( name );
      bess::pb::UnixSocketPortArg arg;
      arg.set_path( where );
      request.mutable_arg()->PackFrom( arg );
      return created( plane.engine, request ).code();
   };
   EXPECT_EQ( madeAt( "et1", path ), 0 );
   EXPECT_EQ( madeAt( "et2", path ), EADDRINUSE );
   EXPECT_EQ( madeAt( "et2", file ), EADDRINUSE );
   EXPECT_EQ( access( path.c_str(), F_OK ) + access( file.c_str(), F_OK ), 0 );
}

// It can be started once.
Eal & startedEal() {
   static Eal eal( { .memory = 64, .words = {}, .buffers = 512 } );
   EXPECT_TRUE( eal.start().ok() );
   return eal;
}

TEST( Fragments, thatWaitLeaveBuffersToThePacketsThatComeIn ) {
   IpFragments fragments( startedEal() );
   for ( std::uint16_t id = 0; id < 128; ++id )
      for ( std::uint16_t offset = 0; offset < 7; ++offset ) {
         Packet packet( 28 );
         writeIpv4Header( packet.data(),
                          { .totalLen = 28, .id = id, .ttl = 64, .proto = kProtoGre, .src = {}, .dst = {} } );
         put16( packet.data() + 6, 0x2000 | offset );
         EXPECT_FALSE( fragments.add( std::move( packet ), {} ) );
      }
   EXPECT_GE( startedEal().pools()[ 0 ].available, 512u / 4 - 1 );
}

TEST( Ports, aFrameInSeveralBuffersIsOnePacketAndOneThatIsTooLongIsCounted ) {
   ::Test::Directory directory;
   const auto path = directory.path( "in.pcap" );
   std::ofstream file( path );
   const auto words = [ &file ]( std::initializer_list< std::uint32_t > all ) {
      for ( const auto word : all ) file.write( reinterpret_cast< const char * >( &word ), sizeof word );
   };
   words( { 0xa1b2c3d4, 2 | 4 << 16, 0, 0, 65535, 1 } );
   for ( const std::uint32_t size : { 100u, 3000u, 60000u } ) {
      words( { 0, 0, size, size } );
      file << std::string( size - 1, 'a' ) << 'z';
   }
   file.close();
   bess::pb::PMDPortArg arg;
   arg.set_vdev( "net_pcap0,rx_pcap=" + path );
   std::unique_ptr< Device > device;
   const auto made = PmdDevice::make( startedEal(), arg, {}, device );
   ASSERT_TRUE( made.ok() ) << made.refusal().reason;
   std::vector< Packet > burst;
   device->receive( 0, burst );
   ASSERT_EQ( burst.size(), 2u );
   EXPECT_EQ( burst[ 0 ].size(), 100u );
   ASSERT_EQ( burst[ 1 ].size(), 3000u );
   EXPECT_EQ( burst[ 1 ].data()[ 2999 ], 'z' );
   EXPECT_EQ( device->stats().in.packets, 2u );
   EXPECT_EQ( device->stats().in.dropped, 1u );
}

TEST( Captures, thatNobodyAsksForEndThoughTheClockIsSetBack ) {
   Captures captures;
   std::uint64_t id = 0;
   ASSERT_TRUE( captures.begin( Capture::Place{}, 1e9, id ).ok() );
   captures.expire( 1e9 - 5 );
   EXPECT_TRUE( captures.find( id ) );
   captures.expire( 1e9 - 3600 );
   EXPECT_FALSE( captures.find( id ) );
}

TEST( Beside, theOlderGraphGoesAtOnceWhereBothTakeTooMuch ) {
   CounterTable counters;
   Engine engine( counters, { .memoryMost = 1u << 20 } );
   RequestReader reader;
   vex::pb::BatchReply reply;
   engine.apply( reader.batch( "create one FibIpv4" ), reply );
   EXPECT_TRUE( engine.beginBeside() );
   engine.apply( reader.batch( "create other FibIpv4" ), reply );
   EXPECT_FALSE( reply.has_in_step() );
   vex::pb::Batch batch;
   batch.set_in_step( true );
   engine.apply( batch, reply );
   EXPECT_EQ( reply.in_step().ShortDebugString(), "early: \"both graphs took more than 1 MB\"" );
   engine.endBeside();
   bess::pb::ListModulesResponse modules;
   engine.list( modules );
   ASSERT_EQ( modules.modules_size(), 1 );
   EXPECT_EQ( modules.modules( 0 ).name(), "other" );
}

} // namespace

} // namespace DpTest
