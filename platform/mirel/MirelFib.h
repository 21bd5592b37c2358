// The FIBs that routing protocols fill and the hardware-abstraction layer follows.
//
// A route names a FEC, a forwarding equivalence class, and the FEC carries the vias: changing a FEC changes the ways
// out of all its routes in one write. Routes and FECs may come and go in any order; a route whose FEC is not there is
// kept, and waits. Prefixes are unique per VRF, FEC ids per FIB.
#pragma once

#include "GantEntity.h"
#include "GantEnum.h"
#include "GantValue.h"
#include "KynetAddr.h"
#include "KynetIntfId.h"
#include "MirelHashIndex.h"
#include "MirelSlab.h"

#include <array>
#include <optional>
#include <vector>

namespace Mirel {

// What a route, and each of its vias, does with a packet.
GANT_ENUM( RouteType, U8, ( none, 0 ), // no route
           ( forward, 1 ),             // to a next hop
           ( attached, 2 ),            // to whoever on the interface has the destination address
           ( receive, 3 ),             // to the router itself: an address of its own
           ( drop, 4 ),                // nowhere
           ( broadcast, 5 ) )          // to the router itself: the broadcast address of a connected subnet

// One way out.
class Via {
   // `hop` 0.0.0.0: none, which is so for every kind but `forward`, and for a `forward` into a tunnel. `intfId` may be
   // empty for `drop`. `weight` is relative to that of the other vias of the FEC; 0 counts as 1.
   GANT_VALUE( "Mirel::Via", Via, ( RouteType, kind ), ( Kynet::IpGenAddr, hop ), ( Kynet::IntfId, intfId ),
               ( U16, weight, 1 ) )
   bool hopHas() const { return hop_ != Kynet::IpGenAddr(); }
};

using Vias = std::vector< Via >;

class Route {
   // `protocol` is the writer's own mark and means nothing here.
   GANT_VALUE( "Mirel::Route", Route, ( RouteType, routeType ), ( U64, fecId ), ( U8, protocol ) )
};

// A route's place in its table. While the route is there, `slot` is its alone, from 0 to RouteTable::slots() - 1.
template < typename P >
struct RouteRef {
   U32 vrfId;
   P prefix;
   U32 slot;
};

template < typename P >
struct PrefixBits;
template <>
struct PrefixBits< Kynet::Prefix > {
   static constexpr U8 bits = 32;
};
template <>
struct PrefixBits< Kynet::Ip6Prefix > {
   static constexpr U8 bits = 128;
};

// The FIB of one family: P is Kynet::Prefix or Kynet::Ip6Prefix. A write is one look-up, and a route costs 20 bytes
// (32 in IPv6) and its part of the index, which is 11 to 22.
template < typename P >
class RouteTable : public Gant::Entity {
 public:
   using Prefix = P;
   using Address = std::decay_t< decltype( std::declval< P >().address() ) >;
   using Ref = RouteRef< P >;
   using Fecs = Gant::HashMap< U64, Vias >;

   class Notifiee : public Gant::NotifieeOf< RouteTable > {
    public:
      using Gant::NotifieeOf< RouteTable >::NotifieeOf;
      // After the change. Of a route that went, the slot stays unused until all have been told.
      virtual void onRoute( const Ref & ) {}
      virtual void onFec( const U64 & ) {}
   };
   GANT_NOTIFIER( Notifiee )

   // The most vias that a FEC can have.
   static constexpr size_t viasMax = 4096;

   using Entity::Entity;

   // Writes. Each that changes something tells the watchers, none of which may write to this table. False where nothing
   // can be stored: a prefix with host bits or of an impossible length, the route type `none`, more than viasMax vias.
   bool routeIs( U32 vrfId, const P & prefix, const Route & route ) {
      return routePut( vrfId, prefix, route ).has_value();
   }
   // The same, with the slot of the route.
   std::optional< U32 > routePut( U32 vrfId, const P & prefix, const Route & route );
   // The same of a prefix that has no route, without a look-up. REQUIRES: slot() gives nothing.
   std::optional< U32 > routeAdd( U32 vrfId, const P & prefix, const Route & route );
   // The route in the slot, without a look-up. REQUIRES: slotHas( slot )
   void routeAtIs( U32 slot, const Route & route );
   // False when there was no such route.
   bool routeDel( U32 vrfId, const P & prefix );
   bool fecIs( U64 fecId, const Vias & vias );
   // The FEC's routes stay, and wait for a FEC with that id.
   bool fecDel( U64 fecId );

