// Identifications of the outer headers that this router writes: one counter for each pair of ends and protocol, whoever
// wraps packets between them, so that no two packets on the way have the same one (RFC 6864).
#pragma once

#include "DpIpv4.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <memory>
#include <tuple>

namespace Vexdp {

class OuterIds {
 public:
   using Counter = std::shared_ptr< std::atomic< std::uint16_t > >;

   // Kept beyond its users, up to kMost or as many as are in use: a tunnel that is built again goes on.
   Counter of( Ipv4Addr src, Ipv4Addr dst, std::uint8_t proto ) {
      if ( counters_.size() >= most_ ) {
         std::erase_if( counters_, []( const auto & entry ) { return entry.second.use_count() == 1; } );
         most_ = std::max( kMost, 2 * counters_.size() );
      }
      auto & counter = counters_[ { src, dst, proto } ];
      if ( !counter ) counter = std::make_shared< std::atomic< std::uint16_t > >();
      return counter;
   }

 private:
   static constexpr std::size_t kMost = 8192;
   std::map< std::tuple< Ipv4Addr, Ipv4Addr, std::uint8_t >, Counter > counters_;
   std::size_t most_ = kMost;
};

} // namespace Vexdp
