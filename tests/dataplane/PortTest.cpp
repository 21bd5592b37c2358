#include "DpDescriptor.h"
#include "DpEthernet.h"
#include "DpTestSupport.h"
#include "DpTracePacket.h"
#include "Process.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <atomic>
#include <set>
#include <thread>

namespace DpTest {

using namespace Vexdp;

namespace {

// Both ends are ours: nothing on the machine is needed.
class Wired : public testing::Test {
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

   bess::pb::Error make( const std::string & name ) {
      bess::pb::UnixSocketPortArg arg;
      arg.set_path( pathOf( name ) );
      bess::pb::CreatePortRequest request;
      request.set_name( name );
      request.set_driver( "UnixSocketPort" );
      request.mutable_arg()->PackFrom( arg );
      bess::pb::CreatePortResponse response;
      plane.engine.apply( request, response );
      return response.error();
   }
   static std::string pathOf( const std::string & name ) { return fmt::format( "@vexdp-test-{}-{}", getpid(), name ); }

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

   Plane plane;
};

TEST_F( Wired, packetsComeInByOnePortAndLeaveByTheOtherWhicheverIsMadeFirst ) {
   ASSERT_EQ( make( "et2" ).errmsg(), "" );
   ASSERT_EQ( make( "et1" ).errmsg(), "" );
   EXPECT_EQ( make( "et1" ).errmsg(), "et1: CreatePort: there is a port et1 already" );
   auto out = client( "et2" );
   send( client( "et1" ), transit() );
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

TEST_F( Wired, aTcpdumpReadsThePacketsOfAGateFromItsFifoUntilItGoes ) {
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
}

TEST_F( Wired, eachPacketSeesWhatWasBeforeAChangeOrWhatIsAfterIt ) {
   ASSERT_EQ( make( "et1" ).errmsg(), "" );
   ASSERT_EQ( make( "et2" ).errmsg(), "" );
   const auto in = client( "et1" ), out = client( "et2" );
   std::atomic< bool > ending = false;
   std::thread changer( [ & ] {
      for ( unsigned i = 0; !ending; ++i ) {
         plane.set( fmt::format( "fibIpv4 addFec fec_id: 2 nh_info {{ gate: 2 nh_index: {} }}", 5 + i % 2 ) );
         plane.set( "fibIpv4 addRoute vrf: 0 prefix: @10.2.0.0 prefix_len: 24 fec_id: 2\n"
                    "fibIpv4 delRoute vrf: 0 prefix: @10.2.0.0 prefix_len: 24" );
      }
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

TEST_F( Wired, aGraphForwardsUntilTheOneBesideItIsInStepAndNoPacketIsLost ) {
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
