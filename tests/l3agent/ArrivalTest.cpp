// The facts of a router in any order of arrival, with flaps: the data plane ends as that of an agent that found
// everything in place, and nothing is left over.
#include "AgentRouter.h"
#include "DpModel.h"
#include "HulAdjSm.h"
#include "Steps.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>
#include <random>

namespace {

using namespace Test;

struct State : RouterState {
   bool moved = false; // Ethernet2 is in VRF blue
};

// What may be there or not, each independent of the others.
struct Fact {
   const char * name;
   void ( *setIs )( State & state, RouterAgent & router, bool there );
};

void vrfIs( RouterState & state, const char * name, U32 id, bool there ) {
   there ? state.vrf( name, id ) : state.vrfDel( name );
}

// The interface with its port. It enters when the port is there, and leaves first.
void portIs( RouterState & state, RouterAgent & router, const char * name, const char * macAddr, bool there ) {
   if ( there == state.intfs->intfStatusHas( intf( name ) ) ) return;
   if ( there ) {
      router.port( name, macAddr );
      state.intfs->intfStatusIs( intf( name ), Interface::IntfStatus( true, true ) );
   } else {
      state.intfs->intfStatusDel( intf( name ) );
      router.vexcsd->l2IntfDel( intf( name ) );
   }
}

void tunnelIs( RouterState & state, RouterAgent & router, bool there ) {
   const auto tunnel = intf( "Tunnel1" );
   if ( there == state.intfs->intfStatusHas( tunnel ) ) return;
   if ( there ) {
      const auto l2Intf = router.tunnel( "Tunnel1" );
      l2Intf->srcIpIs( ip( "10.0.1.1" ) );
      l2Intf->dstIpIs( ip( "203.0.113.9" ) );
      l2Intf->greKeyIs( 77 );
      state.tunnels->intfStatusIs( tunnel, Interface::TunnelIntfStatus( Interface::TunnelMode::gre(), ip( "10.0.1.1" ),
                                                                        ip( "203.0.113.9" ), L3::VrfName( "default" ),
                                                                        64, 0, 77 ) );
      state.intfs->intfStatusIs( tunnel, Interface::IntfStatus( true, true ) );
   } else {
      state.intfs->intfStatusDel( tunnel );
      state.tunnels->intfStatusDel( tunnel );
      router.vexcsd->l2IntfDel( tunnel );
   }
}

void routedIs( RouterState & state, const char * name, const char * vrfName, bool there ) {
   if ( !there ) {
      state.ipStatus->intfStatusDel( intf( name ) );
      return;
   }
   Ip::IntfStatus status;
   status.vrfNameIs( L3::VrfName( vrfName ) );
   status.routingEnabledIs( true );
   status.mtuIs( 1400 );
   state.ipStatus->intfStatusIs( intf( name ), status );
}

void moveIs( State & state, bool there ) {
   state.moved = there;
   if ( state.ipStatus->intfStatusHas( intf( "Ethernet2" ) ) )
      routedIs( state, "Ethernet2", there ? "blue" : "default", true );
}

void neighborIs( RouterState & state, const char * name, const char * address, const char * macAddr, bool there ) {
   there ? state.neighbor( name, address, macAddr ) : state.neighborDel( name, address );
}

void fecIs( RouterState & state, U64 fecId, const Mirel::Vias & vias, bool there ) {
   if ( there )
      state.fec( fecId, vias );
   else
      state.fib->fecDel( fecId );
}

void routeIs( RouterState & state, const char * prefixText, U64 fecId, U32 vrfId, bool there ) {
   there ? state.route( prefixText, fecId, vrfId ) : state.routeDel( prefixText, vrfId );
}

const Mirel::Via viaTunnel( Mirel::RouteType::forward(), Kynet::IpGenAddr(),
                            Kynet::IntfId( Kynet::IntfType::tunnel_, 1 ), 1 );

#define FACT( name, act )                                                                                              \
   {                                                                                                                   \
      name, []( State & state, RouterAgent & router, bool there ) {                                                    \
         (void)state;                                                                                                  \
         (void)router;                                                                                                 \
         act;                                                                                                          \
      }                                                                                                                \
   }

const Fact facts[] = {
     FACT( "VRF default", vrfIs( state, "default", 0, there ) ),
     FACT( "VRF blue", vrfIs( state, "blue", 5, there ) ),
     FACT( "port Ethernet1", portIs( state, router, "Ethernet1", "00:00:00:00:00:01", there ) ),
     FACT( "port Ethernet2", portIs( state, router, "Ethernet2", "00:00:00:00:00:02", there ) ),
     FACT( "port Ethernet3", portIs( state, router, "Ethernet3", "00:00:00:00:00:03", there ) ),
     FACT( "tunnel", tunnelIs( state, router, there ) ),
     FACT( "routed Ethernet1", routedIs( state, "Ethernet1", "default", there ) ),
     FACT( "routed Ethernet2", routedIs( state, "Ethernet2", state.moved ? "blue" : "default", there ) ),
     FACT( "Ethernet2 is in blue", moveIs( state, there ) ),
     FACT( "routed Ethernet3", routedIs( state, "Ethernet3", "blue", there ) ),
     FACT( "routed tunnel", routedIs( state, "Tunnel1", "default", there ) ),
     FACT( "neighbour 10.0.1.2", neighborIs( state, "Ethernet1", "10.0.1.2", "02:00:00:00:01:02", there ) ),
     FACT( "neighbour 10.0.1.3", neighborIs( state, "Ethernet1", "10.0.1.3", "02:00:00:00:01:03", there ) ),
     FACT( "neighbour 10.0.2.2", neighborIs( state, "Ethernet2", "10.0.2.2", "02:00:00:00:02:02", there ) ),
     FACT( "neighbour 10.0.3.2", neighborIs( state, "Ethernet3", "10.0.3.2", "02:00:00:00:03:02", there ) ),
     FACT( "FEC of two",
           fecIs( state, 1, { viaTo( "10.0.1.2", "Ethernet1" ), viaTo( "10.0.2.2", "Ethernet2" ) }, there ) ),
     FACT( "FEC of weights",
           fecIs( state, 2, { viaTo( "10.0.1.3", "Ethernet1", 2 ), viaTo( "10.0.2.2", "Ethernet2" ) }, there ) ),
     FACT( "FEC of the tunnel", fecIs( state, 3, { viaTunnel }, there ) ),
     FACT( "FEC of both", fecIs( state, 4, { viaTunnel, viaTo( "10.0.1.2", "Ethernet1" ) }, there ) ),
     FACT( "FEC of blue", fecIs( state, 5, { viaTo( "10.0.3.2", "Ethernet3" ) }, there ) ),
     FACT( "FEC of the router",
           fecIs( state, 6, { Mirel::Via( Mirel::RouteType::receive(), {}, intf( "Ethernet1" ), 1 ) }, there ) ),
     FACT( "route to the tunnel's end", routeIs( state, "203.0.113.0/24", 1, 0, there ) ),
     FACT( "route 198.51.100.0/24", routeIs( state, "198.51.100.0/24", 3, 0, there ) ),
     FACT( "route 0.0.0.0/0", routeIs( state, "0.0.0.0/0", 2, 0, there ) ),
     FACT( "route 192.0.2.0/24", routeIs( state, "192.0.2.0/24", 4, 0, there ) ),
     FACT( "route 192.0.2.0/24 in blue", routeIs( state, "192.0.2.0/24", 5, 5, there ) ),
     FACT( "route 10.0.1.1/32", routeIs( state, "10.0.1.1/32", 6, 0, there ) ),
     FACT( "port vif", there
                            ? void( state.portVifStatus->intfToPortVifMapIs( intf( "Ethernet1" ), VexVif::VifId( 7 ) ) )
                            : void( state.portVifStatus->intfToPortVifMapDel( intf( "Ethernet1" ) ) ) ),
};
constexpr size_t factCount = std::size( facts );
constexpr size_t firstPort = 2, lastPort = 5;
// In place of a fact: the agent listens, or does not.
constexpr size_t awake = factCount;

struct Step {
   size_t fact;
   bool there;
   bool drain; // the loop runs before the next step
};
using Steps = std::vector< Step >;

Gant::String textOf( const Steps & steps ) {
   Gant::String out;
   for ( const auto & step : steps )
      out += Gant::String( step.there ? "  + " : "  - " ) + ( step.fact == awake ? "awake" : facts[ step.fact ].name ) +
             ( step.drain ? ", drained\n" : "\n" );
   return out;
}

// A router, its data plane, and what the agent holds.
class Bench {
 public:
   void take( const Step & step ) {
      // A port is the engine's, which takes none away while the agent stands on it.
      if ( !step.there && step.fact >= firstPort && step.fact <= lastPort )
         router.agent->hasNotificationActiveIs( true );
      if ( step.fact == awake )
         router.agent->hasNotificationActiveIs( step.there );
      else
         facts[ step.fact ].setIs( state, router, step.there );
      if ( step.drain ) drain();
   }
   void drain() { model.apply( router.drained() ); }
   Lines pending() const {
      Lines out;
      for ( const auto & pending : router.agent->hulVrfRootSm()->pending() ) {
         // Adjacencies are numbered in the order in which they came.
         const bool adjacency = pending.object.starts_with( "adjacency " );
         out.push_back( ( adjacency ? "an adjacency" : pending.object ) + ": " + pending.reason );
      }
      std::ranges::sort( out );
      return out;
   }
   // Everything that is numbered, counted or drawn from a pool.
   Lines held() const {
      auto out = model.sizes();
      const auto & agent = *router.agent;
      const auto & db = *agent.routeDb();
      out.push_back( Gant::textsOf( "FECs ", db.fecs(), " routes ", db.routes(), " adjacencies ",
                                    agent.hulVrfRootSm()->hulAdjSm()->adjs() ) );
      out.push_back( Gant::textsOf( "FEC keys ", db.nextFecKey() - db.unusedFecKeys(), " sets ", db.intfToFecSets() ) );
      out.push_back( Gant::textsOf( "counters ", router.counters->counterIterator().size() ) );
      for ( const auto & [ intfId, pool ] : agent.l3Sm()->nhIndexManager()->nhLocalIndexIntfIterator() ) {
         const auto used = VexL3Unicast::NhIndexManager::indexMax - pool->freeNextHopIds();
         if ( used != 0 ) out.push_back( Gant::textsOf( intfId, " uses ", used, " indexes" ) );
      }
      std::ranges::sort( out );
      return out;
   }

