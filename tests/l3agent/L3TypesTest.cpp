#include "Engine.h"

#include <gtest/gtest.h>
#include <random>

namespace {

using namespace Test;
using namespace VexL3Unicast;

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
