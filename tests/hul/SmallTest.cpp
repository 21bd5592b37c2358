#include "GantActivity.h"
#include "HulCapacity.h"
#include "HulIntfVlanIdSet.h"
#include "HulPosted.h"
#include "HulRouter.h"
#include "QuorlEntityManager.h"
#include "StateRouting.h"
#include "ZephNexthopGroup.h"
#include "ZephProcSys.h"

#include <cstdio>
#include <fstream>

namespace HulTest {
namespace {

TEST( Posted, runsOnceALaterTurnAndNotForAnOwnerThatIsGone ) {
   auto * const loop = Gant::activityManager();
   int runs = 0;
   auto posted = std::make_unique< Hul::Posted >( [ & ] { ++runs; } );
   posted->post();
   posted->post();
   EXPECT_EQ( runs, 0 );
   loop->poll();
   EXPECT_EQ( runs, 1 );
   posted->post();
   posted = nullptr;
   loop->poll();
   EXPECT_EQ( runs, 1 );
   // It may post itself again, and its owner may go while it runs.
   posted = std::make_unique< Hul::Posted >( [ & ] {
      if ( ++runs < 4 )
         posted->post();
      else
         posted = nullptr;
   } );
   posted->post();
   loop->poll();
   EXPECT_EQ( runs, 4 );
   EXPECT_EQ( posted, nullptr );
}

TEST( ViaBitmap, wordsAreReadAndOrderedFromTheLowest ) {
   using HulTypes::ViaBitmap;
   using HulTypes::ViaBitmapIndex;
   ViaBitmap low, high;
   low.viaIs( 3 );
   high.viaIs( 64 * 64 + 63 );
   EXPECT_EQ( low.strep(), "[8]" );
   EXPECT_EQ( high.bitList( ViaBitmapIndex( 64 ) ), U64( 1 ) << 63 );
   EXPECT_EQ( high.bitList( ViaBitmapIndex( 63 ) ), 0u );
   EXPECT_LT( high, low );
   high.bitListIs( ViaBitmapIndex( 64 ), 0 );
   EXPECT_EQ( high, ViaBitmap() );
   EXPECT_EQ( high.strep(), "[]" );
   EXPECT_THROW( high.bitList( ViaBitmapIndex( 65 ) ), Gant::RangeException );
}

TEST( NextHopCollection, nextHopsAreInOrderWithWhatWasAdded ) {
   const auto at = []( const char * intf ) {
      return Hul::NextHop( Hul::NextHopEntryType::forward(), intfId( intf ), intfId( intf ), {}, mac( 1 ) );
   };
   Hul::NextHopCollection a, b;
   a.nextHopInc( at( "Et2" ), 2, 0 );
   a.nextHopInc( at( "Et1" ), 1, 1 );
   a.nextHopInc( at( "Et2" ), 3, 70 );
   EXPECT_EQ( text( a ), "forward Et1 02:00:00:00:00:01 x1, forward Et2 02:00:00:00:00:01 x5" );
   EXPECT_TRUE( a.nextHopBitmap( at( "Et2" ) ).viaHas( 70 ) );
   EXPECT_FALSE( a.nextHopBitmap( at( "Et3" ) ).viaHas( 0 ) );
   b.nextHopIs( at( "Et1" ), 1 );
   b.nextHopIs( at( "Et2" ), 5 );
   EXPECT_FALSE( a == b ); // they come from other vias
   a.swap( b );
   EXPECT_EQ( b.nextHopBitmap( at( "Et1" ) ).strep(), "[2]" );
   b.clear();
   EXPECT_EQ( text( b ), "nothing" );
}

TEST( IntfVlanIdSet, followsTheMembersOfTheVlans ) {
   const auto bridging = Gant::make< Bridging::Config >();
   const auto table = Gant::make< IntfVlanIdSet::Table >( "intfVlanIdSetTable" );
   const auto vlan = [ & ]( U16 id ) {
      const auto config = Gant::make< Bridging::VlanConfig >( Bridging::VlanId( id ) );
      config->intfIs( intfId( "Et1" ), true );
      return bridging->vlanConfigIs( config->vlanId(), config );
   };
   const auto vlans = [ & ] {
      Gant::String out;
      for ( const auto id : table->intfVlanIds( intfId( "Et1" ) ) ) out += std::to_string( id ) + " ";
      return out;
   };
   const auto ten = vlan( 10 );
   const IntfVlanIdSet::ConfigSm sm( { bridging, nullptr, table } );
   EXPECT_EQ( vlans(), "10 " );
   vlan( 20 );
   EXPECT_EQ( vlans(), "10 20 " );
   ten->intfDel( intfId( "Et1" ) );
   EXPECT_EQ( vlans(), "20 " );
   bridging->vlanConfigDelAll();
   EXPECT_FALSE( table->intfVlanIdsHas( intfId( "Et1" ) ) );
}

TEST( CapacityHelperSm, aFeatureIsDeclaredEmptyAndCountsFollow ) {
   const auto table = Gant::make< HulCapacity::TableCapacity >();
   Hardware::Capacity::CapacityHelperSm sm( table, Gant::activityManager()->clock() );
   const HulCapacity::TableKey key( "NextHop", "Feature", "" );
   sm.initCapacityTableFeature( "NextHop", "Feature", "" );
   EXPECT_EQ( table->entryIterator().at( key ), HulCapacity::TableEntry() );
   sm.updateCapacityEntry( key, 3, 7, 0, 10 );
   EXPECT_EQ( table->entry( key ).free(), 7u );
}

TEST( Zeph, theEntryTableIsMadeByItsWriter ) {
   const auto em = Gant::make< Quorl::EntityManager >( "root" );
   using Sm = Zeph::NexthopGroupSm;
   EXPECT_FALSE( Sm::mirelMountNhgStatus( em, false ) );
   const auto table = Sm::mirelMountNhgStatus( em, true );
   ASSERT_TRUE( table );
   EXPECT_EQ( Sm::mirelMountNhgStatus( em, false ), table );
   EXPECT_FALSE( Sm::mirelMountNhgStatus( nullptr, true ) );
}

TEST( Zeph, aKernelSettingIsWrittenOrTheFailureTold ) {
   const auto path = testing::TempDir() + "accept_local";
   std::ofstream( path ) << "0";
   EXPECT_TRUE( Zeph::writeProcSys( path, "1" ) );
   Gant::String text;
   std::ifstream( path ) >> text;
   EXPECT_EQ( text, "1" );
   std::remove( path.c_str() );
   EXPECT_FALSE( Zeph::writeProcSys( path, "1" ) );
}

} // namespace
} // namespace HulTest
