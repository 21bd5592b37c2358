#include "HostRouteBook.h"

namespace Host {

const char * textOfTeller( Teller teller ) {
   switch ( teller.value() ) {
   case Teller::none_: return "nobody";
   case Teller::connected_: return "an interface's address";
   case Teller::command_: return "a command";
   case Teller::description_: return "the description";
   case Teller::routeFile_: return "the route file";
   case Teller::neighbor_: return "a neighbour";
   case Teller::kernel_: return "the kernel";
   }
   return "nobody";
}

template < typename P >
void RouteBook< P >::routeIs( U32 vrfId, const P & prefix, Teller teller, Mirel::RouteType kind, U64 fecId ) {
   const Mirel::Route route( kind, fecId, teller.value() );
   const auto slot = fib_->slot( vrfId, prefix );
   const auto present = slot ? fib_->routeAt( *slot ) : Mirel::Route();
   if ( present == route ) return;
   // Before the former FEC is released: it may be the same one.
   fecs_.use( fecId );
   if ( slot && tellerOf( present ) < teller ) {
      const auto [ at, added ] = waiting_[ { vrfId, prefix } ].try_emplace( teller, route );
      counts_[ teller.value() ] += added;
      if ( added ) return;
      const auto former = std::exchange( at->second, route );
      fecs_.release( former.fecId() );
      return;
   }
   fib_->routeIs( vrfId, prefix, route );
   if ( slot && tellerOf( present ) == teller ) {
      fecs_.release( present.fecId() );
      return;
   }
   ++counts_[ teller.value() ];
   if ( slot ) waiting_[ { vrfId, prefix } ][ tellerOf( present ) ] = present;
}

template < typename P >
bool RouteBook< P >::routeDel( U32 vrfId, const P & prefix, Teller teller ) {
   const auto slot = fib_->slot( vrfId, prefix );
   if ( !slot ) return false;
   auto gone = fib_->routeAt( *slot );
   const auto waiting = waiting_.find( { vrfId, prefix } );
   if ( tellerOf( gone ) == teller ) {
      if ( waiting == waiting_.end() )
         fib_->routeDel( vrfId, prefix );
      else
         fib_->routeIs( vrfId, prefix, waiting->second.extract( waiting->second.begin() ).mapped() );
   } else {
      if ( waiting == waiting_.end() ) return false;
      const auto at = waiting->second.find( teller );
      if ( at == waiting->second.end() ) return false;
      gone = at->second;
      waiting->second.erase( at );
   }
   if ( waiting != waiting_.end() && waiting->second.empty() ) waiting_.erase( waiting );
   --counts_[ teller.value() ];
   fecs_.release( gone.fecId() );
   return true;
}

template < typename P >
void RouteBook< P >::vrfDel( U32 vrfId ) {
   for ( U32 slot = 0; fib_->routes( vrfId ) != 0 && slot < fib_->slots(); ++slot )
      while ( fib_->slotHas( slot ) && fib_->refAt( slot ).vrfId == vrfId )
         routeDel( vrfId, fib_->refAt( slot ).prefix, tellerOf( fib_->routeAt( slot ) ) );
}

template < typename P >
Teller RouteBook< P >::teller( U32 vrfId, const P & prefix ) const {
   const auto slot = fib_->slot( vrfId, prefix );
   return slot ? tellerOf( fib_->routeAt( *slot ) ) : Teller();
}

template < typename P >
bool RouteBook< P >::routeHas( U32 vrfId, const P & prefix, Teller teller ) const {
   if ( this->teller( vrfId, prefix ) == teller ) return true;
   const auto waiting = waiting_.find( { vrfId, prefix } );
   return waiting != waiting_.end() && waiting->second.contains( teller );
}

template < typename P >
std::vector< std::pair< U32, P > > RouteBook< P >::prefixes( Teller teller ) const {
   auto found = waitingPrefixes( teller );
   for ( U32 slot = 0; slot < fib_->slots() && found.size() < routes( teller ); ++slot ) {
      if ( !fib_->slotHas( slot ) || tellerOf( fib_->routeAt( slot ) ) != teller ) continue;
      const auto ref = fib_->refAt( slot );
      found.emplace_back( ref.vrfId, ref.prefix );
   }
   return found;
}

template < typename P >
std::vector< std::pair< U32, P > > RouteBook< P >::waitingPrefixes( Teller teller ) const {
   std::vector< std::pair< U32, P > > found;
   for ( const auto & [ key, routes ] : waiting_ )
      if ( routes.contains( teller ) ) found.push_back( key );
   return found;
}

template class RouteBook< Kynet::Prefix >;
template class RouteBook< Kynet::Ip6Prefix >;

} // namespace Host
