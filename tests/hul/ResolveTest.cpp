#include "HulRouter.h"

#include "HulWays.h"

namespace HulTest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Tunnels : public Router {
 protected:
   // Tunnel5 to 192.0.2.1, and FEC 1 into it.
   void startTunnel() {
      state.intf( "Tunnel5" );
      state.tunnel( "Tunnel5", "192.0.2.1" );
      state.fec( 1, { via( "Tunnel5", nullptr ) } );
      startUsual();
   }
   Gant::String fec1() { return HulTest::text( layer.l3Status->l2AdjList( Hul::L2AdjKey( 0 ) )->via() ); }
};

TEST_F( Tunnels, aTunnelIsReachedByTheLongestRouteToItsEnd ) {
   startTunnel();
   EXPECT_EQ( fec1(), "drop Tu5 x1" );
   state.fec( 10, { via( "Et1", "10.9.0.2" ) } );
   state.route( "192.0.0.0/8", 10 );
   EXPECT_EQ( fec1(), "unresolved Et1 via Tu5 x1" );
   state.neighbor( "Et1", "10.9.0.2", 2 );
   EXPECT_EQ( fec1(), "forward Et1 02:00:00:00:00:02 via Tu5 x1" );
   take();
   // A route that holds the end and is longer wins; one that does not hold it is nobody's business.
   state.fec( 11, { via( "Et2", "10.8.0.2" ) } );
   state.route( "192.0.3.0/24", 11 );
   EXPECT_THAT( take(), ElementsAre( "createAdj 2: unresolved Et2 x1", "192.0.3.0/24 vrf 0 none -> forward/2 seq 2" ) );
   state.route( "192.0.2.0/24", 11 );
   EXPECT_EQ( fec1(), "unresolved Et2 via Tu5 x1" );
   // Its FEC changes under it.
   state.fec( 11, { via( Mirel::RouteType::attached_, "Et2" ) } );
   state.neighbor( "Et2", "192.0.2.1", 9 );
   EXPECT_EQ( fec1(), "forward Et2 02:00:00:00:00:09 via Tu5 x1" );
   state.fib->fecDel( 11 );
   EXPECT_EQ( fec1(), "drop Tu5 x1" );
   state.routeDel( "192.0.2.0/24" );
   EXPECT_EQ( fec1(), "forward Et1 02:00:00:00:00:02 via Tu5 x1" );
   layer.drain();
}

TEST_F( Tunnels, aRouteThatLeadsToNoNeighbourIsADrop ) {
   const Mirel::Vias nowhere[] = {
        { via( Mirel::RouteType::drop_ ) },
        { via( Mirel::RouteType::receive_, "Et1" ) },
        { via( "Tunnel5", nullptr ) },     // into itself
        { via( nullptr, "192.0.2.77" ) },  // by a hop whose route is this one
        { via( nullptr, "203.0.113.1" ) }, // by a hop without a route
        {},
   };
   startTunnel();
   state.route( "192.0.2.0/24", 10 );
   for ( const auto & vias : nowhere ) {
      state.fec( 10, vias );
      EXPECT_EQ( fec1(), "drop Tu5 x1" );
   }
   layer.drain();
}

TEST_F( Tunnels, hopsWithoutAnInterfaceAreFollowedAndSharesAreKept ) {
   startTunnel();
   state.neighbor( "Et1", "10.9.0.2", 2 );
   state.neighbor( "Et1", "10.9.0.3", 3 );
   state.neighbor( "Et2", "10.8.0.2", 4 );
   state.fec( 10, { via( nullptr, "203.0.113.1" ), via( "Et2", "10.8.0.2" ) } );
   state.fec( 11, { via( "Et1", "10.9.0.2", 3 ), via( "Et1", "10.9.0.3", 1 ) } );
   state.route( "192.0.2.0/24", 10 );
   state.route( "203.0.113.0/24", 11 );
   // Half of the packets go by the hop, in the ratio of its own route.
   EXPECT_EQ( fec1(), "forward Et1 02:00:00:00:00:02 via Tu5 x3, forward Et1 02:00:00:00:00:03 via Tu5 x1, "
                      "forward Et2 02:00:00:00:00:04 via Tu5 x4" );
   // The hop's route counts as the tunnel's own.
   state.routeDel( "203.0.113.0/24" );
   EXPECT_EQ( fec1(), "forward Et2 02:00:00:00:00:04 via Tu5 x1" );
   layer.drain();
}

