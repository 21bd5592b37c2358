#include "GantEnum.h"
#include "GantException.h"
#include "GantValue.h"

#include <gtest/gtest.h>

namespace {

GANT_ENUM( Colour, U8, ( red, 0 ), ( green, 1 ), ( blue, 7 ) )

class Key {
   GANT_SCALAR( Key, U32, 0xffffffff )
};

class Vlan {
   GANT_RANGED( Vlan, U16, 0, 1, 4094, "VlanId::value < 1 or > 4094 not allowed" )
};

class Inner {
   GANT_VALUE( "Test::Inner", Inner, ( Key, key ), ( Gant::String, text ) )
};

class Outer {
   GANT_VALUE( "Test::Outer", Outer, ( Colour, colour ), ( Inner, inner ), ( bool, on ), ( S32, offset, -5 ),
               ( Vlan, vlan ) )
};

Outer outer( Colour colour, U32 key, const char * text, bool on, S32 offset, U16 vlan ) {
   return Outer( colour, Inner( Key( key ), text ), on, offset, Vlan( vlan ) );
}

TEST( Value, textFormReadsBackToAnEqualValue ) {
   const Outer values[] = {
        Outer(),
        outer( Colour::blue_, 12, "it's {odd}, 'on': \\ %s", true, -2147483648, 4094 ),
        outer( Colour( 3 ), 0, "", false, 2147483647, 1 ),
   };
   EXPECT_EQ( values[ 0 ].strep(), "Value('Test::Outer', ** {'colour': red, 'inner': Value('Test::Inner', ** "
                                   "{'key': 4294967295, 'text': ''}), 'on': False, 'offset': -5, 'vlan': 0})" );
   EXPECT_EQ( Outer( values[ 1 ].strep() ), values[ 1 ] );
   // A number without an enumerator has no name to read back.
   EXPECT_THROW( Outer( values[ 2 ].strep() ), Gant::ParseException );
}

TEST( Value, aTextThatIsNotTheFormIsRefused ) {
   const auto good = Inner( Key( 1 ), "x" ).strep();
   EXPECT_EQ( Inner( good ).text(), "x" );
   for ( const Gant::String & bad : { Gant::String(), good + " ", good.substr( 0, good.size() - 1 ),
                                      Gant::String( "Value('Test::Inner', ** {'key': -1, 'text': 'x'})" ),
                                      Gant::String( "Value('Test::Inner', ** {'key': 4294967296, 'text': 'x'})" ),
                                      Gant::String( "Value('Test::Inner', ** {'text': 'x', 'key': 1})" ),
                                      Gant::String( "Value('Test::Inner', ** {'key': 1, 'text': 'x})" ) } )
      EXPECT_THROW( Inner{ bad }, Gant::ParseException ) << bad;
}

TEST( Value, fieldsCompareInDeclarationOrderAndEachOneCounts ) {
   const auto base = outer( Colour::green_, 5, "m", false, 0, 10 );
   EXPECT_LT( base, outer( Colour::blue_, 0, "a", false, -9, 1 ) );
   EXPECT_LT( outer( Colour::green_, 4, "z", true, 9, 99 ), base );
   for ( const auto & other :
         { outer( Colour::red_, 5, "m", false, 0, 10 ), outer( Colour::green_, 6, "m", false, 0, 10 ),
           outer( Colour::green_, 5, "n", false, 0, 10 ), outer( Colour::green_, 5, "m", true, 0, 10 ),
           outer( Colour::green_, 5, "m", false, 1, 10 ), outer( Colour::green_, 5, "m", false, 0, 11 ) } ) {
      EXPECT_NE( base, other );
      EXPECT_NE( base.hash(), other.hash() );
   }
   EXPECT_EQ( base.hash(), outer( Colour::green_, 5, "m", false, 0, 10 ).hash() );
}

TEST( Value, scalarsKnowTheirNullAndTheirRange ) {
   EXPECT_TRUE( !Key() );
   EXPECT_FALSE( !Key( 0 ) );
   EXPECT_EQ( Key( 7 ) + 1, 8u );
   EXPECT_TRUE( !Vlan() );
   EXPECT_EQ( Vlan( 4094 ).value(), 4094 );
   for ( const U16 bad : { 0, 4095, 65535 } ) {
      try {
         Vlan{ bad };
         FAIL() << bad;
      } catch ( const Gant::RangeException & e ) {
         EXPECT_STREQ( e.what(), "VlanId::value < 1 or > 4094 not allowed" );
      }
   }
}

TEST( Value, theHashSpreadsNeighbouringNumbers ) {
   // A flat table takes the low 7 bits apart from the rest: both halves have to differ for values that lie close.
   std::set< size_t > low, high;
   for ( U32 i = 0; i < 1024; ++i ) {
      const auto hash = Inner( Key( i << 8 ), "" ).hash();
      low.insert( hash & 127 );
      high.insert( ( hash >> 7 ) % 1024 );
   }
   EXPECT_EQ( low.size(), 128u );
   EXPECT_GT( high.size(), 600u );
}

} // namespace
