#include "HulWays.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace Hul {

namespace {

NextHopEntryType typeOf( const Mirel::Via & via ) {
   switch ( via.kind() ) {
   case Mirel::RouteType::receive_: return NextHopEntryType::receive();
   case Mirel::RouteType::drop_:
   case Mirel::RouteType::none_: return NextHopEntryType::drop();
   case Mirel::RouteType::broadcast_: return NextHopEntryType::slowReceiveBroadcast();
   case Mirel::RouteType::attached_: return NextHopEntryType::unresolved();
   case Mirel::RouteType::forward_:
      // Without a hop there is nobody to resolve: the packets' own destinations are.
      return via.hopHas() ? NextHopEntryType::forward() : NextHopEntryType::unresolved();
   }
   return NextHopEntryType::drop();
}

// The way of one via by each of the paths, and its own where there are none.
void add( Ways & ways, U32 via, const Mirel::Via & from, const Paths * paths ) {
   if ( paths == nullptr ) {
      // A drop is of no interface, also where its via names what it lacks. What is for the router by an address of a
      // tunnel is of none either: a tunnel's chain ends at its other end, and what is of no interface leaves the FIB by
      // the gate for the router itself.
      const auto type = typeOf( from );
      const bool none = type == NextHopEntryType::drop_ ||
                        ( type == NextHopEntryType::receive_ && Kynet::TunnelIntfId::isTunnelIntfId( from.intfId() ) );
      ways.push_back( { type, none ? Kynet::IntfId() : from.intfId(), from.hop(), {}, 1, via } );
      return;
   }
   if ( paths->empty() ) ways.push_back( { NextHopEntryType::drop(), from.intfId(), {}, {}, 1, via } );
   for ( const auto & path : *paths )
      ways.push_back( { NextHopEntryType::forward(), path.intfId, path.hop, from.intfId(), path.weight, via } );
}

} // namespace

void spread( const std::vector< ShareGroup > & groups, std::vector< U32 > & shares ) {
   constexpr U64 most = std::numeric_limits< U32 >::max();
   const auto sumOf = [ & ]( size_t first, const ShareGroup & group ) {
      const auto from = shares.begin() + static_cast< std::ptrdiff_t >( first );
      return std::max< U64 >( 1, std::accumulate( from, from + group.members, U64( 0 ) ) );
   };
   U64 common = 1;
   size_t at = 0;
   for ( const auto & group : groups ) {
      common = std::min( most, std::lcm( common, sumOf( at, group ) ) );
      at += group.members;
   }
   // Shares and what they are multiplied by stay below 2^32, and their product below 2^48.
   const auto partOf = [ & ]( U64 sum, U32 share, U32 weight ) {
      return std::max< U64 >( 1, std::max< U64 >( 1, common / sum ) * share ) * weight;
   };
   const auto each = [ & ]( const auto & act ) {
      size_t next = 0;
      for ( const auto & group : groups ) {
         const auto sum = sumOf( next, group );
         for ( const auto end = next + group.members; next != end; ++next ) act( shares[ next ], sum, group.weight );
      }
   };
   U64 divisor = 0;
   each( [ & ]( U32 share, U64 sum, U32 weight ) { divisor = std::gcd( divisor, partOf( sum, share, weight ) ); } );
   std::vector< U32 > parts;
   parts.reserve( shares.size() );
   each( [ & ]( U32 share, U64 sum, U32 weight ) {
      parts.push_back( static_cast< U32 >( std::min( most, partOf( sum, share, weight ) / divisor ) ) );
   } );
   shares.swap( parts );
}

Ways waysOf( const Mirel::Vias & vias, const std::function< const Paths &( Kynet::IntfId tunnelIntfId ) > & pathsOf ) {
   Ways ways;
   std::vector< ShareGroup > groups;
   for ( U32 position = 0; position < vias.size(); ++position ) {
      const auto & via = vias[ position ];
      const bool tunnel =
           via.kind() == Mirel::RouteType::forward_ && Kynet::TunnelIntfId::isTunnelIntfId( via.intfId() );
      const auto before = ways.size();
      add( ways, position, via, tunnel ? &pathsOf( via.intfId() ) : nullptr );
      groups.push_back( { static_cast< U32 >( ways.size() - before ), std::max< U32 >( 1, via.weight() ) } );
   }
   std::vector< U32 > shares;
   shares.reserve( ways.size() );
   for ( const auto & way : ways ) shares.push_back( way.multiplicity );
   spread( groups, shares );
   for ( size_t at = 0; at < ways.size(); ++at ) ways[ at ].multiplicity = shares[ at ];
   return ways;
}

} // namespace Hul
