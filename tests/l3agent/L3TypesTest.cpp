#include "Engine.h"

#include <gtest/gtest.h>
#include <random>

namespace {

using namespace Test;
using namespace VexL3Unicast;

NextHopKey someKey() {
   return NextHopKey( NextHopPktCmd::pktCmdForward(), Bridging::VlanIdOrNone( 12 ), intf( "Ethernet1" ),
                      intf( "Tunnel2" ), mac( "00:00:00:00:00:07" ), 3,
                      Hul::VrfAndIpAddr( Hul::VrfId( 4 ), ip( "10.0.0.1" ) ) );
}

TEST( L3Types, theTunnelCountsForIdentityAndNotForTheHash ) {
   EXPECT_EQ( NextHopKey( someKey().strep() ), someKey() );
   EXPECT_EQ( someKey().str(), "pktCmdForward,12,Ethernet1,00:00:00:00:00:07,3,4,10.0.0.1" );
   auto other = someKey();
   other.tunnelIntfIs( intf( "Tunnel3" ) );
   EXPECT_NE( other, someKey() );
   EXPECT_EQ( other.hash(), someKey().hash() );
   other.nhLocalIndexIs( 4 );
   EXPECT_NE( other.hash(), someKey().hash() );
   EXPECT_TRUE( !NextHopKey() );
   EXPECT_FALSE( !someKey() );
}

FecInfo infoOf( std::initializer_list< U32 > indexes, U32 total ) {
   FecInfo info;
   for ( const U32 index : indexes ) {
      auto key = someKey();
      key.nhLocalIndexIs( index );
      info.nextHopIs( info.numberOfUniqueNextHops(), key );
      HulTypes::ViaBitmap bitmap;
      bitmap.viaIs( index );
      info.nextHopBitmapIs( info.numberOfUniqueNextHops(), bitmap );
      info.numberOfUniqueNextHopsInc( 1 );
   }
   info.numberOfNextHopsIs( total );
   return info;
}

TEST( L3Types, fecInfoLooksAtItsUsedSlotsOnly ) {
   const auto two = infoOf( { 1, 2 }, 3 );
   auto cut = infoOf( { 1, 2, 9 }, 3 );
   cut.numberOfUniqueNextHopsDec( 1 );
   EXPECT_EQ( two, cut );
   EXPECT_EQ( two.hash(), cut.hash() );
   EXPECT_NE( two, infoOf( { 1, 2 }, 2 ) );
   EXPECT_NE( two, infoOf( { 1, 3 }, 3 ) );
   EXPECT_LT( infoOf( { 9 }, 9 ), two );
   EXPECT_LT( infoOf( { 1, 2 }, 2 ), two );
   EXPECT_LT( two, infoOf( { 1, 3 }, 3 ) );
   EXPECT_EQ( two.str(), "2 3" );
}

TEST( L3Types, fecKeysAreReusedLowestFirst ) {
   const auto db = routeDbFactory( "routeDb" );
   EXPECT_TRUE( !db->adjIdxToFec( Hul::L2AdjKey( 1 ) ) );
   EXPECT_EQ( db->adjIdxToFec( Hul::L2AdjKey( 1 ) ).value(), 4294967295u );
   for ( const U32 expected : { 0u, 1u, 2u } ) EXPECT_EQ( db->allocateFecKey(), expected );
   db->nextFecKeyIs( 10 );
   db->unusedFecKeyIs( FecKey( 7 ), true );
   db->unusedFecKeyIs( FecKey( 3 ), true );
   for ( const U32 expected : { 3u, 7u, 10u } ) EXPECT_EQ( db->allocateFecKey(), expected );
}

TEST( L3Types, aPrefixIsKnownWhileItHasARouteOrIsOnAFec ) {
   const auto db = routeDbFactory( "routeDb" );
   const auto one = db->fecIs( FecKey( 1 ) ), two = db->fecIs( FecKey( 2 ) );
   const Hul::VrfAndIpGenPrefix key( Hul::VrfId( 0 ), prefix( "10.0.0.0/8" ) );
   one->lpmRouteIs( key, true );
   one->lpmRouteIs( key, true );
   EXPECT_EQ( one->lpmRoutes(), 1u );
   EXPECT_EQ( db->routes(), 0u );
   EXPECT_TRUE( db->routeIterator().begin() == db->routeIterator().end() );
   db->routeIs( key, routeInfoFactory() );
   two->lpmRouteIs( key, true );
   one->lpmRouteDel( key );
   EXPECT_EQ( one->lpmRouteKeys().size() + one->lpmRoutes(), 0u );
   db->routeDel( key );
   EXPECT_TRUE( two->lpmRouteHas( key ) && !db->routeHas( key ) );
   EXPECT_EQ( two->lpmRouteKeys(), std::vector{ key } );
   two->lpmRouteDel( key );
   EXPECT_FALSE( two->lpmRouteHas( key ) );
   EXPECT_FALSE( one->lpmRouteHas( key ) );
}

TEST( L3Types, localIndexesAreAStackPerInterface ) {
   const auto manager = Gant::make< NhIndexManager >();
   const auto et1 = intf( "Ethernet1" ), et2 = intf( "Ethernet2" );
   manager->freeNhLocalIndex( et1, 0 );
   for ( const U16 expected : { 1, 2, 3 } ) EXPECT_EQ( manager->allocNhLocalIndex( et1 ), expected );
   EXPECT_EQ( manager->allocNhLocalIndex( et2 ), 1 );
   EXPECT_EQ( manager->allocNhLocalIndex( Kynet::IntfId() ), 1 );
   manager->freeNhLocalIndex( et1, 2 );
   manager->freeNhLocalIndex( et1, 1 );
   for ( const U16 expected : { 1, 2, 4 } ) EXPECT_EQ( manager->allocNhLocalIndex( et1 ), expected );
   for ( U32 i = 5; i <= NhIndexManager::indexMax; ++i ) ASSERT_EQ( manager->allocNhLocalIndex( et1 ), i );
   EXPECT_EQ( manager->allocNhLocalIndex( et1 ), 0 );
   manager->freeNhLocalIndex( et1, 99 );
   EXPECT_EQ( manager->allocNhLocalIndex( et1 ), 99 );
   EXPECT_DEATH( manager->freeNhLocalIndex( intf( "Ethernet3" ), 1 ),
                 "Failed\\(1 == 0\\)  No local indexes allocated for intf Ethernet3" );
}

TEST( L3Types, aPrefixMapAgreesWithAnOrderedMap ) {
   std::mt19937 random( 7 );
   PrefixMap< U32 > map;
   std::map< Hul::VrfAndIpGenPrefix, U32 > model;
   const auto someKeyOf = [ & ]() {
      // The last is too large for the narrow key.
      const Hul::VrfId vrf( std::array{ 0u, 1u, ( 1u << 26 ) - 1, 1u << 26 }[ random() % 4 ] );
      if ( random() % 4 != 0 )
         return Hul::VrfAndIpGenPrefix( vrf, Kynet::Prefix( Kynet::IpAddr( random() % 64 << 24 ), random() % 33 ) );
      Kynet::Ip6Addr::Bytes bytes{};
      bytes[ 0 ] = static_cast< U8 >( random() % 64 );
      return Hul::VrfAndIpGenPrefix( vrf, Kynet::Ip6Prefix( Kynet::Ip6Addr( bytes ), random() % 129 ) );
   };
   for ( U32 i = 0; i < 20000; ++i ) {
      const auto key = someKeyOf();
      if ( random() % 3 == 0 ) {
         const auto erased = model.erase( key );
         ASSERT_EQ( map.erase( key ), erased );
      } else {
         const bool added = model.insert_or_assign( key, i ).second;
         const auto [ value, made ] = map.tryEmplace( key );
         *value = i;
         ASSERT_EQ( made, added );
      }
      ASSERT_EQ( map.size(), model.size() );
   }
   std::map< Hul::VrfAndIpGenPrefix, U32 > walked;
   for ( const auto & [ key, value ] : map ) walked.emplace( key, value );
   EXPECT_EQ( walked, model );
}

} // namespace
