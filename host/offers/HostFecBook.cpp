#include "HostFecBook.h"

#include <algorithm>

namespace Host {

namespace {

bool needsVrf( const Ways & ways ) { return ways.kind == Mirel::RouteType::forward_; }

// For the layers below a drop that still names what is not there.
Mirel::Vias noWayOut( const Ways & ways ) {
   Mirel::Vias vias;
   for ( const auto & hop : ways.hops )
      vias.push_back( Mirel::Via( Mirel::RouteType::drop(), hop.addr(), hop.intfId(), 1 ) );
   if ( vias.empty() ) vias.push_back( Mirel::Via( Mirel::RouteType::drop(), {}, {}, 1 ) );
   return vias;
}

} // namespace

template < typename P >
size_t FecBook< P >::Key::hash() const {
   Gant::Hash hash( vrfId );
   hash << U8( ways.kind.value() );
   for ( const auto & hop : ways.hops ) hash << hop;
   return hash.value();
}

template < typename P >
U64 FecBook< P >::acquire( U32 vrfId, const Ways & ways ) {
   const U32 keyVrf = needsVrf( ways ) ? vrfId : 0;
   const auto [ at, added ] = byKey_.try_emplace( Key{ keyVrf, ways }, 0 );
   if ( !added ) {
      use( at->second );
      return at->second;
   }
   const auto fecId = U64( fecs_.take() ) + 1;
   at->second = fecId;
   fec( fecId ) = { keyVrf, 1, ways, false };
   indexed( fecId, true );
   fib_->fecIs( fecId, vias( fec( fecId ) ) );
   return fecId;
}

template < typename P >
U64 FecBook< P >::own( U32 vrfId, const Ways & ways ) {
   const auto fecId = U64( fecs_.take() ) + 1;
   fec( fecId ) = { needsVrf( ways ) ? vrfId : 0, 1, ways, true };
   ++own_;
   indexed( fecId, true );
   fib_->fecIs( fecId, vias( fec( fecId ) ) );
   return fecId;
}

template < typename P >
void FecBook< P >::change( U64 fecId, const Ways & ways ) {
   auto & changed = fec( fecId );
   if ( changed.ways == ways ) return;
   indexed( fecId, false );
   changed.ways = ways;
   indexed( fecId, true );
   fib_->fecIs( fecId, vias( changed ) );
}

template < typename P >
void FecBook< P >::release( U64 fecId ) {
   auto & gone = fec( fecId );
   if ( --gone.users != 0 ) return;
   indexed( fecId, false );
   if ( gone.own )
      --own_;
   else
      byKey_.erase( Key{ gone.vrfId, gone.ways } );
   fib_->fecDel( fecId );
   fecs_.give( static_cast< U32 >( fecId - 1 ) );
}

template < typename P >
Mirel::Vias FecBook< P >::vias( const Fec & fec ) const {
   Mirel::Vias usable, others;
   for ( const auto & hop : fec.ways.hops )
      if ( const auto way = resolve_( fec.vrfId, fec.ways.kind, hop ) )
         ( way->usable ? usable : others ).push_back( way->via );
   if ( !usable.empty() ) return usable;
   return others.empty() ? noWayOut( fec.ways ) : others;
}

template < typename P >
void FecBook< P >::indexed( U64 fecId, bool present ) {
   const auto & ways = fec( fecId ).ways;
   for ( const auto & hop : ways.hops ) {
      const auto intfId = hop.intfId();
      if ( present ) {
         byIntf_[ intfId ].insert( fecId );
      } else if ( const auto at = byIntf_.find( intfId ); at != byIntf_.end() ) {
         at->second.erase( fecId );
         if ( at->second.empty() ) byIntf_.erase( at );
      }
   }
}

template < typename P >
void FecBook< P >::review( Kynet::IntfId changed ) {
   for ( const auto intfId : { changed, Kynet::IntfId() } )
      if ( const auto at = byIntf_.find( intfId ); at != byIntf_.end() )
         for ( const auto fecId : at->second ) fib_->fecIs( fecId, vias( fec( fecId ) ) );
}

template class FecBook< Kynet::Prefix >;
template class FecBook< Kynet::Ip6Prefix >;

} // namespace Host
