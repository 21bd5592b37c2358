// The anti-replay window of an inbound security association (RFC 4303, section 3.4.3).
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace Vexdp {

class ReplayWindow {
 public:
   // So many packets may come late. 0: nothing is checked.
   explicit ReplayWindow( std::uint32_t size = 0 ) : seen_( size ) {}

   // False: it has come before, is too old to tell, or is 0, which is never sent.
   bool admits( std::uint32_t sequence ) const {
      if ( seen_.empty() ) return true;
      if ( sequence == 0 ) return false;
      if ( sequence > highest_ ) return true;
      return highest_ - sequence < seen_.size() && !seen_[ sequence % seen_.size() ];
   }
   // REQUIRES: admits( sequence ), and the packet is authentic
   void note( std::uint32_t sequence ) {
      if ( seen_.empty() ) {
         highest_ = std::max( highest_, sequence );
         return;
      }
      if ( sequence > highest_ ) {
         if ( sequence - highest_ >= seen_.size() )
            seen_.assign( seen_.size(), false );
         else
            for ( auto skipped = highest_ + 1; skipped < sequence; ++skipped ) seen_[ skipped % seen_.size() ] = false;
         highest_ = sequence;
      }
      seen_[ sequence % seen_.size() ] = true;
   }
   // What has come stays told; of numbers that were too old for the smaller window nobody knows, and none is taken.
   void sizeIs( std::uint32_t size ) {
      if ( size == seen_.size() ) return;
      std::vector< bool > seen( size );
      for ( std::uint32_t back = 0; back < size && back < highest_; ++back )
         seen[ ( highest_ - back ) % size ] = !admits( highest_ - back ) || seen_.empty();
      seen_ = std::move( seen );
   }

 private:
   std::vector< bool > seen_; // by the number's remainder
   std::uint32_t highest_ = 0;
};

} // namespace Vexdp
