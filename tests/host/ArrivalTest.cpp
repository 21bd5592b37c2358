// The facts of a router, told in any order and with flaps, over a real data plane: the agent and the data plane end as
// if they had been told once, in order, and nothing is left over on either side.
#include "SessionRouter.h"
#include "Steps.h"

#include <algorithm>
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

// One change, or a while in which the loop runs.
struct Step {
   enum class Kind { tell, mood, take, turn, settle };
   Kind kind;
   size_t at = 0;
};
using Steps = std::vector< Step >;

std::string textOf( const Steps & steps ) {
   std::string text;
   for ( const auto & [ kind, at ] : steps ) switch ( kind ) {
      case Step::Kind::tell: text += std::string( "  + " ) + facts[ at ].first + " " + facts[ at ].second + "\n"; break;
      case Step::Kind::mood: text += std::string( "  ~ " ) + moods[ at ].first + " " + moods[ at ].second + "\n"; break;
      case Step::Kind::take: text += std::string( "  - " ) + facts[ at ].first + " " + facts[ at ].second + "\n"; break;
      case Step::Kind::turn: text += "  a turn of the loop\n"; break;
      case Step::Kind::settle: text += "  until all is acknowledged\n"; break;
      }
   return text;
}

class FactRouter : public SessionRouter {
 public:
   void take( const Step & step ) {
      const auto told = [ this ]( Host::ChangeOp op, const auto & fact ) { change( op, fact.first, fact.second ); };
      switch ( step.kind ) {
      case Step::Kind::tell: told( Host::ChangeOp::replace, facts[ step.at ] ); break;
      case Step::Kind::mood: told( Host::ChangeOp::replace, moods[ step.at ] ); break;
      case Step::Kind::take: told( Host::ChangeOp::del, facts[ step.at ] ); break;
      case Step::Kind::turn: Gant::activityManager()->poll(); break;
      case Step::Kind::settle: settle(); break;
      }
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

struct End {
   Lines seen, held;
};

// Of a router that was told everything once, in order.
const End & expected() {
   static const End end = [] {
      FactRouter router;
      EXPECT_EQ( router.tellAll(), Lines{} );
      return End{ router.seen(), router.held() };
   }();
   return end;
}

// What is wrong with the end of the steps; empty: nothing.
std::string failure( const Steps & steps ) {
   FactRouter router;
   for ( const auto & step : steps ) router.take( step );
   const auto wrong = router.wrong();
   const auto refusals = router.tellAll();
   return differences( "on the way, the data plane", wrong, {} ) + differences( "the router", refusals, {} ) +
          differences( "a user", router.seen(), expected().seen ) +
          differences( "the agent", router.held(), expected().held ) +
          differences( "the data plane's refusals", router.refusedByDataPlane(), {} );
}

Step flap( std::minstd_rand & random ) {
   switch ( random() % 5 ) {
   case 0:
   case 1: return { Step::Kind::take, random() % std::size( facts ) };
   case 2: return { Step::Kind::mood, random() % std::size( moods ) };
   default: return { Step::Kind::tell, random() % std::size( facts ) };
   }
}

void rest( Steps & steps, std::minstd_rand & random ) {
   const auto dice = random() % 6;
   if ( dice < 2 ) steps.push_back( { dice == 0 ? Step::Kind::settle : Step::Kind::turn } );
}

Steps shuffled( std::minstd_rand & random, size_t flaps ) {
   Steps steps;
   for ( size_t at = 0; at < std::size( facts ); ++at ) steps.push_back( { Step::Kind::tell, at } );
   std::ranges::shuffle( steps, random );
   Steps all;
   for ( const auto & step : steps ) {
      all.push_back( step );
      rest( all, random );
   }
   for ( size_t n = 0; n < flaps; ++n ) {
      all.push_back( flap( random ) );
      rest( all, random );
   }
   return all;
}

class HostArrival : public testing::TestWithParam< unsigned > {};

TEST_P( HostArrival, inAnyOrderTheDataPlaneEndsTheSame ) {
   std::minstd_rand random( GetParam() );
   const auto steps = shuffled( random, GetParam() % 4 * 20 );
   if ( failure( steps ).empty() ) return;
   const auto shortest = shrunk( steps, failure );
   FAIL() << "seed " << GetParam() << ", after\n" << textOf( shortest ) << failure( shortest );
}

INSTANTIATE_TEST_SUITE_P( Seeds, HostArrival, testing::Range( 1u, 21u ) );

TEST( HostArrivalOfFacts, nothingLeaksInThousandsOfFlaps ) {
   std::minstd_rand random( 1 );
   FactRouter router;
   ASSERT_EQ( router.tellAll(), Lines{} );
   for ( int n = 0; n < 10000; ++n ) {
      router.take( flap( random ) );
      if ( random() % 4 == 0 ) router.take( { Step::Kind::turn } );
      if ( n % 1000 != 0 ) continue;
      ASSERT_THAT( router.wrong(), testing::IsEmpty() ) << "after " << n << " flaps";
   }
   EXPECT_EQ( router.tellAll(), Lines{} );
   EXPECT_THAT( router.seen(), testing::ElementsAreArray( expected().seen ) );
   EXPECT_THAT( router.held(), testing::ElementsAreArray( expected().held ) );
   EXPECT_THAT( router.refusedByDataPlane(), testing::IsEmpty() );
}

} // namespace
