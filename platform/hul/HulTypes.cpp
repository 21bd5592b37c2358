#include "HulTypes.h"

#include <algorithm>
#include <functional>

namespace HulTypes {

void ViaBitmap::viaIs( U32 via ) {
   const ViaBitmapIndex word( via / 64 );
   bitListIs( word, bitList( word ) | U64( 1 ) << via % 64 );
}

bool ViaBitmap::viaHas( U32 via ) const { return ( bitList( ViaBitmapIndex( via / 64 ) ) >> via % 64 & 1 ) != 0; }

void ViaBitmap::bitListIs( ViaBitmapIndex index, U64 word ) {
   if ( index == 0 ) {
      first_ = word;
      return;
   }
   if ( index > more_.size() ) more_.resize( index );
   more_[ index - 1 ] = word;
   while ( !more_.empty() && more_.back() == 0 ) more_.pop_back();
}

U64 ViaBitmap::bitList( ViaBitmapIndex index ) const {
   if ( index == 0 ) return first_;
   return index <= more_.size() ? more_[ index - 1 ] : 0;
}

size_t ViaBitmap::hash() const {
   size_t h = first_;
   for ( const auto word : more_ ) h ^= word + ( h << 5 ) + ( h >> 2 );
   return h;
}

Gant::String ViaBitmap::strep() const {
   if ( first_ == 0 && more_.empty() ) return "[]";
   Gant::String out = "[" + std::to_string( first_ );
   for ( const auto word : more_ ) out += ", " + std::to_string( word );
   return out += "]";
}

} // namespace HulTypes

namespace Hul {

namespace {

// Where the next hop is, or belongs.
auto position( const NextHopCollection::NextHops & nextHops, const NextHop & nextHop ) {
   return std::ranges::lower_bound( nextHops, nextHop, std::less<>(), &NextHopCollection::NextHops::value_type::first );
}

} // namespace

size_t NextHopCollection::slot( const NextHop & nextHop ) {
   const auto at = position( nextHops_, nextHop );
   const auto slot = at - nextHops_.begin();
   if ( at == nextHops_.end() || at->first != nextHop ) {
      nextHops_.insert( at, { nextHop, 0 } );
      bitmaps_.insert( bitmaps_.begin() + slot, HulTypes::ViaBitmap() );
   }
   return static_cast< size_t >( slot );
}

void NextHopCollection::nextHopInc( const NextHop & nextHop, U32 multiplicity, U32 via ) {
   const auto at = slot( nextHop );
   nextHops_[ at ].second += multiplicity;
   bitmaps_[ at ].viaIs( via );
}

void NextHopCollection::clear() {
   nextHops_.clear();
   bitmaps_.clear();
}

void NextHopCollection::swap( NextHopCollection & other ) noexcept {
   nextHops_.swap( other.nextHops_ );
   bitmaps_.swap( other.bitmaps_ );
}

const HulTypes::ViaBitmap & NextHopCollection::nextHopBitmap( const NextHop & nextHop ) const {
   static const HulTypes::ViaBitmap none;
   const auto at = position( nextHops_, nextHop );
   if ( at == nextHops_.end() || at->first != nextHop ) return none;
   return bitmaps_[ static_cast< size_t >( at - nextHops_.begin() ) ];
}

} // namespace Hul
