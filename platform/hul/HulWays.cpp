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
      ways.push_back( { typeOf( from ), from.intfId(), from.hop(), {}, 1, via } );
      return;
   }
   if ( paths->empty() ) ways.push_back( { NextHopEntryType::drop(), from.intfId(), {}, {}, 1, via } );
   for ( const auto & path : *paths )
      ways.push_back( { NextHopEntryType::forward(), path.intfId, path.hop, from.intfId(), path.weight, via } );
}

} // namespace

void spread( const std::vector< U32 > & weights, std::vector< std::vector< U32 > > & shares ) {
   constexpr U64 most = std::numeric_limits< U32 >::max();
   std::vector< U64 > sums;
   U64 common = 1;
   for ( const auto & group : shares ) {
      sums.push_back( std::max< U64 >( 1, std::accumulate( group.begin(), group.end(), U64( 0 ) ) ) );
      common = std::min( most, std::lcm( common, sums.back() ) );
   }
   U64 divisor = 0;
   std::vector< std::vector< U64 > > parts( shares.size() );
   for ( size_t i = 0; i < shares.size(); ++i )
      for ( const auto share : shares[i] ) {
         const auto part = std::max< U64 >( 1, common / sums[i] * share ) * weights[i];
         divisor = std::gcd( divisor, part );
         parts[i].push_back( part );
      }
   for ( size_t i = 0; i < shares.size(); ++i )
      for ( size_t j = 0; j < shares[i].size(); ++j )
         shares[i][j] = static_cast< U32 >( std::min( most, parts[i][j] / divisor ) );
}

Ways waysOf( const Mirel::Vias & vias, const std::function< const Paths &( Kynet::IntfId tunnelIntfId ) > & pathsOf ) {
   Ways ways;
   std::vector< U32 > weights;
   std::vector< std::vector< U32 > > shares;
   for ( U32 position = 0; position < vias.size(); ++position ) {
      const auto & via = vias[position];
      const bool tunnel =
           via.kind() == Mirel::RouteType::forward_ && Kynet::TunnelIntfId::isTunnelIntfId( via.intfId() );
      const auto first = ways.size();
      add( ways, position, via, tunnel ? &pathsOf( via.intfId() ) : nullptr );
      weights.push_back( std::max< U32 >( 1, via.weight() ) );
      shares.emplace_back();
      for ( auto at = first; at < ways.size(); ++at ) shares.back().push_back( ways[at].multiplicity );
   }
   spread( weights, shares );
   auto way = ways.begin();
   for ( const auto & group : shares )
      for ( const auto multiplicity : group ) ( way++ )->multiplicity = multiplicity;
   return ways;
}

} // namespace Hul
