// The keys and records that the hardware-abstraction layer shares with its helpers.
//
// A route carries no next hops. It names an adjacency by index, and the adjacency carries the next hops; routes with
// equal ways out share one adjacency.
#pragma once

#include "GantAttr.h"
#include "GantEnum.h"
#include "GantValue.h"
#include "KynetAddr.h"
#include "KynetIntfId.h"
#include "StateBridging.h"
#include "StateL3.h"

#include <utility>
#include <vector>

namespace HulTypes {

// Position of a word in a ViaBitmap.
class ViaBitmapIndex {
   GANT_RANGED( ViaBitmapIndex, U32, 0, 0, 64,
                "ViaBitmapIndex::value < ViaBitmapIndex::min or > ViaBitmapIndex::max not allowed" )
};

// Which vias of a route lead to a next hop: bit n is via n, in 64-bit words from the lowest.
class ViaBitmap {
 public:
   static constexpr U32 vias = 65 * 64;

   // `via` below `vias`.
   void viaIs( U32 via );
   bool viaHas( U32 via ) const;
   // The word at the index; 0 beyond the last one that is set.
   U64 bitList( ViaBitmapIndex index ) const;
   void bitListIs( ViaBitmapIndex index, U64 word );

   friend bool operator==( const ViaBitmap &, const ViaBitmap & ) = default;
   friend auto operator<=>( const ViaBitmap &, const ViaBitmap & ) = default;
   size_t hash() const;
   // "[5, 0, 1]"
   Gant::String strep() const;

 private:
   U64 first_ = 0;           // the word at 0, the only one that most routes need
   std::vector< U64 > more_; // the words after it; the last one is not 0
};

} // namespace HulTypes

namespace Pbr {
class NexthopIndex {
   GANT_SCALAR( NexthopIndex, U64, U64( -1 ) )
};
} // namespace Pbr

namespace Hul {

class VrfId {
   GANT_SCALAR( VrfId, U32, 0 )
   static constexpr VrfId defaultVrfId() { return VrfId( 0 ); }
};

class VrfAndIpAddr {
   GANT_VALUE( "Hul::VrfAndIpAddr", VrfAndIpAddr, ( VrfId, vrfId ), ( Kynet::IpAddr, ipAddr ) )
};

class VrfAndPrefix {
   GANT_VALUE( "Hul::VrfAndPrefix", VrfAndPrefix, ( VrfId, vrfId ), ( Kynet::Prefix, prefix ) )
};

class VrfAndIp6Prefix {
   GANT_VALUE( "Hul::VrfAndIp6Prefix", VrfAndIp6Prefix, ( VrfId, vrfId ), ( Kynet::Ip6Prefix, prefix ) )
};

class VrfAndIpGenPrefix {
   GANT_VALUE( "Hul::VrfAndIpGenPrefix", VrfAndIpGenPrefix, ( VrfId, vrfId ), ( Kynet::IpGenPrefix, prefix ) )
};

class L2AdjKey {
   GANT_VALUE( "Hul::L2AdjKey", L2AdjKey, ( U64, index ) )
};

// What a route is to its helper. A `routeType` of 0 means that the prefix has no route.
class RouteInfo {
   GANT_VALUE( "Hul::RouteInfo", RouteInfo, ( U8, routeType ), ( U64, adjIndex ) )
};

// The kinds of routing that are on for a VLAN.
class RoutingState {
   GANT_VALUE( "Hul::RoutingState", RoutingState, ( bool, routingEnabled ), ( bool, routing6Enabled ),
               ( bool, multicastRoutingEnabled ), ( bool, mplsRoutingEnabled ) )
};

// What a next hop is. Helpers go by the numbers.
GANT_ENUM( NextHopEntryType, U8, ( unresolved, 0 ), // trapped, for address resolution
           ( receive, 1 ),                          // the router's own address
           ( forward, 2 ),                          // a resolved neighbour
           ( drop, 3 ), ( slowReceive, 4 ), ( slowReceiveBroadcast, 5 ) )

class TunnelKey {
   GANT_VALUE( "Hul::TunnelKey", TunnelKey, ( VrfId, vrfId ), ( Kynet::IpGenAddr, dstIpAddr ) )
};

// Layer-2 facts of a next hop behind a VXLAN tunnel.
class TunnelL2Info : public Gant::PtrInterface {
 public:
   explicit TunnelL2Info( TunnelKey tunnelKey ) : tunnelKey_( std::move( tunnelKey ) ) {}
   GANT_CONST( TunnelKey, tunnelKey )
};

// One resolved way out. For a way through a static-interface tunnel, `l3Intf`, `l2Intf` and `macAddr` are those of the
// underlay's next hop.
class NextHop {
   GANT_VALUE_FIELDS( "Hul::NextHop", NextHop, ( NextHopEntryType, type ), ( Kynet::IntfId, l3Intf ),
                      ( Kynet::IntfId, l2Intf ), ( Kynet::IntfId, staticInterfaceTunnelIntfId ),
                      ( Kynet::EthAddr, macAddr ) )
   GANT_VALUE_COMPARE( NextHop )
   GANT_VALUE_HASH()

