// A container keyed by VRF and prefix. Nearly all routes of a router are IPv4: so each family has a flat table of its
// own, and an IPv4 key takes 8 bytes instead of 24.
#pragma once

#include "GantFlat.h"
#include "HulTypes.h"

#include <utility>

namespace VexL3Unicast {

namespace detail {

// VRF, length and address from the top: 26, 6 and 32 bits.
using V4Key = U64;

inline V4Key v4Key( const Hul::VrfAndIpGenPrefix & key ) {
   const auto prefix = key.prefix().v4Prefix();
   return U64( key.vrfId().value() ) << 38 | U64( prefix.len() ) << 32 | prefix.address().value();
}

inline Hul::VrfAndIpGenPrefix fromV4Key( V4Key key ) {
   return Hul::VrfAndIpGenPrefix( Hul::VrfId( static_cast< U32 >( key >> 38 ) ),
                                  Kynet::Prefix( Kynet::IpAddr( static_cast< U32 >( key ) ), key >> 32 & 63 ) );
}

// A VRF id beyond 26 bits goes into the wide table.
inline bool isV4( const Hul::VrfAndIpGenPrefix & key ) {
   return key.prefix().af() == Kynet::AddressFamily::ipv4_ && key.vrfId().value() >> 26 == 0;
}

} // namespace detail

// Behaves like the containers of GantCollection.h. Iteration gives IPv4 first, in no order, and ends with any change.
//
// A change of a route reads the entry of its prefix many times. At a million routes the first time is a cache miss, and
// the others should be next to nothing: so the last entry that was found is kept at hand.
template < typename Value >
class PrefixMap {
   using V4 = Gant::FlatMap< detail::V4Key, Value >;
   using V6 = Gant::FlatMap< Hul::VrfAndIpGenPrefix, Value >;

 public:
   using key_type = Hul::VrfAndIpGenPrefix;
   using mapped_type = Value;
   struct Entry {
      Hul::VrfAndIpGenPrefix first;
      const Value & second;
   };

   // The present value of the key, made if there is none; and whether it was made.
   std::pair< Value *, bool > tryEmplace( const key_type & key ) {
      if ( !detail::isV4( key ) ) {
         const auto [ at, added ] = v6_.try_emplace( key );
         return { &at->second, added };
      }
      const auto v4Key = detail::v4Key( key );
      if ( last_ != nullptr && lastKey_ == v4Key ) return { last_, false };
      const auto [ at, added ] = v4_.try_emplace( v4Key );
      lastIs( v4Key, &at->second );
      return { &at->second, added };
   }
   // Null when there is none. Until the next change of the keys.
   Value * get( const key_type & key ) {
      if ( !detail::isV4( key ) ) {
         const auto at = v6_.find( key );
         return at == v6_.end() ? nullptr : &at->second;
      }
      const auto v4Key = detail::v4Key( key );
      if ( last_ != nullptr && lastKey_ == v4Key ) return last_;
      const auto at = v4_.find( v4Key );
      if ( at == v4_.end() ) return nullptr;
      lastIs( v4Key, &at->second );
      return &at->second;
   }
   size_t erase( const key_type & key ) {
      last_ = nullptr;
      if ( !detail::isV4( key ) ) return eraseFrom( v6_, key );
      return eraseFrom( v4_, detail::v4Key( key ) );
   }
   size_t size() const { return v4_.size() + v6_.size(); }
   void clear() {
      last_ = nullptr;
      v4_.clear();
      v6_.clear();
   }

   class const_iterator {
    public:
      const_iterator( const PrefixMap & map, typename V4::const_iterator v4, typename V6::const_iterator v6 ) :
           map_( &map ), v4_( v4 ), v6_( v6 ) {}
      Entry operator*() const {
         if ( v4_ != map_->v4_.end() ) return { detail::fromV4Key( v4_->first ), v4_->second };
         return { v6_->first, v6_->second };
      }
      const_iterator & operator++() {
         if ( v4_ != map_->v4_.end() )
            ++v4_;
         else
            ++v6_;
         return *this;
      }
      bool operator==( const const_iterator & other ) const { return v4_ == other.v4_ && v6_ == other.v6_; }

    private:
      const PrefixMap * map_;
      typename V4::const_iterator v4_;
      typename V6::const_iterator v6_;
   };
   const_iterator begin() const { return { *this, v4_.begin(), v6_.begin() }; }
   const_iterator end() const { return { *this, v4_.end(), v6_.end() }; }

 private:
   // A table that is nearly empty gives its memory back.
   template < typename Map, typename Key >
   static size_t eraseFrom( Map & map, const Key & key ) {
      const auto erased = map.erase( key );
      if ( map.capacity() > 65536 && map.size() < map.capacity() / 32 ) map.rehash( 0 );
      return erased;
   }
   void lastIs( detail::V4Key key, Value * value ) {
      lastKey_ = key;
      last_ = value;
   }

   V4 v4_;
   V6 v6_;
   detail::V4Key lastKey_ = 0;
   Value * last_ = nullptr; // null: none
};

} // namespace VexL3Unicast
