#include "HostRouteBook.h"

#include <algorithm>
#include <limits>

namespace Host {

template < typename P >
Offer RouteBook< P >::holderAt( U32 slot ) const {
   const auto route = fib_->routeAt( slot );
   const auto mark = marks_[ slot ];
   return { route.fecId(), mark.origin, mark.generation, route.routeType() };
}

template < typename P >
bool RouteBook< P >::sameKey( OriginId a, OriginId b ) const {
   if ( a == b ) return true;
   const auto & left = origins_.at( a );
   const auto & right = origins_.at( b );
   return left.teller == right.teller && left.metric == right.metric;
}

template < typename P >
void RouteBook< P >::hold( U32 slot, const Offer & offer ) {
   marks_[ slot ] = { offer.origin, offer.generation };
   fib_->routeAtIs( slot, Mirel::Route( offer.kind, offer.fecId, origins_.at( offer.origin ).teller.value() ) );
}

template < typename P >
void RouteBook< P >::came( const Offer & offer ) {
   auto & side = this->side( offer.origin );
   ++side.offers;
   ++side.fresh;
   ++side.met;
}

template < typename P >
void RouteBook< P >::went( const Offer & offer ) {
   auto & side = this->side( offer.origin );
   --side.offers;
   if ( offer.generation == side.generation ) --side.fresh;
   fecs_.release( offer.fecId );
}

template < typename P >
void RouteBook< P >::retold( const Offer & former, const Offer & offer ) {
   auto & side = this->side( offer.origin );
   if ( former.generation != offer.generation ) {
      ++side.fresh;
      ++side.met;
   }
   fecs_.release( former.fecId );
}

template < typename P >
std::optional< U32 > RouteBook< P >::routeIs( U32 vrfId, const P & prefix, OriginId origin, Mirel::RouteType kind,
                                              U64 fecId ) {
   if ( origin == 0 ) return std::nullopt;
   const Offer offer{ fecId, origin, generation( origin ), kind };
   // Before a former FEC is released: it may be the same one.
   fecs_.use( fecId );
   const auto slot = fib_->slot( vrfId, prefix );
   if ( !slot ) {
      const auto put =
           fib_->routeAdd( vrfId, prefix, Mirel::Route( kind, fecId, origins_.at( origin ).teller.value() ) );
      if ( !put ) {
         fecs_.release( fecId );
         return std::nullopt;
      }
      marks_.grow( *put + 1 );
      marks_[ *put ] = { origin, offer.generation };
      came( offer );
      return put;
   }
   const auto holder = holderAt( *slot );
   if ( sameKey( holder.origin, origin ) && ( holder.origin == origin || !waiting_.contains( *slot ) ) ) {
      hold( *slot, offer );
      retold( holder, offer );
   } else {
      offerBeside( *slot, holder, offer );
   }
   return slot;
}

// Several offers of one prefix, of which any may hold after it.
template < typename P >
void RouteBook< P >::offerBeside( U32 slot, Offer holder, const Offer & offer ) {
   auto & waiting = waiting_[ slot ];
   const auto at =
        std::ranges::find_if( waiting, [ & ]( const auto & one ) { return sameKey( one.origin, offer.origin ); } );
   if ( sameKey( holder.origin, offer.origin ) ) {
      retold( std::exchange( holder, offer ), offer );
   } else if ( at != waiting.end() ) {
      retold( std::exchange( *at, offer ), offer );
   } else {
      waiting.push_back( offer );
      came( offer );
   }
   const auto best =
        std::ranges::min_element( waiting, [ this ]( const auto & a, const auto & b ) { return before( a, b ); } );
   if ( before( *best, holder ) ) std::swap( *best, holder );
   hold( slot, holder );
}

template < typename P >
bool RouteBook< P >::routeDel( U32 vrfId, const P & prefix, Teller teller, U32 metric ) {
   const auto slot = fib_->slot( vrfId, prefix );
   return slot && delAt( *slot, teller, &metric, false );
}

// The source's offers at the slot: of one metric or all, all or the stale ones.
template < typename P >
bool RouteBook< P >::delAt( U32 slot, Teller teller, const U32 * metric, bool staleOnly ) {
   const auto meant = [ & ]( const Offer & offer ) {
      const auto & origin = origins_.at( offer.origin );
      return origin.teller == teller && ( metric == nullptr || origin.metric == *metric ) &&
             ( !staleOnly || stale( offer ) );
   };
   const auto holder = holderAt( slot );
   bool gone = false;
   const auto waiting = waiting_.empty() ? waiting_.end() : waiting_.find( slot );
   if ( waiting != waiting_.end() ) {
      auto & offers = waiting->second;
      for ( auto at = offers.begin(); at != offers.end(); ) {
         if ( !meant( *at ) ) {
            ++at;
            continue;
         }
         went( *at );
         at = offers.erase( at );
         gone = true;
      }
      if ( meant( holder ) && !offers.empty() ) {
         const auto best =
              std::ranges::min_element( offers, [ this ]( const auto & a, const auto & b ) { return before( a, b ); } );
         const auto next = *best;
         offers.erase( best );
         if ( offers.empty() ) waiting_.erase( waiting );
         hold( slot, next );
         went( holder );
         return true;
      }
      if ( offers.empty() ) waiting_.erase( waiting );
   }
   if ( !meant( holder ) ) return gone;
   const auto ref = fib_->refAt( slot );
   fib_->routeDel( ref.vrfId, ref.prefix );
   marks_.shrink( fib_->slots() );
   went( holder );
   return true;
}

template < typename P >
void RouteBook< P >::vrfDel( U32 vrfId ) {
   for ( U32 slot = 0; fib_->routes( vrfId ) != 0 && slot < fib_->slots(); ++slot )
      while ( fib_->slotHas( slot ) && fib_->refAt( slot ).vrfId == vrfId )
         delAt( slot, originAt( slot ).teller, nullptr, false );
}

template < typename P >
Teller RouteBook< P >::teller( U32 vrfId, const P & prefix ) const {
   const auto slot = fib_->slot( vrfId, prefix );
   return slot ? originAt( *slot ).teller : Teller();
}

template < typename P >
std::vector< Offer > RouteBook< P >::offers( U32 vrfId, const P & prefix ) const {
   const auto slot = fib_->slot( vrfId, prefix );
   if ( !slot ) return {};
   std::vector< Offer > offers{ holderAt( *slot ) };
   if ( const auto at = waiting_.find( *slot ); at != waiting_.end() )
      offers.insert( offers.end(), at->second.begin(), at->second.end() );
   std::sort( offers.begin() + 1, offers.end(), [ this ]( const auto & a, const auto & b ) { return before( a, b ); } );
   return offers;
}

template < typename P >
bool RouteBook< P >::routeHas( U32 vrfId, const P & prefix, Teller teller ) const {
   return std::ranges::any_of( offers( vrfId, prefix ),
                               [ & ]( const auto & offer ) { return originOf( offer ).teller == teller; } );
}

template < typename P >
bool RouteBook< P >::fresh( U32 vrfId, const P & prefix, Teller teller, std::optional< U32 > metric ) const {
   const auto slot = fib_->slot( vrfId, prefix );
   if ( !slot ) return false;
   const auto told = [ & ]( const Offer & offer ) {
      const auto & origin = originOf( offer );
      return origin.teller == teller && !stale( offer ) && ( !metric || *metric == origin.metric );
   };
   if ( told( holderAt( *slot ) ) ) return true;
   const auto at = waiting_.empty() ? waiting_.end() : waiting_.find( *slot );
   return at != waiting_.end() && std::ranges::any_of( at->second, told );
}

template < typename P >
std::vector< std::pair< U32, P > > RouteBook< P >::prefixes( Teller teller ) const {
   std::vector< std::pair< U32, P > > found;
   const auto of = [ & ]( const Offer & offer ) { return originOf( offer ).teller == teller; };
   if ( routes( teller ) == 0 ) return found;
   for ( U32 slot = 0; slot < fib_->slots(); ++slot ) {
      if ( !fib_->slotHas( slot ) ) continue;
      bool has = originAt( slot ).teller == teller;
      if ( !has && !waiting_.empty() )
         if ( const auto at = waiting_.find( slot ); at != waiting_.end() ) has = std::ranges::any_of( at->second, of );
      if ( !has ) continue;
      const auto ref = fib_->refAt( slot );
      found.emplace_back( ref.vrfId, ref.prefix );
   }
   return found;
}

// -- Marking and sweeping

template < typename P >
void RouteBook< P >::mark( Teller teller ) {
   auto & side = sides_[ teller.value() ];
   // The number comes round: what is stale from long ago must not look fresh.
   if ( staleRoutes( teller ) == 0 )
      side.marks = 0;
   else if ( side.marks == std::numeric_limits< U8 >::max() - 1 )
      flatten( teller );
   ++side.marks;
   ++side.generation;
   side.fresh = 0;
}

template < typename P >
void RouteBook< P >::flatten( Teller teller ) {
   auto & side = sides_[ teller.value() ];
   const auto of = [ & ]( OriginId origin ) { return origins_.at( origin ).teller == teller; };
   for ( U32 slot = 0; slot < fib_->slots(); ++slot )
      if ( fib_->slotHas( slot ) && of( marks_[ slot ].origin ) ) marks_[ slot ].generation = side.generation;
   for ( auto & [ slot, offers ] : waiting_ )
      for ( auto & offer : offers )
         if ( of( offer.origin ) ) offer.generation = side.generation;
   side.marks = 0;
}

template < typename P >
bool RouteBook< P >::sweep( Teller teller, U32 & at, size_t most ) {
   for ( ; staleRoutes( teller ) != 0 && at < fib_->slots(); ++at ) {
      if ( most-- == 0 ) return true;
      if ( fib_->slotHas( at ) ) delAt( at, teller, nullptr, true );
   }
   return false;
}

template < typename P >
size_t RouteBook< P >::bytes() const {
   return size_t( marks_.size() ) * sizeof( Mark ) + waiting_.capacity() * ( sizeof( U32 ) + sizeof( Waiting ) + 1 );
}

template class RouteBook< Kynet::Prefix >;
template class RouteBook< Kynet::Ip6Prefix >;

} // namespace Host
