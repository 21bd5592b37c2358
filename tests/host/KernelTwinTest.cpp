// The kernel beside the router, in namespaces of the test's own: what the kernel says is read by `ip`.
#include "HostKernelTwin.h"
#include "HostTestRouter.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using namespace Test;
using namespace std::string_literals;

int run( const std::string & command ) { return std::system( ( command + " 2>/dev/null" ).c_str() ); }

// What it prints, line by line, without double and outer blanks.
Lines printed( const std::string & command ) {
   Lines lines;
   auto * const pipe = ::popen( ( command + " 2>/dev/null | tr -s '\\t ' ' ' | sed 's/^ //; s/ $//'" ).c_str(), "r" );
   for ( char line[ 1024 ]; std::fgets( line, sizeof( line ), pipe ) != nullptr; ) {
      lines.emplace_back( line );
      lines.back().pop_back();
   }
   ::pclose( pipe );
   return lines;
}

// A router with Ethernet1 on the device `one`, whose other end is `far`, 10.66.1.2 in another namespace.
class KernelTwinTest : public testing::Test {
 protected:
   void SetUp() override {
      if ( ::geteuid() != 0 || run( "ip netns add " + near ) != 0 )
         GTEST_SKIP() << "network namespaces cannot be made here";
      ASSERT_EQ( run( "ip netns add " + far ), 0 );
   }
   void TearDown() override {
      twin = nullptr;
      for ( const auto & name : { near, far } ) run( "ip netns del " + name );
   }
   void plug() {
      ASSERT_EQ( run( "ip link add one netns " + near + " type veth peer name far netns " + far ), 0 );
      run( "ip -n " + far + " addr add 10.66.1.2/24 dev far" );
      run( "ip -n " + far + " addr add 10.66.1.3/24 dev far" );
      run( "ip -n " + far + " link set far address 02:00:00:00:66:02 up" );
   }
   void start( const std::string & more = {} ) {
      router.describe( "interfaces: [{name: Ethernet1, addresses: 10.66.1.1/24, mtu: 1400, mac: 02:00:00:00:66:01}, "
                       "{name: Loopback0, addresses: 192.0.2.1}]\n" +
                       more );
      begin();
   }
   void begin() {
      twin = std::make_unique< Host::KernelTwin >(
           router.state, [ this ]( const std::string & error ) { errors.push_back( error ); } );
      twin->deviceIs( intf( "Ethernet1" ), { "one", near } );
   }
   // Whether it comes true while the loop runs.
   bool comes( const std::function< bool() > & condition ) {
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds( 20 );
      while ( std::chrono::steady_clock::now() < deadline ) {
         while ( Gant::activityManager()->poll() != 0 ) {
         }
         if ( condition() ) return true;
      }
      return false;
   }
   // Whether the command comes to print these lines; if not, they are compared.
   void expectPrinted( const std::string & command, const Lines & lines ) {
      if ( !comes( [ & ] { return printed( command ) == lines; } ) ) {
         EXPECT_EQ( printed( command ), lines ) << command;
      }
   }
   std::string mac( const char * address ) const {
      return router.state.tree()
           .arp->neighbor( Arp::NeighborKey( intf( "Ethernet1" ), *Kynet::IpGenAddr::fromString( address ) ) )
           .stringValue();
   }

   const std::string near = "vxtwin-n" + std::to_string( ::getpid() ), far = "vxtwin-f" + std::to_string( ::getpid() );
   const std::string ip = "ip -n " + near + " ";
   const std::string device = ip + "-o link show one | grep -o -E 'mtu [0-9]+|state UP|ether [0-9a-f:]+'";
   const std::string addresses = ip + "-o -4 addr show dev one | grep -o 'inet [^ ]*'";
   const std::string routes = ip + "route show proto 86 | sed -E 's/ nhid [0-9]+//; s/ proto 86//'";
   const Lines inLine = { "mtu 1400", "state UP", "ether 02:00:00:00:66:01" };
   HostedState router;
   Lines errors;
   std::unique_ptr< Host::KernelTwin > twin;
};

