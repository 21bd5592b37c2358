#include "GantTrace.h"

#include "GantAssert.h"

#include <gtest/gtest.h>

namespace {

Gant::TraceHandle traceHandle( "TraceTest" );
int textsMade = 0;

struct Costly {
   Gant::String str() const {
      ++textsMade;
      return "costly";
   }
};

std::vector< Gant::String > streamed;

std::vector< Gant::String > ring() {
   std::vector< Gant::String > out;
   for ( const auto & line : Gant::traceLines( 3, "TraceTest" ) )
      out.push_back( std::to_string( line.level ) + ":" + line.text );
   return out;
}

TEST( Trace, theRingKeepsArgumentsAndFormatsThemWhenRead ) {
   Gant::TraceHandle::levelIs( "TraceTest", 5, 0 );
   textsMade = 0;
   const Gant::String name = "Ethernet1";
   GANT_TRACE( 5, "given ", name, " ", 42u, " ", true, " ", Costly() );
   GANT_TRACE( 6, "not given ", Costly() );
   EXPECT_EQ( textsMade, 0 );
   EXPECT_EQ( ring().back(), "5:given Ethernet1 42 true costly" );
   EXPECT_EQ( textsMade, 1 );
}

TEST( Trace, aLineThatIsTooLongIsCutAndTheNextOneIsWhole ) {
   GANT_TRACE( 1, "long ", Gant::String( 10000, 'x' ), " tail" );
   GANT_TRACE( 1, "next" );
   const auto lines = ring();
   EXPECT_TRUE( lines[ lines.size() - 2 ].starts_with( "1:long xxxx" ) );
   EXPECT_EQ( lines.back(), "1:next" );
}

TEST( Trace, theStreamHasALevelOfItsOwn ) {
   Gant::traceStreamIs( []( const char * unit, int level, const Gant::String & text ) {
      streamed.push_back( Gant::textsOf( unit, ":", level, ":", text ) );
   } );
   EXPECT_TRUE( Gant::TraceHandle::levelIs( "TraceTest", 9, 2 ) );
   EXPECT_FALSE( Gant::TraceHandle::levelIs( "NoSuchUnit", 9, 2 ) );
   GANT_TRACE( 2, "both" );
   GANT_TRACE( 3, "ring only" );
   EXPECT_EQ( streamed, std::vector< Gant::String >{ "TraceTest:2:both" } );
   EXPECT_EQ( ring().back(), "3:ring only" );
   Gant::traceStreamIs( nullptr );
}

} // namespace
