#include "DpLpmPool.h"

#include <sys/mman.h>

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstring>
#include <new>

namespace Vexdp {

void LpmBlock::clear() {
   above = {};
   users = 0;
   starts_ = { 1, 0, 0, 0 };
   before_ = { 0, 1, 1, 1 };
   entries()[ 0 ] = {};
}

unsigned LpmBlock::endOf( unsigned place ) const {
   auto bits = starts_[ place / 64 ] & ~std::uint64_t( 1 ) << place % 64;
   auto word = place / 64;
   while ( bits == 0 && ++word < starts_.size() ) bits = starts_[ word ];
   return bits == 0 ? kPlaces : word * 64 + unsigned( std::countr_zero( bits ) );
}

unsigned LpmBlock::runsWith( const Runs & fresh ) const {
   return before( fresh.from_ ) + fresh.count_ + runs() - before( fresh.to_ );
}

void LpmBlock::replace( const Runs & fresh ) {
   const auto first = before( fresh.from_ ), last = before( fresh.to_ ), all = runs();
   auto * const entries = this->entries();
   std::memmove( entries + first + fresh.count_, entries + last, ( all - last ) * sizeof( LpmEntry ) );
   std::copy_n( fresh.entries_.begin(), fresh.count_, entries + first );
   for ( auto place = fresh.from_; place < fresh.to_; place = ( place / 64 + 1 ) * 64 ) {
      const auto end = std::min( fresh.to_ - place / 64 * 64, 64u );
      const auto below = end == 64 ? ~std::uint64_t( 0 ) : ( std::uint64_t( 1 ) << end ) - 1;
      starts_[ place / 64 ] &= ~( below & ~std::uint64_t( 0 ) << place % 64 );
   }
   for ( unsigned i = 0; i < fresh.count_; ++i )
      starts_[ fresh.starts_[ i ] / 64 ] |= std::uint64_t( 1 ) << fresh.starts_[ i ] % 64;
   for ( unsigned word = 0; word < 3; ++word )
      before_[ word + 1 ] = std::uint8_t( before_[ word ] + std::popcount( starts_[ word ] ) );
}

LpmPool::LpmPool() { free_.fill( kNone ); }

LpmPool::~LpmPool() { assert( inUse_ == 0 ); }

void LpmPool::link( Index block, unsigned order ) {
   freeAt( block ) = { kNone, free_[ order ] };
   if ( free_[ order ] != kNone ) freeAt( free_[ order ] ).before = block;
   free_[ order ] = block;
   freeOrder_[ block ] = std::uint8_t( order );
}

void LpmPool::unlink( Index block ) {
   const auto [ before, after ] = freeAt( block );
   ( before == kNone ? free_[ freeOrder_[ block ] ] : freeAt( before ).after ) = after;
   if ( after != kNone ) freeAt( after ).before = before;
   freeOrder_[ block ] = kTaken;
}

LpmPool::Index LpmPool::take( unsigned entries ) {
   const auto order = LpmBlock::orderFor( entries );
   auto from = order;
   while ( from < kOrders && free_[ from ] == kNone ) ++from;
   if ( from == kOrders ) {
      grow();
      from = kOrders - 1;
   }
   const Index block = free_[ from ];
   unlink( block );
   // The upper half goes back as often as it is too large.
   while ( from-- > order ) link( block + ( Index( 1 ) << from ), from );
   auto & made = at( block );
   made.order = std::uint8_t( order );
   made.clear();
   ++inUse_;
   return block;
}

void LpmPool::giveBack( Index block ) {
   unsigned order = at( block ).order;
   for ( ; order + 1 < kOrders; ++order ) {
      const auto buddy = block ^ Index( 1 ) << order;
      if ( freeOrder_[ buddy ] != order ) break;
      unlink( buddy );
      block = std::min( block, buddy );
   }
   link( block, order );
   --inUse_;
}

LpmPool::Index LpmPool::moved( Index block, unsigned entries ) {
   const auto to = take( entries );
   const auto order = at( to ).order;
   const auto & from = at( block );
   std::memcpy( static_cast< void * >( &at( to ) ), &from, sizeof( LpmBlock ) + from.runs() * sizeof( LpmEntry ) );
   at( to ).order = order;
   giveBack( block );
   return to;
}

// A chunk is one huge page, so that a look-up in a full table misses few translations.
void LpmPool::grow() {
   constexpr std::size_t size = kChunk * kLine;
   static_assert( size == 2u << 20 );
   if ( ( chunks_.size() + 1 ) * kChunk > kMaxLines ) throw std::bad_alloc();
   auto * const memory = static_cast< std::byte * >( std::aligned_alloc( size, size ) );
   if ( memory == nullptr ) throw std::bad_alloc();
   madvise( memory, size, MADV_HUGEPAGE );
   chunks_.emplace_back( memory );
   freeOrder_.resize( chunks_.size() * kChunk, kTaken );
   link( Index( ( chunks_.size() - 1 ) * kChunk ), kOrders - 1 );
}

} // namespace Vexdp
