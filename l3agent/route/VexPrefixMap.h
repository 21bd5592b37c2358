// Containers keyed by VRF and prefix. A router holds its routes twice, in the database and in the route set of a FEC,
// and nearly all of them are IPv4: so each family has a flat table of its own, and an IPv4 key takes 12 bytes instead
// of 24.
#pragma once

#include "GantFlat.h"
#include "HulTypes.h"

#include <tuple>

namespace VexL3Unicast {

namespace detail {

struct V4Key {
   U32 vrf;
   U32 address;
   U8 len;
   friend bool operator==( const V4Key &, const V4Key & ) = default;
   size_t hash() const { return Gant::Hash().word( U64( vrf ) << 32 | address ).word( len ).value(); }
};

inline V4Key v4Key( const Hul::VrfAndIpGenPrefix & key ) {
   const auto prefix = key.prefix().v4Prefix();
   return { key.vrfId().value(), prefix.address().value(), prefix.len() };
}

inline Hul::VrfAndIpGenPrefix fromV4Key( const V4Key & key ) {
   return Hul::VrfAndIpGenPrefix( Hul::VrfId( key.vrf ), Kynet::Prefix( Kynet::IpAddr( key.address ), key.len ) );
}

inline bool isV4( const Hul::VrfAndIpGenPrefix & key ) { return key.prefix().af() == Kynet::AddressFamily::ipv4_; }

} // namespace detail

// Behaves like the containers of GantCollection.h. Iteration gives IPv4 first, in no order, and ends with any change.
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
      if ( detail::isV4( key ) ) {
         const auto [ at, added ] = v4_.try_emplace( detail::v4Key( key ) );
         return { &at->second, added };
      }
      const auto [ at, added ] = v6_.try_emplace( key );
      return { &at->second, added };
   }
   // Null when there is none.
   const Value * get( const key_type & key ) const {
      if ( detail::isV4( key ) ) {
         const auto at = v4_.find( detail::v4Key( key ) );
         return at == v4_.end() ? nullptr : &at->second;
      }
      const auto at = v6_.find( key );
      return at == v6_.end() ? nullptr : &at->second;
   }
   size_t erase( const key_type & key ) {
      return detail::isV4( key ) ? v4_.erase( detail::v4Key( key ) ) : v6_.erase( key );
   }
   size_t size() const { return v4_.size() + v6_.size(); }
   void clear() {
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
   V4 v4_;
   V6 v6_;
};

class PrefixSet {
   using V4 = Gant::FlatSet< detail::V4Key >;
   using V6 = Gant::FlatSet< Hul::VrfAndIpGenPrefix >;

 public:
   using key_type = Hul::VrfAndIpGenPrefix;

   // Whether it was not there.
   bool insert( const key_type & key ) {
      return detail::isV4( key ) ? v4_.insert( detail::v4Key( key ) ).second : v6_.insert( key ).second;
   }
   size_t erase( const key_type & key ) {
      return detail::isV4( key ) ? v4_.erase( detail::v4Key( key ) ) : v6_.erase( key );
   }
   bool contains( const key_type & key ) const {
      return detail::isV4( key ) ? v4_.contains( detail::v4Key( key ) ) : v6_.contains( key );
   }
   size_t size() const { return v4_.size() + v6_.size(); }
   // A copy of the members, IPv4 first, each family in order.
   std::vector< key_type > keys() const;

 private:
   V4 v4_;
   V6 v6_;
};

} // namespace VexL3Unicast
