#include "GantActivity.h"
#include "HulIntfVlanIdSet.h"
#include "HulPosted.h"
#include "HulRouter.h"

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

} // namespace
} // namespace HulTest
