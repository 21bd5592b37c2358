// Measures the layer alone, over helpers that do nothing: what a route costs from the write into the FIB until
// updateRoute has returned, what is kept of it, and what a neighbour's change costs under many routes.
//
//    hul_bench [routes]
#include "GantActivity.h"
#include "HulAdjSm.h"
#include "HulHelper.h"
#include "HulL2AdjHelper.h"
#include "HulL3IntfConfigSm.h"
#include "HulL3Status.h"
#include "HulVrfRootSm.h"
#include "MirelFib.h"
#include "StateArp.h"
#include "StateInterface.h"
#include "StateIp.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <random>

namespace {

class Vrfs : public HulHelper::VrfHelper {
 public:
   using VrfHelper::VrfHelper;
   void createVrf( Hul::VrfId ) override {}
   void deleteVrf( Hul::VrfId ) override {}
   void verifyVrf( Hul::VrfId ) override {}
};

class Routing : public HulHelper::RoutingStatusSmHelper {
 public:
   using RoutingStatusSmHelper::RoutingStatusSmHelper;
   void handleRouting( bool, bool ) override {}
   void handleRouterMac( const Kynet::EthAddr &, bool ) override {}
   void handleVirtualRouterMac( const Kynet::EthAddrWithMask &, bool ) override {}
   void handleL3Intf( Kynet::IntfId, U32, U32, bool, bool, Hul::VrfId ) override {}
   void enableVlanRouting( Kynet::IntfId, U32, Hul::RoutingState ) override {}
   void handleTcpMssEgress( Kynet::IntfId, U16 ) override {}
   void handleTcpMssIngress( Kynet::IntfId, U16 ) override {}
};

class Adjs : public HulHelper::AdjSmHelper {
 public:
   using AdjSmHelper::AdjSmHelper;
   Hul::AdjUpdateStatus createAdj( const AdjPtr & ) override { return Hul::AdjUpdateStatus::adjUpdateSucceeded(); }
   Hul::AdjUpdateReturnType updateAdj( const AdjPtr & ) override {
      ++updates;
      return Hul::AdjUpdateReturnType( Hul::AdjUpdateStatus::adjUpdateSucceeded(), false );
   }
   void deleteAdj( const AdjPtr & ) override {}
   void verifyAdj( const AdjPtr & ) override {}
   Pbr::NexthopIndex getNexthopIndexForAdj( const AdjPtr & ) const override { return {}; }
   U64 updates = 0;
};

class Routes : public HulHelper::RouteSmHelper {
 public:
   using RouteSmHelper::RouteSmHelper;
   void handleRouting( bool ) override {}
   void verifyRouting( bool ) override {}
   bool updateRoute( const Kynet::Prefix &, Hul::VrfId, const Hul::RouteInfo &, const Hul::RouteInfo &,
                     const U64 & ) override {
      ++updates;
      return true;
   }
   void prepareForVerifyRoute() override {}
   void cleanupForVerifyRoute() override {}
   void verifyRoute( const Kynet::Prefix &, Hul::VrfId, const Hul::RouteInfo & ) override {}
   U64 updates = 0;
};

class Routes6 : public HulHelper::Route6SmHelper {
 public:
   using Route6SmHelper::Route6SmHelper;
   void handleRouting( bool ) override {}
   void verifyRouting( bool ) override {}
   Hul::HulRouteUpdateStatus updateRoute( const Kynet::Ip6Prefix &, Hul::VrfId, const Hul::RouteInfo &,
                                          const Hul::RouteInfo &, const U64 & ) override {
      return Hul::HulRouteUpdateStatus::routeUpdateSucceeded();
   }
   void prepareForVerifyRoute() override {}
   void cleanupForVerifyRoute() override {}
   void verifyRoute( const Kynet::Ip6Prefix &, Hul::VrfId, const Hul::RouteInfo & ) override {}
};

constexpr U32 fecs = 64;
constexpr U32 hopsPerFec = 4;

Kynet::IntfId intf( U32 n ) { return Kynet::IntfId( Kynet::IntfType::ethernet(), U16( n + 1 ) ); }

Kynet::IpAddr hop( U32 fec, U32 n ) { return Kynet::IpAddr( 0xc0a80000 + fec * 256 + n + 2 ); }

Mirel::Vias viasOf( U32 fec ) {
   Mirel::Vias vias;
   for ( U32 n = 0; n < hopsPerFec; ++n )
      vias.emplace_back( Mirel::RouteType::forward(), Kynet::IpGenAddr( hop( fec, n ) ), intf( n ), U16( 1 ) );
   return vias;
}

// Distinct prefixes in ascending order, in the mix of lengths of a backbone's table.
std::vector< Kynet::Prefix > prefixes( U32 count, U32 seed ) {
   struct Share {
      U8 len;
      U32 perMille;
   };
   constexpr Share shares[] = { { 24, 600 }, { 23, 100 }, { 22, 120 }, { 21, 50 }, { 20, 50 },
                                { 19, 30 },  { 18, 20 },  { 17, 10 },  { 16, 20 } };
   std::mt19937 random( seed );
   std::vector< Kynet::Prefix > out;
   while ( out.size() < count ) {
      for ( auto left = count - U32( out.size() ); left != 0; --left ) {
         auto at = random() % 1000;
         U8 len = 24;
         for ( const auto & share : shares ) {
            len = share.len;
            if ( at < share.perMille ) break;
            at -= share.perMille;
         }
         const U32 address = 0x01000000 + U32( random() ) % 0xde000000;
         out.emplace_back( Kynet::IpAddr( address & ~U32( 0 ) << ( 32 - len ) ), len );
      }
      std::ranges::sort( out );
      out.erase( std::unique( out.begin(), out.end() ), out.end() );
   }
   return out;
}

size_t heap() {
   const auto info = ::mallinfo2();
   return info.uordblks + info.hblkhd;
}

struct Bench {
   explicit Bench( U32 routes ) : count( routes ), sorted( prefixes( routes, 1 ) ), shuffled( sorted ) {
      std::ranges::shuffle( shuffled, std::mt19937( 2 ) );
      shuffledAgain = shuffled;
      std::ranges::shuffle( shuffledAgain, std::mt19937( 3 ) );
      vrfs->vrfStatusIs( L3::VrfName( "default" ), Ip::VrfStatus( 0, true ) );
      for ( U32 n = 0; n < hopsPerFec; ++n ) {
         ip->intfStatusIs( intf( n ), Ip::IntfStatus( L3::VrfName( "default" ), true, false, false, 1500, 0, 0 ) );
         intfs->intfStatusIs( intf( n ), Interface::IntfStatus( true, true ) );
      }
      table = Gant::make< HulL3Intf::Table >( "hulL3IntfTable", true );
      l3Status->hulL3IntfTableIs( table );
      l3IntfSm = Gant::make< HulL3Intf::ConfigSm >( HulL3Intf::ConfigSm::Args{ .hulL3IntfTable = table } );
      newFib();
   }
   void newFib() {
      root = nullptr;
      fib = Gant::make< Mirel::Fib::RouteStatus >();
      for ( U32 fec = 0; fec < fecs; ++fec ) fib->fecIs( fec, viasOf( fec ) );
   }
   void newRoot() {
      Hul::PackedArgs::Args packed;
      packed.routeStatus = fib;
      Hul::VrfRootSm::Args args;
      args.allVrfStatusLocal = vrfs;
      args.vrfHelper = Gant::make< Vrfs >( "vrfs" );
      args.hulL3Status = l3Status = Gant::make< Hul::L3Status >( "hulL3Status" );
      args.hulL3IntfTable = table;
      args.ipStatus = ip;
      args.allIntfStatusDir = intfs;
      args.packedArgs = Hul::packedArgsFactory( packed );
      args.routingStatusHelper = Gant::make< Routing >( "routing" );
      args.route4Helper = routeHelper;
      args.route6Helper = Gant::make< Routes6 >( "routes6" );
      args.hulL2AdjHelper =
           Gant::make< Hul::L2AdjHelper >( Hul::L2AdjHelper::Args{ .hulL3Status = l3Status, .adjHelper = adjHelper } );
      args.arpMirel = arp;
      root = Gant::make< Hul::VrfRootSm >( args );
      drain();
   }
   void drain() const {
      while ( Gant::activityManager()->poll() != 0 ) continue;
   }
   template < typename Work >
   void measure( const char * what, size_t operations, const Work & work ) const {
      const auto before = std::chrono::steady_clock::now();
      work();
      const std::chrono::duration< double > took = std::chrono::steady_clock::now() - before;
      std::printf( "%-58s %9.1f ns each %8.1f ms in all\n", what, took.count() * 1e9 / double( operations ),
                   took.count() * 1e3 );
   }
   void write( const std::vector< Kynet::Prefix > & order, U32 shift ) const {
      for ( const auto & prefix : order )
         fib->routeIs( 0, prefix, Mirel::Route( Mirel::RouteType::forward(), ( prefix.hash() + shift ) % fecs, 0 ) );
   }

