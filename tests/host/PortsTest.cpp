// Ports at a data plane, from the description to the calls, over a control API of this process.
#include "bess/control.grpc.pb.h"
#include "HostKeptPort.h"
#include "HostKernelDeviceWatcher.h"
#include "HostPorts.h"
#include "HostTestRouter.h"
#include "Steps.h"

#include <grpcpp/grpcpp.h>
#include <mutex>
#include <set>

namespace {

using namespace Test;
using namespace bess::pb;

// Has ports of devices that are not missing. Called by gRPC's threads.
class FakePorts : public BESSControl::Service {
 public:
   using Context = grpc::ServerContext;
   grpc::Status CreatePort( Context *, const CreatePortRequest * request, CreatePortResponse * response ) override {
      const std::lock_guard lock( mutex );
      const auto arg = request->arg().ShortDebugString();
      const auto gone =
           std::ranges::find_if( missing, [ & ]( const auto & device ) { return arg.find( device ) != arg.npos; } );
      if ( gone != missing.end() ) {
         response->mutable_error()->set_code( ENODEV );
         response->mutable_error()->set_errmsg( "device " + *gone + ": No such device" );
      } else {
         ports[ request->name() ].CopyFrom( *request );
         calls.push_back( "create " + request->name() + " " + request->driver() + " " +
                          std::to_string( request->num_inc_q() ) + arg.substr( arg.find( " {" ) ) );
      }
      return grpc::Status::OK;
   }
   grpc::Status DestroyPort( Context *, const DestroyPortRequest * request, EmptyResponse * ) override {
      const std::lock_guard lock( mutex );
      ports.erase( request->name() );
      calls.push_back( "destroy " + request->name() );
      return grpc::Status::OK;
   }
   grpc::Status ListPorts( Context *, const EmptyRequest *, ListPortsResponse * response ) override {
      const std::lock_guard lock( mutex );
      for ( const auto & [ name, port ] : ports ) {
         auto & listed = *response->add_ports();
         listed.set_name( name );
         listed.set_driver( port.driver() );
         listed.set_num_inc_q( port.num_inc_q() );
         listed.set_num_out_q( port.num_out_q() );
         if ( port.has_arg() ) *listed.mutable_driver_arg() = port.arg();
      }
      return grpc::Status::OK;
   }
   grpc::Status SetPortConf( Context *, const SetPortConfRequest * request, CommandResponse * ) override {
      const std::lock_guard lock( mutex );
      calls.push_back( "set " + request->name() + " " + request->conf().ShortDebugString() );
      return grpc::Status::OK;
   }
   grpc::Status GetLinkStatus( Context *, const GetLinkStatusRequest * request,
                               GetLinkStatusResponse * response ) override {
      const std::lock_guard lock( mutex );
      if ( lost.erase( request->name() ) != 0 ) response->mutable_error()->set_code( ENODEV );
      response->set_link_up( !cut.contains( request->name() ) );
      return grpc::Status::OK;
   }
   grpc::Status GetPortStats( Context *, const GetPortStatsRequest *, GetPortStatsResponse * response ) override {
      response->mutable_inc()->set_packets( 10 );
      response->set_timestamp( 1 );
      return grpc::Status::OK;
   }
   Lines take() {
      const std::lock_guard lock( mutex );
      auto taken = std::exchange( calls, {} );
      std::ranges::sort( taken );
      return taken;
   }

   std::mutex mutex;
   std::map< std::string, CreatePortRequest > ports;
   std::set< std::string > missing, lost, cut;
   Lines calls;
};

class FakeKernel : public Host::KernelDeviceWatcher {
 public:
   void kernelDeviceIs( const Host::KernelDevice & device ) override {
      calls.push_back( device.intfId.stringValue() + " " + device.name + "@" + device.netns +
                       ( device.tunnel ? " tunnel" : " " + device.mac.stringValue() ) + " " +
                       std::to_string( device.mtu ) + ( device.linkUp ? " link" : "" ) );
   }
   void kernelDeviceDel( Kynet::IntfId intfId ) override { calls.push_back( intfId.stringValue() + " gone" ); }
   Lines calls;
};

class HostPorts : public testing::Test {
 protected:
   HostPorts() {
      grpc::ServerBuilder builder;
      builder.AddListeningPort( address, grpc::InsecureServerCredentials() );
      builder.RegisterService( &engine );
      server = builder.BuildAndStart();
   }
   ~HostPorts() override {
      ports = nullptr;
      server->Shutdown();
   }
   void begin( bool sweep = true ) {
      ports = Gant::make< Host::Ports >(
           router.state.tree().deviceDir, address, &kernel,
           [ this ]( auto intfId, bool up ) { router.state.linkIs( intfId, up ); }, sweep );
   }
   std::string seen( const char * name ) const {
      const auto * const port = ports->port( Host::PortKey::ofName( name ) );
      return port == nullptr ? "none" : std::string( textOf( port->state() ) ) + " " + port->reason();
   }
   void at( const std::function< void( FakePorts & ) > & change ) {
      const std::lock_guard lock( engine.mutex );
      change( engine );
   }
   void until( const char * name, const std::string & state ) {
      runUntil( [ & ] { return seen( name ) == state; } );
   }

