#include "NearestWord.h"

#include <algorithm>

namespace Runtime {

namespace {

// Of longer ones nobody mistypes one for the other.
constexpr size_t longest = 32;

size_t distance( std::string_view a, std::string_view b ) {
   std::vector< std::vector< size_t > > rows( a.size() + 1, std::vector< size_t >( b.size() + 1 ) );
   for ( size_t i = 0; i <= a.size(); ++i )
      for ( size_t j = 0; j <= b.size(); ++j ) {
         auto & here = rows[ i ][ j ];
         here = std::max( i, j );
         if ( i == 0 || j == 0 ) continue;
         here = std::min( { rows[ i - 1 ][ j ] + 1, rows[ i ][ j - 1 ] + 1,
                            rows[ i - 1 ][ j - 1 ] + ( a[ i - 1 ] == b[ j - 1 ] ? 0 : 1 ) } );
         if ( i > 1 && j > 1 && a[ i - 1 ] == b[ j - 2 ] && a[ i - 2 ] == b[ j - 1 ] )
            here = std::min( here, rows[ i - 2 ][ j - 2 ] + 1 );
      }
   return rows[ a.size() ][ b.size() ];
}

} // namespace

std::string nearestWord( std::string_view given, const std::vector< std::string > & words ) {
   std::string nearest;
   if ( given.empty() || given.size() > longest ) return nearest;
   auto least = std::max< size_t >( 1, given.size() / 3 ) + 1;
   for ( const auto & word : words ) {
      if ( word.size() > longest ) continue;
      if ( const auto away = distance( given, word ); away < least ) {
         least = away;
         nearest = word;
      }
   }
   return nearest;
}

std::string didYouMean( std::string_view given, const std::vector< std::string > & words ) {
   const auto nearest = nearestWord( given, words );
   return nearest.empty() ? nearest : ", did you mean \"" + nearest + "\"?";
}

} // namespace Runtime
