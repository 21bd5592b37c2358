// Routes of one FIB, by slot.
#pragma once

#include "GantTypes.h"

#include <vector>

namespace Host {

// A bit for each slot up to the highest that was ever in.
class SlotBits {
 public:
   bool has( U32 slot ) const { return slot / 64 < words_.size() && ( words_[ slot / 64 ] >> slot % 64 & 1 ) != 0; }
   void add( U32 slot );
   void remove( U32 slot );
   void addAll( const SlotBits & other );
   // The first one from `slot` on; end() and more: none.
   U32 next( U32 slot ) const;
   U32 end() const { return static_cast< U32 >( words_.size() * 64 ); }
   void clear() { words_ = {}; }

 private:
   std::vector< U64 > words_;
};

// Routes that are looked at, each from time to time: from the one behind the last look on, and round again.
class SlotRound {
 public:
   bool has( U32 slot ) const { return bits_.has( slot ); }
   void add( U32 slot ) {
      if ( bits_.has( slot ) ) return;
      bits_.add( slot );
      ++size_;
   }
   void remove( U32 slot ) {
      if ( !bits_.has( slot ) ) return;
      bits_.remove( slot );
      --size_;
   }
   size_t size() const { return size_; }
   // The one to be looked at, which stays. REQUIRES: size() != 0
   U32 next() {
      auto slot = bits_.next( at_ );
      if ( slot >= bits_.end() ) slot = bits_.next( 0 );
      at_ = slot + 1;
      return slot;
   }

 private:
   SlotBits bits_;
   size_t size_ = 0;
   U32 at_ = 0;
};

} // namespace Host
