#include "HulTypes.h"

namespace HulTypes {

void ViaBitmap::viaIs( U32 via ) {
   const ViaBitmapIndex word( via / 64 );
   bitListIs( word, bitList( word ) | U64( 1 ) << via % 64 );
}

bool ViaBitmap::viaHas( U32 via ) const { return ( bitList( ViaBitmapIndex( via / 64 ) ) >> via % 64 & 1 ) != 0; }

void ViaBitmap::bitListIs( ViaBitmapIndex index, U64 word ) {
   if ( index >= words_.size() ) words_.resize( index + 1 );
   words_[ index ] = word;
   while ( !words_.empty() && words_.back() == 0 ) words_.pop_back();
}

size_t ViaBitmap::hash() const {
   size_t h = 0;
   for ( const auto word : words_ ) h ^= word + ( h << 5 ) + ( h >> 2 );
   return h;
}

Gant::String ViaBitmap::strep() const {
   Gant::String out = "[";
   for ( const auto word : words_ ) out += ( out.size() > 1 ? ", " : "" ) + std::to_string( word );
   return out += "]";
}

} // namespace HulTypes

namespace Hul {

void NextHopCollection::nextHopInc( const NextHop & nextHop, U32 multiplicity, U32 via ) {
   nextHops_[ nextHop ] += multiplicity;
   bitmaps_[ nextHop ].viaIs( via );
}

const HulTypes::ViaBitmap & NextHopCollection::nextHopBitmap( const NextHop & nextHop ) const {
   static const HulTypes::ViaBitmap none;
   const auto at = bitmaps_.find( nextHop );
   return at == bitmaps_.end() ? none : at->second;
}

} // namespace Hul