TEST_F( KernelTwinTest, aDeviceIsBroughtInLineWheneverItComesAndWhoeverChangesIt ) {
   start();
   EXPECT_TRUE( comes( [ & ] { return twin->settled(); } ) );
   EXPECT_EQ( twin->error( intf( "Ethernet1" ) ), "there is no one in namespace " + near );
   for ( int times = 0; times < 2; ++times ) {
      plug();
      expectPrinted( device, inLine );
      expectPrinted( addresses, { "inet 10.66.1.1/24" } );
      expectPrinted( "ip netns exec " + near + " cat /proc/sys/net/ipv4/conf/one/forwarding", { "1" } );
      if ( times == 0 ) run( ip + "link del one" );
   }
   router.change( "replace interface {name: Ethernet1, addresses: [10.66.2.1/24, 10.66.1.9/24], mtu: 1300, mac: "
                  "'02:00:00:00:66:09'}" );
   expectPrinted( device, { "mtu 1300", "state UP", "ether 02:00:00:00:66:09" } );
   expectPrinted( addresses, { "inet 10.66.2.1/24", "inet 10.66.1.9/24" } );
   run( ip + "addr add 10.77.0.1/24 dev one && " + ip + "link set one mtu 1450" );
   expectPrinted( addresses, { "inet 10.66.2.1/24", "inet 10.66.1.9/24" } );
   expectPrinted( device, { "mtu 1300", "state UP", "ether 02:00:00:00:66:09" } );
   router.change( "replace interface {name: Ethernet1, addresses: 10.66.1.1/24, enabled: false}" );
   expectPrinted( ip + "-o link show one up", {} );
   EXPECT_FALSE( errors.empty() );
   for ( const auto & error : errors )
      EXPECT_TRUE( error.starts_with( "interface Ethernet1: kernel device one in namespace " + near +
                                      " is put right, as described: " ) )
           << error;
}

TEST_F( KernelTwinTest, whatTheDescriptionLeavesOpenIsTheKernelsToSay ) {
   plug();
   start();
   expectPrinted( device, inLine );
   router.change( "replace interface {name: Ethernet1, addresses: kernel}" );
   const auto fact = [ & ] { return router.state.intfBook().intfs().at( intf( "Ethernet1" ) ).fact; };
   const auto has = [ & ]( const Lines & texts ) {
      Lines present;
      for ( const auto & address : fact().addresses ) present.push_back( address.stringValue() );
      return present == texts;
   };
   EXPECT_TRUE( comes( [ & ] { return has( { "10.66.1.1/24" } ); } ) );
   run( ip + "link set one address 02:00:00:00:66:07 && " + ip + "link set one mtu 1450 && " + ip +
        "addr add 10.77.0.1/24 dev one && " + ip + "addr add 192.0.2.1/24 dev one" );
   // The last one is the loopback's own.
   EXPECT_TRUE( comes( [ & ] { return has( { "10.66.1.1/24", "10.77.0.1/24" } ) && fact().mtu == 1450; } ) );
   EXPECT_EQ( fact().mac.stringValue(), "02:00:00:00:66:07" );
   EXPECT_EQ( errors,
              Lines{ "interface Ethernet1: address 192.0.2.1/24 overlaps with 192.0.2.1/32 of Loopback0, as the "
                     "kernel has it" } );
   run( ip + "addr del 192.0.2.1/24 dev one && " + ip + "link set one down" );
   EXPECT_TRUE( comes( [ & ] { return !fact().enabled; } ) );
   run( ip + "link set one up" );
   EXPECT_TRUE( comes( [ & ] { return fact().enabled; } ) );
   // One that is made anew has what the one before had; what is described in the end holds.
   run( ip + "link del one" );
   plug();
   expectPrinted( device, { "mtu 1450", "state UP", "ether 02:00:00:00:66:07" } );
   expectPrinted( addresses, { "inet 10.66.1.1/24", "inet 10.77.0.1/24" } );
   router.change( "replace interface {name: Ethernet1, addresses: 10.66.1.1/24, mtu: 1400, mac: '02:00:00:00:66:01'}" );
   expectPrinted( device, inLine );
   expectPrinted( addresses, { "inet 10.66.1.1/24" } );
   EXPECT_EQ( errors.size(), 1 );
}

