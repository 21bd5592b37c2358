#include "GantActivity.h"
#include "GantAssert.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

class Sleeper : public Gant::StateMachine {
 public:
   Sleeper( Gant::String name, Gant::String & log ) : name( std::move( name ) ), log( log ) {}
   struct GantClock : Gant::Clock::Notifiee {
      explicit GantClock( Sleeper * owner ) : Notifiee( owner, Gant::activityManager()->newClock() ), owner( owner ) {}
      void onTime() override { owner->log += owner->name + "@" + Gant::format( "%g", notifier()->now() ) + " "; }
      Sleeper * owner;
   };
   void wakeAt( double time ) { const_cast< Gant::Clock & >( *reactor.notifier() ).timeMinIs( time ); }
   Gant::String name;
   Gant::String & log;
   GantClock reactor{ this };
};

TEST( Activity, aTimeThatIsSetAgainOrGivenUpLeavesNothingArmed ) {
   auto * const loop = Gant::activityManager();
   const auto clock = loop->newClock();
   for ( int i = 0; i < 10; ++i ) clock->timeMinIs( loop->now() + 3600 );
   EXPECT_EQ( loop->poll(), 9u );
   clock->timeMinIs( Gant::Clock::never );
   EXPECT_EQ( loop->poll(), 1u );
}

TEST( Activity, manualTimeWakesClocksInOrderAndOnce ) {
   auto * const loop = Gant::activityManager();
   loop->manualTimeIs( 1e9 );
   const double start = loop->now();
   Gant::String log;
   const auto a = Gant::make< Sleeper >( "a", log ), b = Gant::make< Sleeper >( "b", log ),
              c = Gant::make< Sleeper >( "c", log );
   a->wakeAt( start + 20 );
   b->wakeAt( start + 10 );
   c->wakeAt( start + 15 );
   c->wakeAt( Gant::Clock::never );
   loop->manualTimeIs( start + 9 );
   EXPECT_EQ( log, "" );
   loop->manualTimeIs( start + 100 );
   EXPECT_EQ( log, Gant::format( "b@%g a@%g ", start + 10, start + 20 ) );
   loop->manualTimeIs( start + 200 );
   EXPECT_EQ( loop->now(), start + 200 );
   EXPECT_EQ( log, Gant::format( "b@%g a@%g ", start + 10, start + 20 ) );
}

TEST( Activity, workPostedFromAnyThreadRunsInOrderOnTheLoop ) {
   auto * const loop = Gant::activityManager();
   Gant::String log;
   std::thread other( [ & ] {
      loop->post( [ & ] { log += loop->onLoop() ? "1" : "?"; } );
      loop->post( [ & ] {
         log += "2";
         loop->post( [ & ] { log += "4"; } );
      } );
      loop->post( [ & ] { log += "3"; } );
   } );
   other.join();
   EXPECT_EQ( log, "" );
   EXPECT_EQ( loop->poll(), 4u );
   EXPECT_EQ( log, "1234" );
}

TEST( AssertDeathTest, aFailedAssertionSaysItsConditionAndValuesAndEndsTheProcess ) {
   const int fec = 0;
   EXPECT_DEATH( GANT_ASSERT( fec != 0, " fecKey ", 12, " prefix ", "10.0.0.0/8" ),
                 "^Failed\\(fec != 0\\)  fecKey 12 prefix 10.0.0.0/8 \\[ActivityTest:" );
   GANT_ASSERT( fec == 0 );
}

} // namespace
