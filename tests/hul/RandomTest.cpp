// Facts in random order, with flaps, against the contract, and against a layer that only saw the end.
#include "HulRouter.h"

#include "GantActivity.h"

#include <algorithm>
#include <random>

namespace HulTest {
namespace {

class Chaos {
 public:
   Chaos( State & state, Layer & layer, U32 seed ) : state_( state ), layer_( layer ), random_( seed ) {}

   void step() {
      switch ( below( 16 ) ) {
      case 0: return vrf();
      case 1:
      case 2: return intf();
      case 3: return tunnel();
      case 4:
      case 5: return neighbor();
      case 6:
      case 7:
      case 8: return fec();
      case 9: return vlan();
      case 10: return turns();
      default: return route();
      }
   }

   // The data plane stands still, or answers all.
   void stallIs( bool stall ) {
      auto & progress = *layer_.csd->progress();
      if ( stall ) return progress.toldInc();
      if ( progress.acknowledged() != told() ) progress.acknowledgedIs( told() );
   }

 private:
   U64 told() const { return layer_.csd->progress()->told(); }
   static constexpr const char * vrfNames[] = { "default", "red", "blue" };
   static constexpr const char * intfNames[] = { "Et1", "Et2", "Et3", "Vlan4094", "Tunnel1", "Tunnel2" };
   static constexpr const char * hops[] = { "10.9.0.1", "10.9.0.2", "10.9.0.3", "10.8.1.1" };
   static constexpr const char * prefixes[] = { "0.0.0.0/0",   "10.0.0.0/8",  "10.8.0.0/16", "10.8.1.0/24",
                                                "10.9.0.0/24", "10.9.0.3/32", "20.0.0.0/8",  "30.0.0.0/8" };

   U32 below( U32 n ) { return random_() % n; }
   bool mostly() { return below( 4 ) != 0; }
   const char * anyIntf() { return intfNames[ below( std::size( intfNames ) ) ]; }
   const char * anyHop() { return hops[ below( std::size( hops ) ) ]; }
   const char * anyVrf() { return vrfNames[ below( std::size( vrfNames ) ) ]; }

   void vrf() {
      if ( !mostly() ) return state_.vrfDel( anyVrf() );
      state_.vrf( anyVrf(), below( 3 ), mostly() );
   }
   void intf() {
      const auto * const name = anyIntf();
      switch ( below( 4 ) ) {
      case 0: return state_.intfDel( name );
      case 1: return state_.up( name, mostly() );
      case 2: state_.ip6->intfStatusIs( intfId( name ), Ip6::IntfStatus( mostly() ) ); return;
      default: return state_.intf( name, anyVrf(), 1500 + below( 2 ) );
      }
   }
   void tunnel() {
      const auto * const name = intfNames[ 4 + below( 2 ) ];
      if ( mostly() )
         state_.tunnel( name, anyHop(), anyVrf() );
      else
         state_.tunnels->intfStatusDel( intfId( name ) );
   }
   void neighbor() {
      if ( mostly() )
         state_.neighbor( anyIntf(), anyHop(), U8( 1 + below( 3 ) ) );
      else
         state_.neighborDel( anyIntf(), anyHop() );
   }
   Mirel::Via anyVia() {
      switch ( below( 8 ) ) {
      case 0: return via( Mirel::RouteType::drop_ );
      case 1: return via( Mirel::RouteType::receive_, anyIntf() );
      case 2: return via( Mirel::RouteType::attached_, anyIntf() );
      case 3: return via( nullptr, anyHop() );
      case 4: return via( intfNames[ 4 + below( 2 ) ], nullptr );
      default: return via( anyIntf(), anyHop(), U16( 1 + below( 3 ) ) );
      }
   }
   void fec() {
      const U64 fecId = below( 6 );
      Mirel::Vias vias;
      for ( auto left = 1 + below( 3 ); left != 0; --left ) vias.push_back( anyVia() );
      const bool ip6 = below( 4 ) == 0;
      if ( below( 5 ) == 0 )
         ip6 ? state_.fib6->fecDel( fecId ) : state_.fib->fecDel( fecId );
      else
         ip6 ? state_.fib6->fecIs( fecId, vias ) : state_.fib->fecIs( fecId, vias );
   }
   void route() {
      const Mirel::Route route( Mirel::RouteType( U8( 1 + below( 4 ) ) ), below( 7 ), U8( below( 2 ) ) );
      if ( below( 4 ) == 0 ) {
         const Kynet::Ip6Prefix prefix( prefix6( "2001:db8::/32" ).address(), U8( 32 + below( 3 ) ) );
         mostly() ? state_.fib6->routeIs( below( 3 ), prefix, route ) : state_.fib6->routeDel( below( 3 ), prefix );
         return;
      }
      const auto at = prefix( prefixes[ below( std::size( prefixes ) ) ] );
      mostly() ? state_.fib->routeIs( below( 3 ), at, route ) : state_.fib->routeDel( below( 3 ), at );
   }
   void vlan() {
      const Bridging::VlanId vlanId( U16( 4090 + below( 5 ) ) );
      if ( below( 2 ) == 0 )
         state_.bridging->vlanConfigIs( vlanId, Gant::make< Bridging::VlanConfig >( vlanId ) );
      else
         state_.bridging->vlanConfigDel( vlanId );
   }
   void turns() {
      switch ( below( 5 ) ) {
      case 0:
         silent_ = !silent_;
         layer_.root->hasNotificationActiveIs( !silent_ );
         return;
      case 1: {
         const auto adj = layer_.l3Status->l2AdjList( Hul::L2AdjKey( below( 50 ) ) );
         if ( !adj ) return;
         for ( const auto & [ fecId, entry ] : adj->adjEntryIterator() )
            layer_.root->hulAdjSm()->schedulePrefixWalk( entry );
         return;
      }
      case 2: return stallIs( layer_.rec.repeats && layer_.csd->progress()->acknowledged() == told() );
      default: Gant::activityManager()->poll();
      }
   }