   // Only of a VXLAN next hop, and no part of its identity.
   const Gant::Ptr< TunnelL2Info > & tunnelL2Info() const { return tunnelL2Info_; }
   void tunnelL2InfoIs( Gant::Ptr< TunnelL2Info > info ) { tunnelL2Info_ = std::move( info ); }

 private:
   Gant::Ptr< TunnelL2Info > tunnelL2Info_;
};

// The ways out of an adjacency: unique next hops with the multiplicity that their weights give, in the next hops'
// order.
class NextHopCollection {
 public:
   using NextHops = std::vector< std::pair< NextHop, U32 > >;

   // Adds to what the next hop has. `via` is the via's position in its route.
   void nextHopInc( const NextHop & nextHop, U32 multiplicity, U32 via );
   // As given, also a multiplicity of 0.
   void nextHopIs( const NextHop & nextHop, U32 multiplicity ) { nextHops_[ slot( nextHop ) ].second = multiplicity; }
   // Keeps its memory for the next filling.
   void clear();
   void swap( NextHopCollection & other ) noexcept;
   NextHops::const_iterator begin() const { return nextHops_.begin(); }
   NextHops::const_iterator end() const { return nextHops_.end(); }
   size_t size() const { return nextHops_.size(); }
   // Empty for a next hop that is not there.
   const HulTypes::ViaBitmap & nextHopBitmap( const NextHop & nextHop ) const;
   friend bool operator==( const NextHopCollection & a, const NextHopCollection & b ) {
      return a.nextHops_ == b.nextHops_ && a.bitmaps_ == b.bitmaps_;
   }

 private:
   size_t slot( const NextHop & nextHop );

   NextHops nextHops_;                          // sorted
   std::vector< HulTypes::ViaBitmap > bitmaps_; // of the next hop at the same position
};

// One use of an adjacency by the routing layer.
class AdjEntry : public Gant::PtrInterface {
 public:
   AdjEntry( U64 adjIndex, U8 routeType, U64 fibFecId ) :
        adjIndex_( adjIndex ), routeType_( routeType ), fibFecId_( fibFecId ) {}
   GANT_CONST( U64, adjIndex )
   GANT_CONST( U8, routeType )
   GANT_CONST( U64, fibFecId )
};

// An adjacency: the resolved ways out that its routes share. The layer owns it and changes `via`; helpers read it.
class L2Adjacency : public Gant::PtrInterface {
 public:
   using AdjEntries = Gant::OrderedMap< U64, Gant::Ptr< AdjEntry > >; // by fibFecId
   explicit L2Adjacency( L2AdjKey key ) : key_( key ) {}
   GANT_CONST( L2AdjKey, key )
   GANT_ATTR( NextHopCollection, via )
   // Takes the argument's ways out and gives it the former ones, without allocation.
   void viaSwap( NextHopCollection & via ) { via_.swap( via ); }
   GANT_MAP( AdjEntries, adjEntry )
};

// 0 failure, 1 success.
GANT_ENUM( AdjUpdateStatus, U8, ( adjUpdateFailed, 0 ), ( adjUpdateSucceeded, 1 ) )

// The answer to an update of an adjacency, and whether its prefixes are to be walked later, which updates it again.
class AdjUpdateReturnType {
   GANT_VALUE( "Hul::AdjUpdateReturnType", AdjUpdateReturnType, ( AdjUpdateStatus, updateStatus ),
               ( bool, prefixWalkRequired ) )
};

GANT_ENUM( HulRouteUpdateStatus, U8, ( routeUpdateFailed, 0 ), ( routeUpdateSucceeded, 1 ) )

class EgressPrefixIndex {
   GANT_VALUE( "Hul::EgressPrefixIndex", EgressPrefixIndex, ( VrfId, vrfId ), ( Kynet::Prefix, prefix ) )
};

class EgressIp6PrefixIndex {
   GANT_VALUE( "Hul::EgressIp6PrefixIndex", EgressIp6PrefixIndex, ( VrfId, vrfId ), ( Kynet::Ip6Prefix, prefix ) )
};

} // namespace Hul
