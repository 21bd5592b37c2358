// Prefixes for the benchmarks of the data plane: distinct, all over the unicast space, with a backbone's mix of
// lengths.
#pragma once

#include "DpTypes.h"

#include <absl/container/flat_hash_set.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <vector>

namespace DpBench {

// Shuffled, and always the same.
inline std::vector< Vexdp::Ipv4Prefix > backbonePrefixes( std::size_t count ) {
   // Per mille of each length.
   struct Share {
      std::uint8_t len;
      unsigned share;
   };
   static constexpr Share kShares[] = { { 24, 600 }, { 22, 80 }, { 23, 70 }, { 20, 60 }, { 21, 60 }, { 19, 60 },
                                        { 18, 25 },  { 16, 22 }, { 17, 15 }, { 15, 4 },  { 14, 3 },  { 12, 1 } };
   std::mt19937 random( 20240 );
   std::uniform_int_distribution< unsigned > perMille( 0, 999 );
   std::uniform_int_distribution< std::uint32_t > unicast( 0x01000000, 0xdfffffff );
   absl::flat_hash_set< std::uint64_t > seen;
   std::vector< Vexdp::Ipv4Prefix > prefixes;
   prefixes.reserve( count );
   while ( prefixes.size() < count ) {
      unsigned draw = perMille( random );
      const auto * share = std::begin( kShares );
      while ( draw >= share->share ) draw -= ( share++ )->share;
      const auto addr = unicast( random ) & Vexdp::maskOf( share->len );
      if ( seen.insert( std::uint64_t( addr ) << 8 | share->len ).second )
         prefixes.push_back( { { addr }, share->len } );
   }
   return prefixes;
}

} // namespace DpBench
