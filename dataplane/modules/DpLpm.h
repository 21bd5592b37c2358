// Longest-prefix match over IPv4 addresses, for a table that changes as fast as it is read.
//
// A trie of three levels with strides 16, 8 and 8: 65,536 direct entries, then blocks of 256 under those that have
// longer prefixes. An entry holds the longest prefix of its own level that covers it, and a look-up remembers the last
// one that it saw on its way down. So a prefix is written at one level only, and its cost doesn't depend on what lies
// below it. The prefixes themselves stand in a hash table, which answers for the exact prefix and tells a deletion
// which shorter prefix comes back. The default route is kept apart.
#pragma once

#include "DpTypes.h"

#include <absl/container/flat_hash_map.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace Vexdp {

struct LpmEntry {
   std::uint32_t value;
   std::uint32_t depth : 8;  // length of the prefix that covers it at this level, 0: none
   std::uint32_t child : 24; // block, 0: none
};
static_assert( sizeof( LpmEntry ) == 8 );

// The blocks of any number of tables. Blocks don't move.
class LpmPool {
 public:
   using Index = std::uint32_t;
   static constexpr std::size_t kBlockSize = 256;
   // Block numbers have 24 bits, and 0 is none.
   static constexpr std::size_t kMaxBlocks = ( 1u << 24 ) - 1;

   LpmPool();
   ~LpmPool();

   // An empty block. REQUIRES: inUse() < kMaxBlocks
   Index take();
   // REQUIRES: the block is empty, and nobody refers to it
   void giveBack( Index block );
   LpmEntry * entries( Index block ) { return &( *chunks_[ block / kChunk ] )[ block % kChunk ][ 0 ]; }
   const LpmEntry * entries( Index block ) const { return &( *chunks_[ block / kChunk ] )[ block % kChunk ][ 0 ]; }

   // A block's users are the prefixes of its level and the blocks below it.
   void userAdd( Index block ) { ++users_[ block ]; }
   // True when it was the last one.
   bool userDel( Index block ) { return --users_[ block ] == 0; }

   std::size_t inUse() const { return inUse_; }

 private:
   static constexpr std::size_t kChunk = 1024;
   using Chunk = std::array< std::array< LpmEntry, kBlockSize >, kChunk >;
   struct FreeChunk {
      void operator()( Chunk * chunk ) const { std::free( chunk ); }
   };
   void grow();

   std::vector< std::unique_ptr< Chunk, FreeChunk > > chunks_;
   std::vector< std::uint16_t > users_;
   std::vector< Index > free_;
   std::size_t inUse_ = 0;
};

// One table. Prefixes given to it have a length of at most 32 and no host bits.
class Lpm {
 public:
   struct Route {
      Ipv4Prefix prefix;
      std::uint32_t value;
   };

   // The pool outlives the table. A prefix needs at most two blocks of it.
   explicit Lpm( LpmPool & pool );
   ~Lpm();
   Lpm( const Lpm & ) = delete;
   Lpm & operator=( const Lpm & ) = delete;

   // full: the prefix is new and there is no room for it, so nothing was done.
   enum class Insert { added, replaced, full };
   Insert insert( Ipv4Prefix prefix, std::uint32_t value, bool room );
   // False when the prefix isn't there.
   bool remove( Ipv4Prefix prefix );

   std::optional< Route > lookup( Ipv4Addr addr ) const;
   // Brings into the cache what look-ups of the addresses will read, with all of them under way at once.
   static constexpr std::size_t kMostFetched = 64;
   void fetch( std::span< const Ipv4Addr > addrs ) const;
   std::optional< std::uint32_t > exact( Ipv4Prefix prefix ) const;

   std::size_t size() const { return rules_.size(); }
   // In no order.
   std::vector< Route > routes() const;

 private:
   using Key = std::uint64_t;
   // Entries of one level, and the blocks on the way to them.
   struct Range {
      LpmEntry * first;
      std::size_t count;
      LpmPool::Index level2 = 0;
      LpmPool::Index level3 = 0;
   };

   static Key keyOf( Ipv4Prefix prefix ) { return Key( prefix.addr.value ) << 8 | prefix.len; }
   static Ipv4Prefix prefixOf( Key key ) { return { { std::uint32_t( key >> 8 ) }, std::uint8_t( key & 255 ) }; }

   // The entries that the prefix covers, of length 1 to 32. Makes the blocks that are missing.
   Range rangeOf( Ipv4Prefix prefix );
   // Where the prefix was the last user of a block.
   void freeUnused( Ipv4Prefix prefix, const Range & range );
   // The longest shorter prefix of the same level that covers this one; length 0 when there is none.
   LpmEntry shorterAtLevel( Ipv4Prefix prefix ) const;

   LpmPool & pool_;
   std::unique_ptr< LpmEntry[], decltype( &std::free ) > root_;
   absl::flat_hash_map< Key, std::uint32_t > rules_;
   std::array< std::uint32_t, 33 > byLength_{}; // prefixes of each length
   std::optional< std::uint32_t > default_;
};

} // namespace Vexdp
