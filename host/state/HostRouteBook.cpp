#include "HostRouteBook.h"

namespace Host {

const char * textOfSource( Source source ) {
   switch ( source.value() ) {
   case Source::none_: return "nobody";
   case Source::connected_: return "an interface's address";
   case Source::command_: return "a command";
   case Source::description_: return "the description";
   case Source::routeFile_: return "the route file";
   case Source::neighbor_: return "a neighbour";
   }
   return "nobody";
}

template < typename P >
void RouteBook< P >::routeIs( U32 vrfId, const P & prefix, Source source, Mirel::RouteType kind, U64 fecId ) {
   const Mirel::Route route( kind, fecId, source.value() );
   const auto slot = fib_->slot( vrfId, prefix );
   const auto present = slot ? fib_->routeAt( *slot ) : Mirel::Route();
   if ( present == route ) return;
   // Before the former FEC is released: it may be the same one.
   fecs_.use( fecId );
   if ( slot && sourceOf( present ) < source ) {
      const auto [ at, added ] = waiting_[ { vrfId, prefix } ].try_emplace( source, route );
      counts_[ source.value() ] += added;
      if ( added ) return;
      const auto former = std::exchange( at->second, route );
      fecs_.release( former.fecId() );
      return;
   }
   fib_->routeIs( vrfId, prefix, route );
   if ( slot && sourceOf( present ) == source ) {
      fecs_.release( present.fecId() );
      return;
   }
   ++counts_[ source.value() ];
   if ( slot ) waiting_[ { vrfId, prefix } ][ sourceOf( present ) ] = present;
}

template < typename P >
bool RouteBook< P >::routeDel( U32 vrfId, const P & prefix, Source source ) {
   const auto slot = fib_->slot( vrfId, prefix );
   if ( !slot ) return false;
   auto gone = fib_->routeAt( *slot );
   const auto waiting = waiting_.find( { vrfId, prefix } );
   if ( sourceOf( gone ) == source ) {
      if ( waiting == waiting_.end() )
         fib_->routeDel( vrfId, prefix );
      else
         fib_->routeIs( vrfId, prefix, waiting->second.extract( waiting->second.begin() ).mapped() );
   } else {
      if ( waiting == waiting_.end() ) return false;
      const auto at = waiting->second.find( source );
      if ( at == waiting->second.end() ) return false;
      gone = at->second;
      waiting->second.erase( at );
   }
   if ( waiting != waiting_.end() && waiting->second.empty() ) waiting_.erase( waiting );
   --counts_[ source.value() ];
   fecs_.release( gone.fecId() );
   return true;
}

template < typename P >
void RouteBook< P >::vrfDel( U32 vrfId ) {
   for ( U32 slot = 0; fib_->routes( vrfId ) != 0 && slot < fib_->slots(); ++slot )
      while ( fib_->slotHas( slot ) && fib_->refAt( slot ).vrfId == vrfId )
         routeDel( vrfId, fib_->refAt( slot ).prefix, sourceOf( fib_->routeAt( slot ) ) );
}

template < typename P >
Source RouteBook< P >::source( U32 vrfId, const P & prefix ) const {
   const auto slot = fib_->slot( vrfId, prefix );
   return slot ? sourceOf( fib_->routeAt( *slot ) ) : Source();
}

template < typename P >
bool RouteBook< P >::routeHas( U32 vrfId, const P & prefix, Source source ) const {
   if ( this->source( vrfId, prefix ) == source ) return true;
   const auto waiting = waiting_.find( { vrfId, prefix } );
   return waiting != waiting_.end() && waiting->second.contains( source );
}

template < typename P >
std::vector< std::pair< U32, P > > RouteBook< P >::prefixes( Source source ) const {
   auto found = waitingPrefixes( source );
   for ( U32 slot = 0; slot < fib_->slots() && found.size() < routes( source ); ++slot ) {
      if ( !fib_->slotHas( slot ) || sourceOf( fib_->routeAt( slot ) ) != source ) continue;
      const auto ref = fib_->refAt( slot );
      found.emplace_back( ref.vrfId, ref.prefix );
   }
   return found;
}

template < typename P >
std::vector< std::pair< U32, P > > RouteBook< P >::waitingPrefixes( Source source ) const {
   std::vector< std::pair< U32, P > > found;
   for ( const auto & [ key, routes ] : waiting_ )
      if ( routes.contains( source ) ) found.push_back( key );
   return found;
}

template class RouteBook< Kynet::Prefix >;
template class RouteBook< Kynet::Ip6Prefix >;

} // namespace Host