TEST_F( KernelTwinTest, whatIsMissingOrRefusedIsNamedAndDoneOnceItCanBe ) {
   run( "ip netns del " + near );
   start();
   const auto missing = "namespace " + near + ": /run/netns/" + near + ": No such file or directory";
   EXPECT_TRUE( comes( [ & ] { return errors == Lines{ missing }; } ) );
   run( "ip netns add " + near );
   run( ip + "tuntap add dev one mode tap" );
   const auto tap = ip + "-o link show one | grep -o -E 'mtu [0-9]+|ether [0-9a-f:]+'";
   expectPrinted( tap, { "mtu 1400", "ether 02:00:00:00:66:01" } );
   router.change(
        "replace interface {name: Ethernet1, addresses: 10.66.1.1/24, mac: '02:00:00:00:66:01', mtu: 65535}" );
   const auto refused = "interface Ethernet1: kernel device one in namespace " + near +
                        ": MTU 65535: Invalid argument: mtu greater than device maximum";
   EXPECT_TRUE( comes( [ & ] { return errors == ( Lines{ missing, refused } ); } ) ) << errors.back();
   EXPECT_EQ( twin->error( intf( "Ethernet1" ) ), refused.substr( refused.find( "MTU" ) ) );
   // Another namespace of the same name.
   run( "ip netns del " + near + "; ip netns add " + near );
   router.change( "replace interface {name: Ethernet1, addresses: 10.66.1.1/24, mac: '02:00:00:00:66:01', mtu: 1400}" );
   plug();
   expectPrinted( device, inLine );
}

TEST_F( KernelTwinTest, neighborsAreLearnedKeptAndLostAndWhatIsToldHolds ) {
   plug();
   start( "routes: [{prefix: 10.99.0.0/16, via: 10.66.1.2}]\n" );
   // Nobody has sent anything there: it was asked for, and is kept fresh.
   EXPECT_TRUE( comes( [ & ] { return mac( "10.66.1.2" ) == "02:00:00:00:66:02"; } ) );
   expectPrinted( ip + "neigh show 10.66.1.2 | grep -o managed", { "managed" } );
   EXPECT_EQ( mac( "10.66.1.3" ), "00:00:00:00:00:00" );
   run( "ip netns exec " + far + " ping -c 1 -W 1 -I 10.66.1.3 10.66.1.1 >/dev/null" );
   EXPECT_TRUE( comes( [ & ] { return mac( "10.66.1.3" ) == "02:00:00:00:66:02"; } ) );
   // A reload and a command leave it alone; what they tell themselves holds, and goes into the kernel.
   EXPECT_EQ( router.change( "del neighbor {interface: Ethernet1, address: 10.66.1.3}" ),
              "neighbor 10.66.1.3 on Ethernet1: the kernel has resolved it" );
   EXPECT_EQ( router.change( "add neighbor {interface: Ethernet1, address: 10.66.1.2, mac: 02:00:00:00:66:77}" ), "" );
   expectPrinted( ip + "neigh show 10.66.1.2", { "10.66.1.2 dev one lladdr 02:00:00:00:66:77 PERMANENT" } );
   EXPECT_EQ( mac( "10.66.1.2" ), "02:00:00:00:66:77" );
   router.change( "del neighbor {interface: Ethernet1, address: 10.66.1.2}" );
   EXPECT_TRUE( comes( [ & ] { return mac( "10.66.1.2" ) == "02:00:00:00:66:02"; } ) );
   // One that is in use is asked for again, also after the wire was away.
   const auto answers = "ip netns exec " + far + " sysctl -qw net.ipv4.conf.all.arp_ignore=";
   for ( const auto & loss :
         { answers + "8; " + ip + "neigh del 10.66.1.2 dev one", "ip -n " + far + " link set far down" } ) {
      run( loss );
      EXPECT_TRUE( comes( [ & ] { return mac( "10.66.1.2" ) == "00:00:00:00:00:00"; } ) );
      run( answers + "0; ip -n " + far + " link set far up" );
      EXPECT_TRUE( comes( [ & ] { return mac( "10.66.1.2" ) == "02:00:00:00:66:02"; } ) );
   }
   run( ip + "link del one" );
   EXPECT_TRUE( comes( [ & ] { return router.state.tree().arp->neighbors() == 0; } ) );
   EXPECT_EQ( errors, Lines{} );
}

