#include "DpPacket.h"

#include <algorithm>
#include <cassert>

namespace Vexdp {

namespace {

Packet::Buffer ownBuffer( std::size_t size ) {
   auto * const begin = new std::uint8_t[ size ]();
   return { begin, begin + size, begin, []( void * owner ) { delete[] static_cast< std::uint8_t * >( owner ); } };
}

} // namespace

Packet::Packet( std::size_t size ) :
     buffer_( ownBuffer( kHeadroom + size + kTailroom ) ), data_( buffer_.begin + kHeadroom ), size_( size ) {}

Packet::Packet( const Packet & other ) : Packet( other.size() ) {
   meta = other.meta;
   std::ranges::copy( other.span(), data_ );
}

void Packet::swap( Packet & other ) noexcept {
   std::swap( buffer_, other.buffer_ );
   std::swap( data_, other.data_ );
   std::swap( size_, other.size_ );
   std::swap( cameIn_, other.cameIn_ );
   std::swap( cameInFramed_, other.cameInFramed_ );
   std::swap( meta, other.meta );
}

bool Packet::append( std::size_t n ) {
   if ( n > std::size_t( buffer_.end - data_ ) - size_ ) return false;
   size_ += n;
   return true;
}

bool Packet::rewind() {
   if ( cameIn_ == nullptr || cameIn_ > data_ ) return false;
   size_ += std::size_t( data_ - cameIn_ );
   data_ = cameIn_;
   meta.ethernet = cameInFramed_;
   return true;
}

Packet Packet::withFront( std::size_t size ) const {
   const bool known = cameIn_ != nullptr && cameIn_ <= data_;
   const auto front = known ? std::size_t( data_ - cameIn_ ) : 0;
   Packet made( front + size );
   made.meta = meta;
   if ( known ) {
      std::copy_n( cameIn_, front, made.data_ );
      made.cameIn_ = made.data_;
      made.cameInFramed_ = cameInFramed_;
   }
   made.pull( front );
   return made;
}

} // namespace Vexdp
