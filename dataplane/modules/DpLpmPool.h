// The blocks of forwarding tables, and their memory: huge pages, divided by halves (the buddy system), so that what
// small blocks leave behind as they grow becomes the room of larger ones.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace Vexdp {

// What a level of a table says of a place: the prefix of that level that covers it, or that there is a block below.
struct LpmEntry {
   static constexpr std::uint32_t kMostNumbers = 1u << 25;

   std::uint32_t depth : 6;   // length of the prefix, 0: none
   std::uint32_t isBlock : 1; // number is a block's
   std::uint32_t number : 25; // otherwise the prefix's value

   friend bool operator==( const LpmEntry &, const LpmEntry & ) = default;
};
static_assert( sizeof( LpmEntry ) == 4 );

// 256 places in runs, each with the entry of all its places. A place with a block below is a run of its own.
class LpmBlock {
 public:
   static constexpr unsigned kPlaces = 256;

   LpmEntry above;          // what the level above says of all of it
   std::uint16_t users = 0; // the prefixes of its level and the blocks below it
   std::uint8_t order = 0;  // its size, see LpmPool

   // The smallest size with room for so many entries.
   static constexpr unsigned orderFor( unsigned entries ) {
      const auto lines = ( sizeof( LpmBlock ) + entries * sizeof( LpmEntry ) + 63 ) / 64;
      return unsigned( std::bit_width( lines - 1 ) );
   }

   // One run without a prefix.
   void clear();
   // REQUIRES: place < kPlaces
   const LpmEntry & at( unsigned place ) const {
      const auto upTo = starts_[ place / 64 ] & ~std::uint64_t( 0 ) >> ( 63 - place % 64 );
      return entries()[ before_[ place / 64 ] + unsigned( std::popcount( upTo ) ) - 1 ];
   }
   LpmEntry & at( unsigned place ) { return const_cast< LpmEntry & >( std::as_const( *this ).at( place ) ); }
   unsigned runs() const { return before( kPlaces ); }
   bool isRun( unsigned from, unsigned end ) const {
      return ( starts_[ from / 64 ] >> from % 64 & 1 ) != 0 && endOf( from ) == end;
   }
   // The first place behind the run that the place is in.
   unsigned endOf( unsigned place ) const;
   LpmEntry * entries() { return reinterpret_cast< LpmEntry * >( this + 1 ); }
   const LpmEntry * entries() const { return reinterpret_cast< const LpmEntry * >( this + 1 ); }
   // Runs that begin before the place, which may be kPlaces.
   unsigned before( unsigned place ) const {
      const auto word = ( place - ( place != 0 ) ) / 64; // a place at a word's edge counts with the word before it
      const auto bits = place - word * 64;
      const auto mask = bits == 64 ? ~std::uint64_t( 0 ) : ( std::uint64_t( 1 ) << bits ) - 1;
      return before_[ word ] + unsigned( std::popcount( starts_[ word ] & mask ) );
   }

   // Runs that are to stand in place of those that begin in a range.
   class Runs {
    public:
      // `to` is the first place behind the range.
      Runs( unsigned from, unsigned to ) : from_( from ), to_( to ) {}
      // The entry of the place before the range.
      void behind( LpmEntry entry ) { last_ = entry; }
      // In order. What says the same as the entry before it is one run with it.
      void add( unsigned start, LpmEntry entry ) {
         if ( last_ == entry ) return;
         starts_[ count_ ] = std::uint8_t( start );
         entries_[ count_++ ] = entry;
         last_ = entry;
      }

    private:
      friend class LpmBlock;
      unsigned from_;
      unsigned to_;
      unsigned count_ = 0;
      std::optional< LpmEntry > last_;
      std::array< std::uint8_t, kPlaces > starts_;
      std::array< LpmEntry, kPlaces > entries_;
   };
   // How many runs there will be.
   unsigned runsWith( const Runs & fresh ) const;
   // REQUIRES: there is room for them
   void replace( const Runs & fresh );

 private:
   std::array< std::uint8_t, 4 > before_;
   std::array< std::uint64_t, 4 > starts_;
};

// Of any number of tables.
class LpmPool {
 public:
   using Index = std::uint32_t;
   static constexpr std::size_t kLine = 64; // bytes: a block of order 0; each order is twice as large
   static constexpr std::size_t kMaxLines = LpmEntry::kMostNumbers;

   LpmPool();
   ~LpmPool();

   // An empty block with room for so many entries. Throws std::bad_alloc.
   Index take( unsigned entries );
   // REQUIRES: nobody refers to it
   void giveBack( Index block );
   // It has another number then. REQUIRES: `entries` are enough for those that are in it
   Index moved( Index block, unsigned entries );
   LpmBlock & at( Index block ) const {
      return *reinterpret_cast< LpmBlock * >( chunks_[ block / kChunk ].get() + block % kChunk * kLine );
   }

   // Blocks.
   std::size_t inUse() const { return inUse_; }
   // Of memory that it holds, in use or not.
   std::size_t bytes() const { return chunks_.size() * kChunk * kLine; }

 private:
   static constexpr unsigned kOrders = 16;
   static constexpr std::size_t kChunk = std::size_t( 1 ) << ( kOrders - 1 ); // lines
   static constexpr std::uint8_t kTaken = 0xff;
   struct FreeChunk {
      void operator()( std::byte * chunk ) const { std::free( chunk ); }
   };
   // What is free is linked with what else is of its order.
   struct Free {
      Index before;
      Index after;
   };
   static constexpr Index kNone = 0xffffffff;

   void grow();
   Free & freeAt( Index block ) const { return reinterpret_cast< Free & >( at( block ) ); }
   void link( Index block, unsigned order );
   void unlink( Index block );

   std::vector< std::unique_ptr< std::byte, FreeChunk > > chunks_;
   std::vector< std::uint8_t > freeOrder_; // of the free block that begins with the line; kTaken: none does
   std::array< Index, kOrders > free_;
   std::size_t inUse_ = 0;
};

} // namespace Vexdp
