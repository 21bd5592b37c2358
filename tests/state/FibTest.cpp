#include "MirelFib.h"

#include <gtest/gtest.h>
#include <map>
#include <random>

namespace {

using Mirel::Route;
using Mirel::RouteType;
using Mirel::Via;

Kynet::Prefix prefix( const char * text ) { return Kynet::Prefix::fromString( text ).value(); }
Route toFec( U64 fecId ) { return Route( RouteType::forward(), fecId, 0 ); }

// Writes down what it is told.
class Watcher : public Gant::StateMachine {
 public:
   explicit Watcher( Gant::Ptr< const Mirel::Fib::RouteStatus > fib ) : reactor( this, std::move( fib ) ) {}
   struct GantFib : Mirel::Fib::RouteStatus::Notifiee {
      GantFib( Watcher * owner, Gant::Ptr< const Mirel::Fib::RouteStatus > fib ) :
           Notifiee( owner, std::move( fib ) ), owner( owner ) {}
      void onRoute( const Mirel::RouteRef< Kynet::Prefix > & ref ) override {
         const auto route = notifier()->route( ref.vrfId, ref.prefix );
         owner->log += Gant::format( "%u:", ref.vrfId ) + ref.prefix.stringValue() + "=" +
                       ( route ? std::to_string( route->fecId() ) : "-" ) + "#" +
                       std::to_string( notifier()->sequence( ref.vrfId ) ) + " ";
         EXPECT_EQ( notifier()->slotHas( ref.slot ), route.has_value() );
      }
      void onFec( const U64 & fecId ) override {
         const auto * const vias = notifier()->fec( fecId );
         owner->log += Gant::format( "fec%u=", U32( fecId ) ) + ( vias ? std::to_string( vias->size() ) : "-" ) + " ";
      }
      Watcher * owner;
   };
   Gant::String take() { return std::exchange( log, {} ); }
   Gant::String log;
   GantFib reactor;
};

TEST( Fib, everyChangeIsToldWithTheSequenceOfItsVrf ) {
   const auto fib = Gant::make< Mirel::Fib::RouteStatus >();
   Watcher watcher( fib );
   EXPECT_TRUE( fib->routeIs( 0, prefix( "10.0.0.0/8" ), toFec( 1 ) ) );
   EXPECT_TRUE( fib->routeIs( 0, prefix( "10.0.0.0/8" ), toFec( 1 ) ) );
   EXPECT_TRUE( fib->routeIs( 0, prefix( "10.0.0.0/16" ), toFec( 1 ) ) );
   EXPECT_TRUE( fib->routeIs( 3, prefix( "10.0.0.0/8" ), toFec( 2 ) ) );
   EXPECT_TRUE( fib->routeIs( 0, prefix( "10.0.0.0/8" ), toFec( U64( 1 ) << 40 ) ) );
   EXPECT_EQ( watcher.take(), "0:10.0.0.0/8=1#1 0:10.0.0.0/16=1#2 3:10.0.0.0/8=2#1 0:10.0.0.0/8=1099511627776#3 " );
   EXPECT_TRUE( fib->routeDel( 0, prefix( "10.0.0.0/8" ) ) );
   EXPECT_FALSE( fib->routeDel( 0, prefix( "10.0.0.0/8" ) ) );
   EXPECT_EQ( watcher.take(), "0:10.0.0.0/8=-#4 " );
   EXPECT_EQ( fib->routes(), 2u );
   EXPECT_EQ( fib->routes( 3 ), 1u );
   EXPECT_EQ( fib->routes( 9 ), 0u );
   const Mirel::Vias vias{ Via( RouteType::drop(), {}, {}, 1 ) };
   EXPECT_TRUE( fib->fecIs( 1, vias ) );
   EXPECT_TRUE( fib->fecIs( 1, vias ) );
   EXPECT_TRUE( fib->fecIs( 1, {} ) );
   EXPECT_TRUE( fib->fecDel( 1 ) );
   EXPECT_FALSE( fib->fecDel( 1 ) );
   EXPECT_EQ( watcher.take(), "fec1=1 fec1=0 fec1=- " );
}

TEST( Fib, whatCannotBeARouteIsRefusedAndNobodyIsTold ) {
   const auto fib = Gant::make< Mirel::Fib::RouteStatus >();
   Watcher watcher( fib );
   EXPECT_FALSE( fib->routeIs( 0, prefix( "10.0.0.1/8" ), toFec( 1 ) ) );
   EXPECT_FALSE( fib->routeIs( 0, Kynet::Prefix( Kynet::IpAddr( 0 ), 33 ), toFec( 1 ) ) );
   EXPECT_FALSE( fib->routeIs( 0, prefix( "10.0.0.0/8" ), Route() ) );
   EXPECT_FALSE( fib->fecIs( 1, Mirel::Vias( 4097 ) ) );
   EXPECT_EQ( watcher.take(), "" );
   EXPECT_EQ( fib->routes(), 0u );
   const auto fib6 = Gant::make< Mirel::Fib6::RouteStatus >();
   EXPECT_FALSE( fib6->routeIs( 0, Kynet::Ip6Prefix::fromString( "2001:db8::1/64" ).value(), toFec( 1 ) ) );
}

TEST( Fib, manyRandomWritesGiveWhatAMapGives ) {
   const auto fib = Gant::make< Mirel::Fib::RouteStatus >();
   std::map< std::pair< U32, Kynet::Prefix >, U64 > model;
   std::minstd_rand random( 7 );
   // A phase grows the table, the next one shrinks it: the index follows, and slots are used again.
   for ( const U32 deletions : { 1u, 15u, 4u, 16u } )
      for ( int step = 0; step < 20000; ++step ) {
         const U32 vrfId = random() % 2;
         const Kynet::Prefix at( Kynet::IpAddr( U32( random() % 5000 ) << 12 ), 20 );
         const std::pair key( vrfId, at );
         if ( random() % 16 < deletions ) {
            EXPECT_EQ( fib->routeDel( vrfId, at ), model.erase( key ) == 1 );
         } else {
            const U64 fecId = random() % 3;
            fib->routeIs( vrfId, at, toFec( fecId ) );
            model[ key ] = fecId;
         }
      }
   std::map< std::pair< U32, Kynet::Prefix >, U64 > walked;
   for ( U32 slot = 0; slot < fib->slots(); ++slot ) {
      if ( !fib->slotHas( slot ) ) continue;
      const auto ref = fib->refAt( slot );
      walked[ { ref.vrfId, ref.prefix } ] = fib->routeAt( slot ).fecId();
      EXPECT_EQ( fib->route( ref.vrfId, ref.prefix )->fecId(), fib->routeAt( slot ).fecId() );
   }
   EXPECT_EQ( walked, model );
   EXPECT_EQ( fib->routes(), model.size() );
   EXPECT_LE( fib->slots(), 10000u );
}

TEST( Fib, aMillionRoutesTakeAtMost40BytesEach ) {
   const auto fib = Gant::make< Mirel::Fib::RouteStatus >();
   for ( U32 n = 0; n < 1000000; ++n ) fib->routeIs( 0, Kynet::Prefix( Kynet::IpAddr( n << 8 ), 24 ), toFec( 1 ) );
   EXPECT_LE( fib->bytes(), 40u * 1000000 );
}

TEST( Fib, aTableThatWasLargeGivesItsMemoryBack ) {
   const auto fib = Gant::make< Mirel::Fib::RouteStatus >();
   const auto prefix = []( U32 n ) { return Kynet::Prefix( Kynet::IpAddr( n << 8 ), 24 ); };
   for ( U32 n = 1; n <= 200000; ++n )
      fib->routeIs( 0, prefix( n ), Mirel::Route( Mirel::RouteType::forward(), 1, 0 ) );
   const auto large = fib->bytes();
   for ( U32 n = 200000; n > 3; --n ) fib->routeDel( 0, prefix( n ) );
   EXPECT_EQ( fib->routes(), 3u );
   EXPECT_LT( fib->bytes() * 20, large );
   // What is left is where it was, and the places that are free are taken again.
   for ( U32 n = 1; n <= 3; ++n ) EXPECT_EQ( fib->slot( 0, prefix( n ) ), n - 1 );
   for ( U32 n = 4; n <= 5000; ++n ) fib->routeIs( 0, prefix( n ), Mirel::Route( Mirel::RouteType::forward(), 1, 0 ) );
   EXPECT_EQ( fib->slots(), 8192u ); // whole chunks of what was
}

} // namespace