TEST_F( Tunnels, theTunnelAndItsUnderlayMustBeUsable ) {
   startTunnel();
   state.fec( 10, { via( "Et1", "10.9.0.2" ) } );
   state.route( "192.0.2.0/24", 10 );
   state.neighbor( "Et1", "10.9.0.2", 2 );
   const Gant::String good = "forward Et1 02:00:00:00:00:02 via Tu5 x1";
   struct Case {
      const char * what;
      void ( *harm )( State & );
      void ( *heal )( State & );
      const char * outcome;
   };
   const Case cases[] = {
        { "tunnel down", []( State & s ) { s.up( "Tunnel5", false ); }, []( State & s ) { s.up( "Tunnel5", true ); },
          "unresolved Tu5 x1" },
        { "tunnel gone", []( State & s ) { s.intfDel( "Tunnel5" ); }, []( State & s ) { s.intf( "Tunnel5" ); },
          "unresolved Tu5 x1" },
        { "underlay down", []( State & s ) { s.up( "Et1", false ); }, []( State & s ) { s.up( "Et1", true ); },
          "drop Tu5 x1" },
        { "underlay gone", []( State & s ) { s.intfDel( "Et1" ); }, []( State & s ) { s.intf( "Et1" ); },
          "drop Tu5 x1" },
        { "end elsewhere", []( State & s ) { s.tunnel( "Tunnel5", "198.51.100.1" ); },
          []( State & s ) { s.tunnel( "Tunnel5", "192.0.2.1" ); }, "drop Tu5 x1" },
        { "underlay VRF missing", []( State & s ) { s.tunnel( "Tunnel5", "192.0.2.1", "red" ); },
          []( State & s ) { s.tunnel( "Tunnel5", "192.0.2.1" ); }, "drop Tu5 x1" },
        { "no end", []( State & s ) { s.tunnels->intfStatusDel( intfId( "Tunnel5" ) ); },
          []( State & s ) { s.tunnel( "Tunnel5", "192.0.2.1" ); }, "drop Tu5 x1" },
   };
   for ( const auto & c : cases ) {
      SCOPED_TRACE( c.what );
      EXPECT_EQ( fec1(), good );
      c.harm( state );
      EXPECT_EQ( fec1(), c.outcome );
      c.heal( state );
   }
   EXPECT_EQ( fec1(), good );
   // The underlay's VRF comes later than the tunnel.
   state.tunnel( "Tunnel5", "192.0.2.1", "red" );
   state.route( "192.0.2.0/24", 10, 7 );
   EXPECT_EQ( fec1(), "drop Tu5 x1" );
   state.vrf( "red", 7 );
   EXPECT_EQ( fec1(), good );
   layer.drain();
}

TEST_F( Router, aRegisteredAddressIsResolvedToItsNeighbour ) {
   startUsual();
   Hul::RouteResolverSm resolver( { layer.reactorConfig, layer.l3Status, layer.csd, state.ip, nullptr, nullptr } );
   const Hul::VrfAndIpAddr key( Hul::VrfId( 0 ), addr( "192.0.2.1" ).v4Addr() );
   const auto resolved = [ & ] { return layer.l3Status->resolvedAddr( key ); };
   layer.reactorConfig->addrIs( key, true );
   EXPECT_TRUE( layer.l3Status->resolvedAddrHas( key ) );
   EXPECT_EQ( resolved(), Hul::ResolvedAddr() );
   state.fec( 1, { via( "Et1", "10.9.0.2" ), via( "Et2", "10.8.0.2" ) } );
   state.route( "192.0.2.0/24", 1 );
   state.neighbor( "Et2", "10.8.0.2", 4 );
   EXPECT_EQ( resolved(), Hul::ResolvedAddr( intfId( "Et2" ), mac( 4 ) ) );
   state.neighbor( "Et1", "10.9.0.2", 2 );
   EXPECT_EQ( resolved(), Hul::ResolvedAddr( intfId( "Et1" ), mac( 2 ) ) );
   state.up( "Et1", false );
   EXPECT_EQ( resolved(), Hul::ResolvedAddr( intfId( "Et2" ), mac( 4 ) ) );
   state.routeDel( "192.0.2.0/24" );
   EXPECT_EQ( resolved(), Hul::ResolvedAddr() );
   layer.reactorConfig->addrDel( key );
   EXPECT_FALSE( layer.l3Status->resolvedAddrHas( key ) );
   layer.drain();
}

TEST( Ways, sharesAreBroughtToOneMeasureInTheSmallestWholeNumbers ) {
   struct Case {
      std::vector< Hul::ShareGroup > groups; // members, weight
      std::vector< U32 > before;
      std::vector< U32 > after;
   };
   const Case cases[] = {
        { {}, {}, {} },
        { { { 1, 5 } }, { 7 }, { 1 } },
        { { { 2, 1 }, { 1, 1 } }, { 1, 1, 1 }, { 1, 1, 2 } },
        { { { 2, 1 }, { 1, 2 } }, { 1, 3, 1 }, { 1, 3, 8 } },
        { { { 1, 2 }, { 1, 4 } }, { 1, 1 }, { 1, 2 } },
        { { { 3, 3 }, { 2, 1 } }, { 1, 1, 1, 1, 1 }, { 2, 2, 2, 1, 1 } },
   };
   for ( const auto & c : cases ) {
      auto shares = c.before;
      Hul::spread( c.groups, shares );
      EXPECT_EQ( shares, c.after );
   }
   // Ratios beyond 32 bits stay ratios, and nobody's share becomes none.
   std::vector< U32 > large{ 65535, 65521, 65519, 65497, 4000000000, 1 };
   Hul::spread( { { 2, 65535 }, { 2, 65535 }, { 2, 65535 } }, large );
   for ( const auto share : large ) EXPECT_GT( share, 0u );
}

} // namespace
} // namespace HulTest
