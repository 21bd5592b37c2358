#include "Engine.h"

#include <gtest/gtest.h>
#include <random>

namespace {

using namespace Test;

class Chain : public testing::Test {
 protected:
   Gant::Ptr< Vex::Module > module( const char * name ) {
      return Gant::make< Vex::Module >( name, Vex::VexModule::IpInput, 8192, 2, 0, 1, nullptr, engine.l3Pair );
   }
   Lines sent() {
      auto all = engine.take();
      std::erase_if( all, []( const Gant::String & line ) { return line.starts_with( "create" ); } );
      return all;
   }
   // Where a packet goes that enters by the source's gate.
   Gant::String way( const Gant::Ptr< Vex::Module > & source, Vex::GateId gate ) const {
      Gant::String out;
      const Vex::Module * at = source.get();
      while ( at->outGate().contains( gate ) ) {
         at = at->outGate().at( gate ).peer;
         out += " " + at->name();
         gate = Vex::GateId( 1 );
      }
      return out;
   }

   Engine engine;
   Gant::Ptr< Vex::Module > a = module( "a" ), b = module( "b" ), c = module( "c" ), exit = module( "exit" ),
                            source = module( "source" );
   Vex::ModuleChain chain;
};

TEST_F( Chain, modulesStandInOrderOfPriorityHoweverTheyCome ) {
   const auto gate = source->getOutGate();
   chain.exitIs( exit );
   chain.sourceIs( source, gate );
   sent();
   chain.place( c, 300 );
   EXPECT_EQ( sent(), lines( "connect c:1 -> exit:0\n connect source:1 -> c:0" ) );
   chain.place( a, 100 );
   EXPECT_EQ( sent(), lines( "connect a:1 -> c:0\n disconnect source:1\n connect source:1 -> a:0" ) );
   // What comes in between leads on before anything leads to it.
   chain.place( b, 200 );
   EXPECT_EQ( sent(), lines( "connect b:1 -> c:0\n disconnect a:1\n connect a:1 -> b:0" ) );
   EXPECT_EQ( way( source, gate ), " a b c exit" );
   chain.place( b, 200 );
   EXPECT_EQ( sent(), Lines{} );
   // What goes is passed by first.
   chain.remove( b.get() );
   EXPECT_EQ( sent(), lines( "disconnect a:1\n connect a:1 -> c:0\n disconnect b:1" ) );
   chain.remove( b.get() );
   EXPECT_EQ( sent(), Lines{} );
   chain.takeDown();
   EXPECT_EQ( sent(), lines( "disconnect source:1\n disconnect a:1\n disconnect c:1" ) );
   EXPECT_EQ( source->unusedOutGate().size(), 1u );
}

TEST_F( Chain, theLastModuleWithoutAnExitLeadsNowhere ) {
   chain.place( a, 100 );
   EXPECT_EQ( sent(), Lines{} );
   chain.place( b, 200 );
   EXPECT_EQ( sent(), lines( "connect a:1 -> b:0" ) );
   chain.remove( b.get() );
   EXPECT_EQ( sent(), lines( "disconnect a:1" ) );
   EXPECT_EQ( a->unusedOutGate().size(), 1u );
}

TEST_F( Chain, aModuleThatGoesIsForgottenByItsPeersWithoutAWord ) {
   a->connectViaReservedGate( b, Vex::GateId( 0 ) );
   a->connectModule( c );
   sent();
   b = nullptr;
   EXPECT_EQ( sent(), lines( "destroy b" ) );
   EXPECT_FALSE( a->outGate().contains( Vex::GateId( 0 ) ) );
   EXPECT_EQ( c->findGateByName( "a", true ), Vex::GateId( 0 ) );
   a = nullptr;
   EXPECT_TRUE( c->inGate().empty() );
}

TEST_F( Chain, everyHistoryOfPlacementsEndsInTheOrderOfPriorities ) {
   std::mt19937 random( 3 );
   std::vector< Gant::Ptr< Vex::Module > > modules = { a, b, c, module( "d" ), module( "e" ) };
   std::map< U32, Gant::String > model;
   const auto gate = source->getOutGate();
   chain.exitIs( exit );
   chain.sourceIs( source, gate );
   for ( int step = 0; step < 2000; ++step ) {
      const auto & m = modules[ random() % modules.size() ];
      std::erase_if( model, [ & ]( const auto & entry ) { return entry.second == m->name(); } );
      const U32 priority = random() % 1000;
      if ( random() % 3 == 0 || model.contains( priority ) ) {
         chain.remove( m.get() );
      } else {
         chain.place( m, priority );
         model[ priority ] = m->name();
      }
      Gant::String expected;
      for ( const auto & [ p, name ] : model ) expected += " " + name;
      ASSERT_EQ( way( source, gate ), model.empty() ? "" : expected + " exit" );
   }
}

TEST_F( Chain, theGateOfATargetThatDiesFirstIsFreeAgain ) {
   for ( int i = 0; i < 20000; ++i ) {
      const auto target = module( "target" );
      source->connectModule( target );
      ASSERT_EQ( target->inGate().size(), 1u );
   }
   EXPECT_EQ( source->unusedOutGate().size(), 1u );
   // A gate whose owner took it stays the owner's.
   const auto gate = source->getOutGate();
   source->outGateIs( gate, module( "target" ).get() );
   EXPECT_TRUE( source->outGate().empty() );
   EXPECT_EQ( source->unusedOutGate().size(), 0u );
}

} // namespace