TEST_F( KernelTwinTest, theKernelHasTheRoutesThatItCanUse ) {
   const std::string told = "routes: [{prefix: 10.99.0.0/16, via: 10.66.1.2}, {prefix: 10.98.0.0/16, blackhole: true},"
                            " {prefix: 10.97.0.0/16, via: [10.66.1.2, 10.66.1.3]},"
                            " {prefix: '2001:db8::/32', via: '2001:db8:1::2%Ethernet1'}]\n";
   const Lines all = { "10.97.0.0/16 metric 86", "nexthop via 10.66.1.2 dev one weight 1 onlink",
                       "nexthop via 10.66.1.3 dev one weight 1 onlink", "blackhole 10.98.0.0/16 dev lo metric 86",
                       "10.99.0.0/16 via 10.66.1.2 dev one metric 86 onlink" };
   Lines unplugged = { "blackhole 10.97.0.0/16 dev lo metric 86", all[ 3 ], "blackhole 10.99.0.0/16 dev lo metric 86" };
   // Of a daemon that was there before.
   run( ip + "link set lo up; " + ip + "nexthop add id 7 blackhole proto 86; " + ip +
        "route add 10.55.0.0/16 nhid 7 proto 86; " + ip + "route add blackhole 10.56.0.0/16" );
   plug();
   start( told );
   expectPrinted( routes, all );
   expectPrinted( ip + "-6 route show 2001:db8::/32 | grep -o 'via 2001:db8:1::2 dev one'",
                  { "via 2001:db8:1::2 dev one" } );
   expectPrinted( ip + "route show 10.56.0.0/16", { "blackhole 10.56.0.0/16" } );
   expectPrinted( ip + "route show table local proto 86", { "local 192.0.2.1 dev lo scope host metric 86" } );
   EXPECT_EQ( run( "ip netns exec " + far +
                   " sh -c 'ip route add 192.0.2.1 via 10.66.1.1; ping -c 1 192.0.2.1' "
                   ">/dev/null" ),
              0 );
   // The kernel takes routes away with the carrier, and with the device.
   run( "ip -n " + far + " link set far down" );
   expectPrinted( routes, unplugged );
   run( "ip -n " + far + " link set far up" );
   expectPrinted( routes, all );
   run( ip + "link del one" );
   expectPrinted( routes, unplugged );
   plug();
   expectPrinted( routes, all );
   EXPECT_EQ( errors, Lines{} );

   router.change( "del route {prefix: 10.98.0.0/16}" );
   router.change( "replace route {prefix: 10.97.0.0/16, via: 10.66.1.3}" );
   const Lines fewer = { "10.97.0.0/16 via 10.66.1.3 dev one metric 86 onlink", all[ 4 ] };
   expectPrinted( routes, fewer );
   EXPECT_TRUE( comes( [ & ] { return twin->settled(); } ) );
   // Somebody else's blackhole is the router's route too, and so the blackhole's FEC is still there.
   EXPECT_EQ( router.routes( "kernel" ), Lines{ "10.56.0.0/16 drop (kernel)" } );
   EXPECT_EQ( printed( ip + "nexthop show proto 86 | grep -c -v group" ), Lines{ "4" } );
   // One that goes, with another source's in its place before the kernel is told.
   router.change( "del route {prefix: 10.99.0.0/16}" );
   router.state.routeIs( { L3::VrfName::defaultVrf(),
                           *Kynet::IpGenPrefix::fromString( "10.99.0.0/16" ),
                           { Mirel::RouteType::drop(), {} } },
                         Host::Teller::fpm() );
   expectPrinted( routes, { fewer[ 0 ] } );
   // An address of the router's becomes a route's prefix, and comes back.
   const std::string local =
        "{ " + ip + "route show table local proto 86; " + ip + "route show 192.0.2.1 proto 86 | grep -o via; }";
   router.change( "add route {prefix: 192.0.2.1/32, via: 10.66.1.2}" );
   router.change( "del interface {name: Loopback0}" );
   expectPrinted( local, { "via" } );
   router.change( "add interface {name: Loopback0, addresses: 192.0.2.1}" );
   expectPrinted( local, { "local 192.0.2.1 dev lo scope host metric 86" } );
   twin->routesWrittenIs( false );
   expectPrinted( routes, {} );
   expectPrinted( ip + "route show table local proto 86", { "local 192.0.2.1 dev lo scope host metric 86" } );
   EXPECT_EQ( errors, Lines{} );
}