   State & state_;
   Layer & layer_;
   std::minstd_rand random_;
   bool silent_ = false;
};

// Adjacencies are numbered in the order in which they came.
Lines sorted( Lines lines ) {
   const Gant::String adjacency = "adjacency ";
   for ( auto & line : lines )
      if ( line.starts_with( adjacency ) ) line.erase( adjacency.size(), line.find( ':' ) - adjacency.size() );
   std::ranges::sort( lines );
   return lines;
}

class Random : public testing::TestWithParam< U32 > {};

TEST_P( Random, theContractHoldsAndTheEndIsThatOfALayerThatSawOnlyTheEnd ) {
   const U32 seed = GetParam();
   State state;
   Layer layer( state );
   // In some runs the helper refuses now and then, and asks for walks.
   std::minstd_rand moods( seed );
   const bool moody = seed % 3 == 0;
   bool atPeace = false;
   const auto mood = [ & ]( U32 odds ) { return moody && !atPeace && moods() % odds == 0; };
   layer.rec.refusesRoute = [ & ]( const auto & ) { return mood( 7 ); };
   layer.rec.refusesAdj = [ & ] { return mood( 11 ); };
   layer.rec.wantsWalk = [ & ] { return mood( 3 ); };
   layer.rec.repeats = seed % 2 == 0;
   layer.csd->progress()->underWayMostIs( 0 );
   layer.start();
   Chaos chaos( state, layer, seed );
   for ( int step = 0; step < 2000 && layer.rec.breaches() == 0; ++step ) {
      chaos.step();
      if ( layer.rec.breaches() != 0 )
         for ( const auto & line : layer.rec.take() ) ADD_FAILURE() << line;
      if ( step % 100 == 0 ) layer.rec.take();
   }
   ASSERT_EQ( layer.rec.breaches(), 0u );
   chaos.stallIs( false );
   layer.root->hasNotificationActiveIs( true );
   layer.drain();
   // Of VRFs with one id, the first keeps it: a layer that saw only the end cannot know which that was.
   U32 id = 0;
   for ( const auto & name : state.vrfs->vrfStatusKeys() ) {
      state.vrf( name.value().c_str(), id++, state.vrfs->vrfStatus( name ).active() );
      layer.drain();
   }

   if ( moody ) {
      // What was refused comes again with its next change: every adjacency and every VRF gets one.
      atPeace = true;
      layer.review->reviewIs( 1 );
      for ( const bool there : { false, true } )
         for ( const auto & [ name, status ] : Ip::AllVrfStatusLocal::VrfStatuses( state.vrfs->vrfStatusIterator() ) ) {
            state.vrf( name.value().c_str(), status.vrfId(), there && status.active() );
            layer.drain();
         }
   }
   layer.root->verify();
   ASSERT_EQ( layer.rec.breaches(), 0u );

   Layer fresh( state );
   fresh.start();
   fresh.drain();
   EXPECT_EQ( fresh.rec.breaches(), 0u );
   EXPECT_EQ( layer.rec.state(), fresh.rec.state() );
   EXPECT_EQ( sorted( layer.pending() ), sorted( fresh.pending() ) );
   EXPECT_EQ( layer.rec.adjs(), fresh.rec.adjs() );
   EXPECT_EQ( layer.unprogrammed(), fresh.unprogrammed() );
}

INSTANTIATE_TEST_SUITE_P( Seeds, Random, testing::Range( 1u, 201u ) );

} // namespace
} // namespace HulTest
