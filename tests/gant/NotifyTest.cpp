#include "GantAttr.h"
#include "GantEntity.h"

#include <functional>
#include <gtest/gtest.h>

namespace {

class Thing : public Gant::Entity {
 public:
   using Parts = Gant::OrderedMap< int, Gant::String >;
   using Marks = Gant::OrderedSet< int >;
   class Notifiee : public Gant::NotifieeOf< Thing > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onSize() {}
      virtual void onPart( const int & ) {}
      virtual void onMark( const int & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED( int, size, onSize, 3 )
   GANT_WATCHED_MAP( Parts, part, onPart )
   GANT_WATCHED_SET( Marks, mark, onMark )
};

// Writes down what it is told, and may act on it.
class Watcher : public Gant::StateMachine {
 public:
   Watcher( Gant::String name, std::vector< Gant::String > & log, Gant::Ptr< const Thing > thing ) :
        name( std::move( name ) ), log( log ), reactor( std::make_unique< GantThing >( this, std::move( thing ) ) ) {}

   void said( const Gant::String & what ) {
      log.push_back( name + " " + what );
      if ( then ) then();
   }

   struct GantThing : Thing::Notifiee {
      GantThing( Watcher * owner, Gant::Ptr< const Thing > thing ) :
           Notifiee( owner, std::move( thing ) ), owner( owner ) {}
      void onSize() override { owner->said( "size " + std::to_string( notifier()->size() ) ); }
      void onPart( const int & key ) override {
         owner->said( "part " + std::to_string( key ) + "=" + notifier()->part( key ) );
      }
      void onMark( const int & key ) override {
         owner->said( "mark " + std::to_string( key ) + ( notifier()->markHas( key ) ? "+" : "-" ) );
      }
      void onRenotify() override { owner->said( "all" ); }
      Watcher * owner;
   };

   Gant::String name;
   std::vector< Gant::String > & log;
   std::function< void() > then;
   std::unique_ptr< GantThing > reactor;
};

class Notify : public testing::Test {
 protected:
   using Log = std::vector< Gant::String >;
   Gant::Ptr< Watcher > watcher( const char * name ) { return Gant::make< Watcher >( name, log, thing ); }
   Log take() { return std::exchange( log, {} ); }

   Log log;
   Gant::Ptr< Thing > thing = Gant::make< Thing >( "thing" );
   Gant::Ptr< Watcher > a = watcher( "a" ), b = watcher( "b" );
};

TEST_F( Notify, aChangeIsToldAtOnceInOrderOfRegistrationAndOnlyWhenItIsOne ) {
   thing->sizeIs( 3 );
   EXPECT_EQ( take(), Log{} );
   thing->sizeIs( 4 );
   EXPECT_EQ( take(), ( Log{ "a size 4", "b size 4" } ) );
   thing->partIs( 1, "x" );
   thing->partIs( 1, "x" );
   thing->partIs( 1, "y" );
   EXPECT_EQ( thing->partDel( 1 ), "y" );
   thing->partDel( 1 );
   EXPECT_EQ( take(), ( Log{ "a part 1=x", "b part 1=x", "a part 1=y", "b part 1=y", "a part 1=", "b part 1=" } ) );
   thing->markIs( 5, true );
   thing->markIs( 5, true );
   thing->markDel( 5 );
   thing->markDel( 5 );
   EXPECT_EQ( take(), ( Log{ "a mark 5+", "b mark 5+", "a mark 5-", "b mark 5-" } ) );
   thing->sizeDel();
   EXPECT_EQ( thing->size(), 3 );
}

TEST_F( Notify, watchersMayComeAndGoWhileTheyAreTold ) {
   Gant::Ptr< Watcher > c;
   a->then = [ & ] {
      a->then = nullptr;
      b = nullptr;
      c = watcher( "c" );
      a->reactor = nullptr;
   };
   thing->sizeIs( 1 );
   EXPECT_EQ( take(), ( Log{ "a size 1" } ) );
   thing->sizeIs( 2 );
   EXPECT_EQ( take(), ( Log{ "c size 2" } ) );
}

TEST_F( Notify, aWatcherMayChangeWhatItWatchesWhileItIsTold ) {
   a->then = [ & ] {
      if ( thing->size() < 12 ) thing->sizeIs( thing->size() + 1 );
      thing->partDelAll();
   };
   thing->partIs( 7, "x" );
   // The inner walks end before the outer one goes on, so b reads the last value each time.
   EXPECT_EQ( take().back(), "b part 7=" );
   EXPECT_EQ( thing->size(), 12 );
   EXPECT_EQ( thing->parts(), 0u );
   thing->sizeIs( 20 );
   EXPECT_EQ( take(), ( Log{ "a size 20", "b size 20" } ) );
}

TEST_F( Notify, anInactiveOwnerHearsAfterwardsThatItMissedSomething ) {
   a->hasNotificationActiveIs( false );
   a->hasNotificationActiveIs( true );
   EXPECT_EQ( take(), Log{} );
   a->hasNotificationActiveIs( false );
   thing->sizeIs( 8 );
   thing->markIs( 1, true );
   EXPECT_EQ( take(), ( Log{ "b size 8", "b mark 1+" } ) );
   a->hasNotificationActiveIs( true );
   EXPECT_EQ( take(), ( Log{ "a all" } ) );
}

TEST_F( Notify, aZombieIsSilentForGood ) {
   a->gantDoZombieReactors( true );
   thing->sizeIs( 8 );
   a->hasNotificationActiveIs( false );
   thing->sizeIs( 9 );
   a->hasNotificationActiveIs( true );
   EXPECT_EQ( take(), ( Log{ "b size 8", "b size 9" } ) );
}

TEST_F( Notify, aReactorKeepsWhatItWatchesAliveAndCanBeBoundAnew ) {
   const auto other = Gant::make< Thing >( "other" );
   a->reactor->notifierIs( other );
   thing->sizeIs( 1 );
   other->sizeIs( 2 );
   EXPECT_EQ( take(), ( Log{ "b size 1", "a size 2" } ) );
   EXPECT_EQ( other->references(), 2u );
   a = nullptr;
   EXPECT_EQ( other->references(), 1u );
}

} // namespace
