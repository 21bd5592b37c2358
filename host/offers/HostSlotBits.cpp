#include "HostSlotBits.h"

#include <algorithm>
#include <bit>

namespace Host {

void SlotBits::add( U32 slot ) {
   if ( slot / 64 >= words_.size() ) words_.resize( std::max< size_t >( slot / 64 + 1, 2 * words_.size() ) );
   words_[ slot / 64 ] |= U64( 1 ) << slot % 64;
}

void SlotBits::remove( U32 slot ) {
   if ( slot / 64 < words_.size() ) words_[ slot / 64 ] &= ~( U64( 1 ) << slot % 64 );
}

void SlotBits::addAll( const SlotBits & other ) {
   if ( words_.size() < other.words_.size() ) words_.resize( other.words_.size() );
   for ( size_t at = 0; at < other.words_.size(); ++at ) words_[ at ] |= other.words_[ at ];
}

U32 SlotBits::next( U32 slot ) const {
   for ( size_t word = slot / 64; word < words_.size(); ++word ) {
      const auto rest = word == slot / 64 ? words_[ word ] >> slot % 64 << slot % 64 : words_[ word ];
      if ( rest != 0 ) return static_cast< U32 >( word * 64 + static_cast< size_t >( std::countr_zero( rest ) ) );
   }
   return end();
}

} // namespace Host
