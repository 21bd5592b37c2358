#include "DpPacket.h"

#include <algorithm>
#include <cassert>

namespace Vexdp {

std::uint8_t * Packet::prepend( std::size_t n ) {
   if ( n > at_ ) return nullptr;
   at_ -= n;
   std::fill_n( data(), n, std::uint8_t( 0 ) );
   return data();
}

void Packet::pull( std::size_t n ) {
   assert( n <= size() );
   at_ += n;
}

void Packet::trim( std::size_t size ) {
   assert( size <= this->size() );
   bytes_.resize( at_ + size );
}

} // namespace Vexdp