   // `again`: the order of what follows the first writes, so that these do not find the routes in the order of memory.
   void writes( const char * name, const std::vector< Kynet::Prefix > & order,
                const std::vector< Kynet::Prefix > & again ) {
      newFib();
      newRoot();
      const auto told = [ & ]( U64 before ) {
         if ( routeHelper->updates - before != count ) std::printf( "not every route was told\n" );
      };
      const auto line = [ & ]( const char * what ) { return Gant::format( "%u routes, %s: %s", count, name, what ); };
      auto before = routeHelper->updates;
      measure( line( "added" ).c_str(), count, [ & ] { write( order, 0 ); } );
      told( std::exchange( before, routeHelper->updates ) );
      measure( line( "changed, each to another FEC" ).c_str(), count, [ & ] { write( again, 1 ); } );
      told( std::exchange( before, routeHelper->updates ) );
      drain();
      measure( line( "deleted" ).c_str(), count, [ & ] {
         for ( const auto & prefix : again ) fib->routeDel( 0, prefix );
      } );
      told( before );
      drain();
   }
   void memory() {
      newFib();
      const auto empty = heap();
      write( shuffled, 0 );
      const auto filled = heap();
      newRoot();
      const auto followed = heap();
      std::printf( "%-58s %9.1f bytes a route in the FIB, %.1f in the layer\n", "memory",
                   double( filled - empty ) / count, double( followed - filled ) / count );
   }
   void start() {
      newFib();
      write( shuffled, 0 );
      measure( Gant::format( "%u routes, there at start: told in turns", count ).c_str(), count, [ & ] { newRoot(); } );
   }
   void neighbours() {
      for ( U32 fec = 0; fec < fecs; ++fec )
         for ( U32 n = 0; n < hopsPerFec; ++n ) neighbour( fec, n, 1 );
      const auto before = adjHelper->updates;
      constexpr U32 rounds = 200;
      measure( "a neighbour moves, under these routes", size_t( rounds ) * fecs * hopsPerFec, [ & ] {
         for ( U32 round = 0; round < rounds; ++round )
            for ( U32 fec = 0; fec < fecs; ++fec )
               for ( U32 n = 0; n < hopsPerFec; ++n ) neighbour( fec, n, U8( 2 + round % 2 ) );
      } );
      if ( adjHelper->updates - before != size_t( rounds ) * fecs * hopsPerFec )
         std::printf( "not every move was told\n" );
   }
   void fecChanges() {
      const auto before = adjHelper->updates;
      constexpr U32 rounds = 200;
      measure( "a FEC changes one of its four vias, under these routes", size_t( rounds ) * fecs, [ & ] {
         for ( U32 round = 0; round < rounds; ++round )
            for ( U32 fec = 0; fec < fecs; ++fec ) {
               auto vias = viasOf( fec );
               if ( round % 2 == 0 ) vias[ 0 ].intfIdIs( intf( hopsPerFec ) );
               fib->fecIs( fec, vias );
            }
      } );
      if ( adjHelper->updates - before != size_t( rounds ) * fecs ) std::printf( "not every change was told\n" );
   }
   void neighbour( U32 fec, U32 n, U8 mac ) const {
      arp->neighborIs( Arp::NeighborKey( intf( n ), Kynet::IpGenAddr( hop( fec, n ) ) ),
                       Kynet::EthAddr( Kynet::EthAddr::Bytes{ 2, 0, 0, 0, U8( fec ), mac } ) );
   }
   void moves() {
      // Every FEC gets the vias of another one, which that one still has: all routes change their adjacency.
      measure( Gant::format( "%u routes, moved to other adjacencies in turns", count ).c_str(), count, [ & ] {
         for ( U32 fec = 0; fec < fecs; ++fec ) fib->fecIs( fec, viasOf( ( fec + 1 ) % fecs ) );
         drain();
      } );
   }

