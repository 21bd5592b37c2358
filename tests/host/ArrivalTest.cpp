// The facts of a router, told with flaps, over a real data plane: the agent and the data plane end as if they had been
// told once, in order, and nothing is left over on either side.
#include "SessionRouter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

namespace {

using namespace Test;

// What the router is told: the kind, and the entry. In this order each finds what it leans on.
const std::pair< const char *, const char * > facts[] = {
     { "router", "{mac: '02:00:00:aa:00:01'}" },
     { "vrf", "{name: red, id: 7}" },
     { "interface", "{name: Ethernet1, addresses: 10.0.1.1/24}" },
     { "interface", "{name: Ethernet2, addresses: 10.0.2.1/24, mtu: 9000}" },
     { "interface", "{name: Ethernet3, addresses: 10.0.3.1/24, vrf: red}" },
     { "interface", "{name: Ethernet4, addresses: [10.0.4.1/24, 10.0.5.1/31], mss: 1200}" },
     { "tunnel", "{name: Tunnel1, addresses: 10.255.0.1/30, source: 10.0.1.1, destination: 203.0.113.9, key: 7}" },
     { "neighbor", "{interface: Ethernet1, address: 10.0.1.2, mac: '02:00:00:00:01:02'}" },
     { "neighbor", "{interface: Ethernet1, address: 10.0.1.3, mac: '02:00:00:00:01:03'}" },
     { "neighbor", "{interface: Ethernet2, address: 10.0.2.2, mac: '02:00:00:00:02:02'}" },
     { "neighbor", "{interface: Ethernet3, address: 10.0.3.2, mac: '02:00:00:00:03:02'}" },
     { "neighbor", "{interface: Ethernet4, address: 10.0.4.2, mac: '02:00:00:00:04:02'}" },
     { "route", "{prefix: 203.0.113.0/24, via: [10.0.1.2, 10.0.2.2]}" },
     { "route", "{prefix: 0.0.0.0/0, via: ['10.0.1.3*3', 10.0.4.2]}" },
     { "route", "{prefix: 10.128.0.0/16, via: Tunnel1}" },
     { "route", "{prefix: 10.129.0.0/16, via: [Tunnel1, 10.0.2.2]}" },
     { "route", "{prefix: 192.0.2.0/24, via: [10.0.1.2, 10.0.1.3, 10.0.2.2, 10.0.4.2]}" },
     { "route", "{prefix: 198.51.100.0/24, via: 10.0.2.77}" }, // of nobody who answers
     { "route", "{prefix: 10.0.0.0/8, blackhole: true}" },
     { "route", "{prefix: 192.0.2.0/24, vrf: red, via: 10.0.3.2}" },
     { "route", "{prefix: 10.128.0.0/16, vrf: red, via: Tunnel1}" },
     { "vlan", "{id: 10, members: [Ethernet1, Cpu]}" },
     { "vlan", "{id: 4094, members: Ethernet2}" }, // where an interface of the router would have its internal one
     { "virtual-mac", "{interface: Ethernet1, mac: '00:00:5e:00:01:07'}" },
     { "virtual-mac", "{interface: Ethernet3, mac: '00:00:5e:00:01:08'}" },
     { "nat", "{interface: Ethernet2, original: 10.0.1.5, translated: 198.51.100.5}" },
};

// What becomes of interfaces beside coming and going.
const std::pair< const char *, const char * > moods[] = {
     { "interface", "{name: Ethernet1, addresses: 10.0.1.1/24, enabled: false}" },
     { "interface", "{name: Ethernet2, addresses: 10.0.2.1/24, vrf: red}" },
     { "interface", "{name: Ethernet3, addresses: 10.0.3.1/24}" },
     { "interface", "{name: Ethernet4, addresses: 10.0.44.1/24}" },
     { "tunnel", "{name: Tunnel1, addresses: 10.255.0.1/30, source: 10.0.1.1, destination: 10.0.4.2}" },
     { "neighbor", "{interface: Ethernet1, address: 10.0.1.2, mac: '02:00:00:00:01:99'}" },
     { "route", "{prefix: 192.0.2.0/24, via: 10.0.2.2}" },
};

class FactRouter : public SessionRouter {
 public:
   void flap( std::minstd_rand & random ) {
      const auto dice = random() % 5;
      const auto & [ kind, entry ] =
           dice == 2 ? moods[ random() % std::size( moods ) ] : facts[ random() % std::size( facts ) ];
      change( dice < 2 ? Host::ChangeOp::del : Host::ChangeOp::replace, kind, entry );
      if ( random() % 4 == 0 ) Gant::activityManager()->poll();
   }
   // What was refused for the lack of another fact is told again. Gives the refusals that stay.
   Lines tellAll() {
      Lines refusals;
      for ( int round = 0; round < 5; ++round ) {
         refusals.clear();
         for ( const auto & [ kind, entry ] : facts )
            if ( const auto result = change( Host::ChangeOp::replace, kind, entry );
                 result.code != Host::ChangeResult::Code::done )
               refusals.push_back( result.message );
      }
      settle();
      return refusals;
   }
};

TEST( HostArrival, afterThousandsOfFlapsItEndsAsIfToldOnceAndNothingLeaks ) {
   FactRouter once, router;
   ASSERT_EQ( once.tellAll(), Lines{} );
   std::minstd_rand random( 1 );
   for ( int n = 1; n <= 10000; ++n ) {
      router.flap( random );
      if ( n % 1000 != 0 ) continue;
      ASSERT_THAT( router.wrong(), testing::IsEmpty() ) << "after " << n << " flaps";
   }
   EXPECT_EQ( router.tellAll(), Lines{} );
   EXPECT_THAT( router.seen(), testing::ElementsAreArray( once.seen() ) );
   EXPECT_THAT( router.held(), testing::ElementsAreArray( once.held() ) );
   EXPECT_THAT( router.refusedByDataPlane(), testing::IsEmpty() );
}

} // namespace