   std::optional< Route > route( U32 vrfId, const P & prefix ) const;
   size_t routes() const { return slab_.taken(); }
   size_t routes( U32 vrfId ) const;
   // Counted up by each change of a route of the VRF, from 1.
   U64 sequence( U32 vrfId ) const;
   // Null: there is no such FEC.
   const Vias * fec( U64 fecId ) const;
   const Fecs & fecIterator() const { return fecs_; }
   // The slot of the route, as long as it is there.
   std::optional< U32 > slot( U32 vrfId, const P & prefix ) const;
   // The route with the longest prefix that holds the address.
   std::optional< Ref > match( U32 vrfId, const Address & address ) const;

   // A walk counts through the slots; it may pause, and meets every route that is there all the while.
   U32 slots() const { return slab_.size(); }
   bool slotHas( U32 slot ) const { return slot < slab_.size() && slab_[ slot ].routeType != RouteType::none_; }
   // REQUIRES: slotHas( slot )
   Ref refAt( U32 slot ) const;
   Route routeAt( U32 slot ) const;

   // What the routes occupy, without FECs.
   size_t bytes() const { return size_t( slab_.size() ) * sizeof( Entry ) + index_.bytes(); }

 private:
   struct Entry {
      Address address;
      U32 vrfId = 0;
      U32 fecLow = 0;
      U32 fecHigh = 0;
      U8 len = 0;
      RouteType::Value routeType = RouteType::none_;
      U8 protocol = 0;
   };
   struct Vrf {
      U64 sequence = 0;
      size_t routes = 0;
      std::array< U32, PrefixBits< P >::bits + 1 > lengths{}; // routes by prefix length
   };

   static U32 hashOf( U32 vrfId, const P & prefix );
   U32 find( U32 hash, U32 vrfId, const P & prefix ) const;
   Vrf & vrf( U32 vrfId );
   const Vrf * vrfHas( U32 vrfId ) const;
   static bool storable( const P & prefix, const Route & route );
   U32 add( U32 hash, U32 vrfId, const P & prefix, const Route & route );
   void store( Entry & entry, const Route & route );

   Slab< Entry > slab_;
   HashIndex index_;
   Gant::HashMap< U32, Vrf > vrfs_; // never shrinks: sequences go on
   std::pair< U32, Vrf * > lastVrf_{ 0, nullptr };
   Fecs fecs_;
};

// Why a route is not in the data plane although nothing that it needs is missing.
GANT_ENUM( UnprogrammedReason, U8, ( refused, 1 ), // by the data plane's helper
           ( familyNotSupported, 2 ),              // the data plane takes no routes of this family
           ( noRoom, 3 ) )                         // an interface has no room for its next hops

// The routes that the data plane does not hold, with the reason. Written by the hardware-abstraction layer.
class UnprogrammedTable : public Gant::Entity {
 public:
   class Key {
      GANT_VALUE( "Mirel::UnprogrammedTable::Key", Key, ( U32, vrfId ), ( Kynet::IpGenPrefix, prefix ) )
   };
   using Routes = Gant::OrderedMap< Key, UnprogrammedReason >;
   class Notifiee : public Gant::NotifieeOf< UnprogrammedTable > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onRoute( const Key & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( Routes, route, onRoute )
};

extern template class RouteTable< Kynet::Prefix >;
extern template class RouteTable< Kynet::Ip6Prefix >;

namespace Fib {

class RouteStatus : public RouteTable< Kynet::Prefix > {
 public:
   using RouteTable::RouteTable;
};
class UnprogrammedRouteStatus : public UnprogrammedTable {
 public:
   using UnprogrammedTable::UnprogrammedTable;
};

} // namespace Fib

namespace Fib6 {

class RouteStatus : public RouteTable< Kynet::Ip6Prefix > {
 public:
   using RouteTable::RouteTable;
};
class UnprogrammedRouteStatus : public UnprogrammedTable {
 public:
   using UnprogrammedTable::UnprogrammedTable;
};

} // namespace Fib6

} // namespace Mirel