TEST_F( KernelTwinTest, routesOfAPrefixInOtherTablesAreNotThoseOfTheMainOne ) {
   plug();
   start();
   expectPrinted( addresses, { "inet 10.66.1.1/24" } );
   int others = 0;
   // Whether all that was notified has been read.
   const auto then = [ & ]( const std::string & change ) {
      const auto mark = "10.50." + std::to_string( ++others ) + ".0/24 drop (kernel)";
      run( ip + change + "; " + ip + "route add blackhole 10.50." + std::to_string( others ) + ".0/24" );
      EXPECT_TRUE( comes( [ & ] { return std::ranges::count( router.routes( "kernel" ), mark ) == 1; } ) );
      return router.routes( "kernel" ).back();
   };
   const std::string main = "10.99.0.0/16 forward 10.66.1.2%Ethernet1 (kernel)";
   EXPECT_EQ( then( "route add 10.99.0.0/16 via 10.66.1.2" ), main );
   for ( const char * const other : { "table 100", "tos 0x10" } )
      for ( const char * const change : { "add", "replace", "del" } )
         EXPECT_EQ( then( "route "s + change + " 10.99.0.0/16 via 10.66.1.3 " + other ), main )
              << change << ' ' << other;
}

TEST_F( KernelTwinTest, aDeviceThatTakesAnothersNameIsTheOtherInterfaces ) {
   plug();
   run( ip + "link add two type veth peer name three" );
   start( "vrfs: []\n" );
   router.change( "add interface {name: Ethernet2, addresses: 10.66.2.1/24}" );
   twin->deviceIs( intf( "Ethernet2" ), { "two", near } );
   const U32 index = std::stoul( printed( ip + "-o link show two | cut -d: -f1" ).at( 0 ) );
   EXPECT_TRUE( comes( [ & ] { return twin->intfAt( near, index ) == intf( "Ethernet2" ); } ) );
   run( ip + "link set one down name away; " + ip + "link set two down name one" );
   EXPECT_TRUE( comes( [ & ] { return twin->intfAt( near, index ) == intf( "Ethernet1" ); } ) );
}

TEST_F( KernelTwinTest, whatAFormerOneWroteIsTakenOverAndWhatIsNotWantedStaysWhileItIsHeld ) {
   plug();
   start( "routes: [{prefix: 10.99.0.0/16, via: 10.66.1.2}, {prefix: 10.98.0.0/16, blackhole: true}]\n" );
   const Lines both = { "blackhole 10.98.0.0/16 dev lo metric 86",
                        "10.99.0.0/16 via 10.66.1.2 dev one metric 86 onlink" };
   expectPrinted( routes, both );
   twin = nullptr;
   router.change( "del route {prefix: 10.98.0.0/16}" );
   begin();
   twin->leftoversHeldIs( true );
   EXPECT_TRUE( comes( [ & ] { return twin->read() && twin->settled(); } ) );
   EXPECT_EQ( printed( routes ), both );
   twin->leftoversHeldIs( false );
   expectPrinted( routes, { both[ 1 ] } );
   expectPrinted( ip + "nexthop show proto 86 | grep -c .", { "2" } );
   EXPECT_EQ( errors, Lines{} );
}

} // namespace
