#include "GantAttr.h"
#include "GantEntity.h"
#include "GantFlat.h"

#include <gtest/gtest.h>

namespace {

class Declared;

class Holder : public Gant::PtrInterface {
 public:
   using Names = Gant::HashMap< U32, Gant::String >;
   using Routes = Gant::FlatSet< U64 >;
   GANT_ATTR( int, depth, 7 )
   GANT_COUNTER( U64, numSeen )
   GANT_PER_FAMILY( U32, numRoutes )
   GANT_MAP( Names, label )
   GANT_SET( Routes, route )
   GANT_STACK( U16, freeId )
   GANT_ATTR( Gant::Ptr< Declared >, declared )
   explicit Holder( int & living ) : living( living ) { ++living; }
   ~Holder() override { --living; }
   int & living;
};

TEST( Attr, everyFormKeepsItsConventions ) {
   int living = 0;
   const auto h = Gant::make< Holder >( living );
   EXPECT_EQ( h->depthIs( 9 ), 9 );
   h->depthDel();
   EXPECT_EQ( h->depth(), 7 );
   EXPECT_EQ( h->numSeenInc( 3 ), 3u );
   EXPECT_EQ( h->numSeenDec( 1 ), 2u );
   h->numRoutesInc( 1, 5 );
   EXPECT_EQ( h->numRoutes( 1 ), 5u );
   EXPECT_EQ( h->numRoutes( 2 ), 0u );

   EXPECT_EQ( h->labelIs( 4, "four" ), "four" );
   EXPECT_EQ( h->label( 5 ), "" );
   EXPECT_EQ( h->labelDel( 4 ), "four" );
   EXPECT_EQ( h->labelDel( 4 ), "" );
   EXPECT_EQ( h->labels(), 0u );

   h->routeIs( 8, true );
   h->routeIs( 9, true );
   h->routeIs( 8, false );
   EXPECT_EQ( h->routeKeys(), std::vector< U64 >{ 9 } );

   h->freeIdPush( 1 );
   h->freeIdPush( 2 );
   EXPECT_EQ( h->freeIds(), 2u );
   EXPECT_EQ( h->freeIdPop(), 2 );
   EXPECT_EQ( h->freeIdPop(), 1 );
   EXPECT_EQ( h->freeIdPop(), 0 );
   EXPECT_FALSE( h->declared() );
}

TEST( Ptr, theLastReferenceReleases ) {
   int living = 0;
   auto a = Gant::make< Holder >( living );
   auto b = a;
   a = std::move( b );
   EXPECT_FALSE( b );
   const auto & same = a;
   a = same;
   const Gant::Ptr< const Gant::PtrInterface > base = a;
   a = nullptr;
   EXPECT_EQ( living, 1 );
   EXPECT_EQ( base->references(), 1u );
}

} // namespace