   FakePorts engine;
   FakeKernel kernel;
   HostedState router;
   const std::string address = "unix:" + router.directory.path( "engine" );
   std::unique_ptr< grpc::Server > server;
   Gant::Ptr< Host::Ports > ports;
};

TEST_F( HostPorts, areMadeAsTheDescriptionSaysWithTheirDevicesInTheKernel ) {
   engine.ports[ "Ethernet9" ];
   engine.ports[ "Ethernet1" ];
   EXPECT_EQ( router.describe( R"(
vrfs: [{name: default, netns: r1}, {name: blue, netns: b1}, red]
interfaces:
  - {name: Ethernet1, device: veth1, mac: 02:00:00:00:00:01}
  - {name: Ethernet2/1, device: veth2, driver: af_xdp, vrf: blue, mac: 02:00:00:00:00:02}
  - {name: Ethernet3, port: {driver: UnixSocketPort, path: /s, queues: 2}, vrf: red, mac: 02:00:00:00:00:03}
  - {name: Ethernet4, device: veth4, mtu: 9000, mac: 02:00:00:00:00:04, kernel: false}
  - {name: Ethernet5}
tunnels: [{name: Tunnel1, source: 10.0.1.1, destination: 10.9.9.9}]
)" ),
              Lines{} );
   begin();
   for ( const char * up : { "Ethernet1", "Ethernet2/1", "Ethernet3", "Ethernet4", "kernel:Ethernet1",
                             "kernel:Ethernet2/1", "kernel:Tunnel1" } )
      until( up, "up " );
   EXPECT_EQ( seen( "kernel:Ethernet3" ), "failed VRF red has no netns for the device Ethernet3" );
   const auto pmd = [ & ]( const std::string & rest ) { return " PMDPort 1 { vdev: \"" + rest + "\" }"; };
   EXPECT_EQ( engine.take(), ( Lines{
                                  "create Ethernet1" + pmd( "net_af_packet_1,iface=veth1" ),
                                  "create Ethernet2/1" + pmd( "net_af_xdp_2,iface=veth2" ),
                                  "create Ethernet3 UnixSocketPort 2 { path: \"/s\" }",
                                  "create Ethernet4" + pmd( "net_af_packet_3,iface=veth4,framesz=16384,blocksz=16384" ),
                                  "create kernel:Ethernet1 VPort 1 { ifname: \"Ethernet1\" netns: \"r1\" }",
                                  "create kernel:Ethernet2/1 VPort 1 { ifname: \"Ethernet2-1\" netns: \"b1\" }",
                                  "create kernel:Tunnel1 VPort 1 { ifname: \"Tunnel1\" netns: \"r1\" tun: true }",
                                  "destroy Ethernet1",
                                  "destroy Ethernet9",
                                  "set Ethernet1 mac_addr: \"02:00:00:00:00:01\" mtu: 1500 admin_up: true",
                                  "set Ethernet2/1 mac_addr: \"02:00:00:00:00:02\" mtu: 1500 admin_up: true",
                                  "set Ethernet3 mac_addr: \"02:00:00:00:00:03\" mtu: 1500 admin_up: true",
                                  "set Ethernet4 mac_addr: \"02:00:00:00:00:04\" mtu: 9000 admin_up: true",
                                  "set kernel:Ethernet1 mac_addr: \"02:00:00:00:00:01\" admin_up: true",
                                  "set kernel:Ethernet2/1 mac_addr: \"02:00:00:00:00:02\" admin_up: true",
                                  "set kernel:Tunnel1 admin_up: true",
                             } ) );
   runUntil( [ & ] { return Gant::activityManager()->poll() == 0 && kernel.calls.size() >= 3; } );
   kernel.calls.clear();
   // What differs is done, and nothing else: the kernel's devices follow.
   EXPECT_EQ( router.describe( R"(
vrfs: [{name: default, netns: r2}]
interfaces: [{name: Ethernet1, device: veth1, mac: 02:00:00:00:00:01, mtu: 1400}]
)" ),
              Lines{} );
   runUntil( [ & ] { return ports->kept().size() == 2 && seen( "kernel:Ethernet1" ) == "up " && !ports->changing(); } );
   EXPECT_EQ(
        engine.take(),
        ( Lines{ "create kernel:Ethernet1 VPort 1 { ifname: \"Ethernet1\" netns: \"r2\" }", "destroy Ethernet2/1",
                 "destroy Ethernet3", "destroy Ethernet4", "destroy kernel:Ethernet1", "destroy kernel:Ethernet2/1",
                 "destroy kernel:Tunnel1", "set Ethernet1 mac_addr: \"02:00:00:00:00:01\" mtu: 1400 admin_up: true",
                 "set kernel:Ethernet1 mac_addr: \"02:00:00:00:00:01\" mtu: 1400 admin_up: true" } ) );
   ports = nullptr;
   std::ranges::sort( kernel.calls );
   EXPECT_EQ( kernel.calls, ( Lines{ "Ethernet1 Ethernet1@r2 02:00:00:00:00:01 1400 link", "Ethernet1 gone",
                                     "Ethernet1 gone", "Ethernet2/1 gone", "Tunnel1 gone" } ) );
}

TEST_F( HostPorts, ofAnotherSessionTheEqualOnesStayAndTheOthersGoWhenTheyMay ) {
   const auto describe = [ & ]( const std::string & more ) {
      router.describe( "router: {kernel: false}\ninterfaces: [{name: Ethernet2, device: veth2}, " + more + "]\n" );
   };
   describe( "{name: Ethernet1, device: veth1}, {name: Ethernet4, device: veth4}" );
   begin();
   for ( const char * name : { "Ethernet1", "Ethernet2", "Ethernet4" } ) until( name, "up " );
   ports = nullptr;
   engine.take();

   describe( "{name: Ethernet3, device: veth3}, {name: Ethernet4, device: veth9}" );
   begin( false );
   for ( const char * name : { "Ethernet2", "Ethernet3" } ) until( name, "up " );
   const auto changes = [ & ] {
      auto lines = engine.take();
      std::erase_if( lines, []( const auto & line ) { return line.starts_with( "set " ); } );
      return lines;
   };
   EXPECT_EQ( changes(), Lines{ "create Ethernet3 PMDPort 1 { vdev: \"net_af_packet_4,iface=veth3\" }" } );
   EXPECT_EQ( seen( "Ethernet1" ), "leaving " );
   ports->sweepIs();
   runUntil( [ & ] { return ports->kept().size() == 3 && seen( "Ethernet4" ) == "up "; } );
   EXPECT_EQ( changes(), ( Lines{ "create Ethernet4 PMDPort 1 { vdev: \"net_af_packet_3,iface=veth9\" }",
                                  "destroy Ethernet1", "destroy Ethernet4" } ) );
}

TEST_F( HostPorts, oneThatCannotBeMadeOrIsLostIsTriedAgainAndNoOtherIsTouched ) {
   engine.missing = { "veth1" };
   router.describe( R"(
router: {kernel: false}
interfaces: [{name: Ethernet1, device: veth1}, {name: Ethernet2, device: veth2}]
)" );
   begin();
   until( "Ethernet2", "up " );
   until( "Ethernet1", "failed device veth1: No such device" );
   {
      const std::lock_guard lock( engine.mutex );
      engine.missing.clear();
      engine.calls.clear();
   }
   until( "Ethernet1", "up " );
   {
      const std::lock_guard lock( engine.mutex );
      engine.lost = { "Ethernet1" };
   }
   runUntil( [ & ] {
      const std::lock_guard lock( engine.mutex );
      return std::ranges::count( engine.calls, "destroy Ethernet1" ) == 1 && engine.ports.contains( "Ethernet1" );
   } );
   until( "Ethernet1", "up " );
   for ( const auto & call : engine.take() ) EXPECT_EQ( call.find( "Ethernet2" ), call.npos ) << call;
   // A device in the kernel leaves the namespace of a VRF that it is no longer in, also for none.
   router.change( "add vrf {name: red}" );
   router.change( "replace interface {name: Ethernet2, device: veth2, kernel: true}" );
   until( "kernel:Ethernet2", "up " );
   router.change( "replace interface {name: Ethernet2, device: veth2, kernel: true, vrf: red}" );
   until( "kernel:Ethernet2", "failed VRF red has no netns for the device Ethernet2" );
   EXPECT_EQ( engine.take().at( 1 ), "destroy kernel:Ethernet2" );
}

TEST_F( HostPorts, anInterfaceCarriesNothingWhileItsLinkIsDownOrItsDeviceIsGone ) {
   router.describe( R"(
router: {kernel: false}
interfaces:
  - {name: Ethernet1, device: veth1, addresses: 10.0.1.1/24}
  - {name: Ethernet2, device: veth2, addresses: 10.0.2.1/24}
neighbors: [{interface: Ethernet2, address: 10.0.2.2, mac: 02:00:00:00:00:09}]
routes:
  - {prefix: 20.0.0.0/8, via: [10.0.1.2, 10.0.2.2]}
  - {prefix: 10.0.2.0/24, via: 10.0.1.2}
)" );
   const Lines whole{ "10.0.1.0/24 attached Ethernet1 (connected)",
                      "10.0.1.1/32 receive Ethernet1 (connected)",
                      "10.0.1.255/32 broadcast Ethernet1 (connected)",
                      "10.0.2.0/24 attached Ethernet2 (connected)",
                      "10.0.2.1/32 receive Ethernet2 (connected)",
                      "10.0.2.2/32 forward 10.0.2.2%Ethernet2 (neighbor)",
                      "10.0.2.255/32 broadcast Ethernet2 (connected)",
                      "20.0.0.0/8 forward 10.0.1.2%Ethernet1 10.0.2.2%Ethernet2 (description)" },
        without{ whole[ 0 ], whole[ 1 ], whole[ 2 ], "10.0.2.0/24 forward 10.0.1.2%Ethernet1 (description)",
                 "20.0.0.0/8 forward 10.0.1.2%Ethernet1 (description)" };
   const auto untilRoutes = [ & ]( const Lines & wanted ) {
      runUntil( [ & ] { return router.routes() == wanted; } );
      EXPECT_EQ( router.routes(), wanted );
   };
   const auto intfId = *Kynet::IntfId::fromString( "Ethernet2" );
   const auto status = [ & ] { return router.state.tree().allIntfStatusDir->intfStatus( intfId ); };
   begin();
   until( "Ethernet2", "up " );
   untilRoutes( whole );
   at( []( auto & its ) { its.cut = { "Ethernet2" }; } );
   untilRoutes( without );
   EXPECT_EQ( status(), Interface::IntfStatus( true, false ) );
   EXPECT_EQ( seen( "Ethernet2" ), "down device veth2: the link is down" );
   // Who comes after a lost session finds it as it was.
   ports = nullptr;
   EXPECT_EQ( router.routes(), without );
   at( []( auto & its ) { its.cut.clear(); } );
   begin();
   untilRoutes( whole );
   // One that is made again is not down, one whose device is gone is.
   at( []( auto & its ) { its.lost = { "Ethernet2" }, its.calls.clear(); } );
   runUntil( [ & ] {
      EXPECT_EQ( status(), Interface::IntfStatus( true, true ) );
      const std::lock_guard lock( engine.mutex );
      return std::ranges::count( engine.calls, "destroy Ethernet2" ) == 1 && engine.ports.contains( "Ethernet2" );
   } );
   until( "Ethernet2", "up " );
   at( []( auto & its ) { its.lost = { "Ethernet2" }, its.missing = { "veth2" }; } );
   untilRoutes( without );
   // Another port of it has a link of its own.
   router.change( "replace interface {name: Ethernet2, device: veth3, addresses: 10.0.2.1/24}" );
   EXPECT_EQ( router.routes(), whole );
}

} // namespace