   const U32 count;
   const std::vector< Kynet::Prefix > sorted;
   std::vector< Kynet::Prefix > shuffled;
   std::vector< Kynet::Prefix > shuffledAgain;
   Gant::Ptr< Ip::AllVrfStatusLocal > vrfs = Gant::make< Ip::AllVrfStatusLocal >();
   Gant::Ptr< Ip::Status > ip = Gant::make< Ip::Status >();
   Gant::Ptr< Interface::AllIntfStatusDir > intfs = Gant::make< Interface::AllIntfStatusDir >();
   Gant::Ptr< Arp::Table::Status > arp = Gant::make< Arp::Table::Status >();
   Gant::Ptr< Mirel::Fib::RouteStatus > fib;
   Gant::Ptr< HulL3Intf::Table > table;
   Gant::Ptr< Hul::L3Status > l3Status = Gant::make< Hul::L3Status >();
   Gant::Ptr< HulL3Intf::ConfigSm > l3IntfSm;
   Gant::Ptr< Routes > routeHelper = Gant::make< Routes >( "routes" );
   Gant::Ptr< Adjs > adjHelper = Gant::make< Adjs >( "adjs" );
   Gant::Ptr< Hul::VrfRootSm > root;
};

} // namespace

int main( int argc, char ** argv ) {
   const long asked = argc > 1 ? std::atol( argv[ 1 ] ) : 1000000;
   if ( argc > 2 || asked < 1 || asked > 5000000 ) {
      std::fprintf( stderr, "usage: %s [routes, 1 to 5000000]\n", argv[ 0 ] );
      return 2;
   }
   Bench bench( static_cast< U32 >( asked ) );
   bench.writes( "shuffled", bench.shuffled, bench.shuffledAgain );
   bench.writes( "sorted", bench.sorted, bench.sorted );
   bench.memory();
   bench.start();
   bench.neighbours();
   bench.fecChanges();
   bench.moves();
   return 0;
}
