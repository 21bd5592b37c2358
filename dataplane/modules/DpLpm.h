// Longest-prefix match over IPv4 addresses, for a table that changes as fast as it is read.
//
// A trie of three levels with strides 16, 8 and 8: 65,536 direct entries, then blocks of 256 places under those that
// have longer prefixes. A block has an entry for each run of places with the same answer, and a bit for each place
// where a run begins: a look-up counts the bits up to its place. So a backbone's table of a million prefixes lies in
// some 16 MB, and a look-up touches a line of the direct entries, one of a block's bits and one of its entries.
//
// An entry holds the longest prefix of its own level that covers it, with its length, and a look-up remembers the last
// one that it saw on its way down. So a prefix is written at one level only, and its cost doesn't depend on what lies
// below it. The prefixes themselves stand in a hash table, which answers for the exact prefix and tells a deletion
// which shorter prefix comes back. The default route is kept apart.
#pragma once

#include "DpLpmPool.h"
#include "DpTypes.h"

#include <absl/container/flat_hash_map.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace Vexdp {

// One table. Prefixes given to it have a length of at most 32 and no host bits.
class Lpm {
 public:
   // Values are below it.
   static constexpr std::uint32_t kMostValues = LpmEntry::kMostNumbers;

   struct Route {
      Ipv4Prefix prefix;
      std::uint32_t value;
   };

   // The pool outlives the table. A prefix needs at most two blocks of it.
   explicit Lpm( LpmPool & pool );
   ~Lpm();
   Lpm( const Lpm & ) = delete;
   Lpm & operator=( const Lpm & ) = delete;

   // The prefix is to be inserted or removed soon, some 8 of them later: fetches the memory where it will be looked
   // for.
   void expect( Ipv4Prefix prefix );
   // full: the prefix is new and there is no room for it, so nothing was done. replaced: `*was` is what it had.
   enum class Insert { added, replaced, full };
   Insert insert( Ipv4Prefix prefix, std::uint32_t value, bool room, std::uint32_t * was = nullptr );
   // False when the prefix isn't there.
   bool remove( Ipv4Prefix prefix, std::uint32_t * was = nullptr );

   std::optional< Route > lookup( Ipv4Addr addr ) const;
   struct Match {
      std::uint32_t value; // kNoMatch: there is none
      std::uint8_t len;    // of the prefix
   };
   static constexpr std::uint32_t kNoMatch = 0xffffffff;
   // Of several addresses, with their loads under way at once. REQUIRES: addrs.size() <= kMostAtOnce, and as many
   // matches
   static constexpr std::size_t kMostAtOnce = 64;
   void lookup( std::span< const Ipv4Addr > addrs, Match * matches ) const;
   std::optional< std::uint32_t > exact( Ipv4Prefix prefix ) const;

   std::size_t size() const { return rules_.size(); }
   // In no order.
   std::vector< Route > routes() const;

 private:
   using Key = std::uint64_t;

   static Key keyOf( Ipv4Prefix prefix ) { return Key( prefix.addr.value ) << 8 | prefix.len; }
   static Ipv4Prefix prefixOf( Key key ) { return { { std::uint32_t( key >> 8 ) }, std::uint8_t( key & 255 ) }; }

   // Changes what the prefix, of length 1 to 32, covers at its level: `change` makes of each entry what it is to be.
   // `users` more prefixes stand there then.
   template < typename Change >
   void write( Ipv4Prefix prefix, int users, Change change );
   template < typename Change >
   void writeHosts( LpmEntry & root, Ipv4Prefix prefix, int users, Change change );
   // The longest shorter prefix of the same level that covers this one; length 0 when there is none.
   LpmEntry shorterAtLevel( Ipv4Prefix prefix ) const;
   Match matchOf( LpmEntry best ) const;
   void giveBackBelow( const LpmEntry & owner );

   LpmPool & pool_;
   std::unique_ptr< LpmEntry[], decltype( &std::free ) > root_;
   absl::flat_hash_map< Key, std::uint32_t > rules_;
   std::array< std::uint32_t, 33 > byLength_{}; // prefixes of each length
   std::optional< std::uint32_t > default_;
   // Of the last prefixes that are expected: the first of them knows its block when its root has come.
   std::array< Ipv4Addr, 4 > expected_{};
   unsigned expecting_ = 0;
};

} // namespace Vexdp