   State state;
   RouterAgent router{ state };
   DpModel model;
};

// What is wrong with the end of the steps; empty: nothing.
Gant::String failure( const Steps & steps ) {
   Bench bench;
   bench.router.start();
   for ( const auto & step : steps ) bench.take( step );
   bench.take( { awake, true, true } );
   std::array< bool, factCount + 1 > there{};
   for ( const auto & step : steps ) there[ step.fact ] = step.there;
   Bench fresh;
   for ( size_t fact = 0; fact < factCount; ++fact )
      if ( there[ fact ] ) fresh.take( { fact, true, false } );
   fresh.router.start();
   fresh.drain();
   return differences( "the contract", bench.model.breaches(), {} ) +
          differences( "the data plane", bench.model.forwarding(), fresh.model.forwarding() ) +
          differences( "pending", bench.pending(), fresh.pending() ) +
          differences( "the agent", bench.held(), fresh.held() );
}

// Every fact in some order; with flaps, each step may be taken back and done again; with sleeps, the agent may miss it.
Steps shuffled( std::minstd_rand & random, size_t flaps, bool everything, bool sleeps ) {
   Steps steps;
   std::array< size_t, factCount > order;
   std::iota( order.begin(), order.end(), 0 );
   std::ranges::shuffle( order, random );
   const auto drain = [ & ] { return random() % 3 == 0; };
   const auto step = [ & ]( size_t fact, bool there ) {
      if ( sleeps && random() % 4 == 0 ) steps.push_back( { awake, random() % 2 == 0, drain() } );
      steps.push_back( { fact, there, drain() } );
   };
   for ( const auto fact : order ) step( fact, true );
   for ( size_t flap = 0; flap < flaps; ++flap ) {
      const auto fact = random() % factCount;
      step( fact, false );
      if ( everything || random() % 4 != 0 ) step( fact, true );
   }
   return steps;
}

class Arrival : public testing::TestWithParam< U32 > {};

TEST_P( Arrival, inAnyOrderTheDataPlaneEndsTheSame ) {
   std::minstd_rand random( GetParam() );
   const auto steps = shuffled( random, GetParam() % 4 * 10, GetParam() % 2 == 0, GetParam() > 40 );
   if ( failure( steps ).empty() ) return;
   const auto shortest = shrunk( steps, failure );
   FAIL() << "seed " << GetParam() << ", after\n" << textOf( shortest ) << failure( shortest );
}

INSTANTIATE_TEST_SUITE_P( Seeds, Arrival, testing::Range( 1u, 81u ) );

TEST( ArrivalOfFacts, aSecondPhaseOneEndsAsTheFirst ) {
   Bench bench;
   for ( size_t fact = 0; fact < factCount; ++fact ) bench.take( { fact, true, false } );
   bench.router.start();
   bench.drain();
   const auto held = bench.held();
   const auto forwarding = bench.model.forwarding();
   bench.router.agent->initializedIs( false );
   bench.drain();
   EXPECT_THAT( bench.held(), testing::ElementsAreArray( held ) );
   EXPECT_THAT( bench.model.forwarding(), testing::ElementsAreArray( forwarding ) );
   EXPECT_THAT( bench.model.breaches(), testing::IsEmpty() );
}

TEST( ArrivalOfFacts, nothingLeaksInAThousandFlaps ) {
   std::minstd_rand random( 1 );
   Bench bench;
   bench.router.start();
   for ( const auto & step : shuffled( random, 0, true, false ) ) bench.take( step );
   bench.drain();
   const auto held = bench.held();
   const auto forwarding = bench.model.forwarding();
   for ( int flap = 0; flap < 1000; ++flap ) {
      const auto fact = random() % factCount;
      bench.take( { fact, false, random() % 3 == 0 } );
      bench.take( { fact, true, random() % 3 == 0 } );
   }
   bench.drain();
   EXPECT_THAT( bench.held(), testing::ElementsAreArray( held ) );
   EXPECT_THAT( bench.model.forwarding(), testing::ElementsAreArray( forwarding ) );
   EXPECT_THAT( bench.model.breaches(), testing::IsEmpty() );
}

} // namespace
