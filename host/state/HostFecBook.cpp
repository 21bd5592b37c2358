#include "HostFecBook.h"

#include <algorithm>

namespace Host {

namespace {

bool needsVrf( const Ways & ways ) {
   return std::ranges::any_of( ways.hops, []( const Hop & hop ) { return !hop.intfId(); } );
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
   fec( fecId ) = { keyVrf, 1, ways };
   auto vias = this->vias( fec( fecId ) );
   if ( vias.empty() ) vias.push_back( Mirel::Via( Mirel::RouteType::drop(), {}, {}, 1 ) );
   fib_->fecIs( fecId, vias );
   return fecId;
}

template < typename P >
void FecBook< P >::release( U64 fecId ) {
   auto & gone = fec( fecId );
   if ( --gone.users != 0 ) return;
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
   return usable.empty() ? others : usable;
}

template < typename P >
void FecBook< P >::review() {
   for ( U32 at = 0; at < fecs_.size(); ++at ) {
      if ( fecs_[ at ].users == 0 ) continue;
      // With no way left, the packets stay on the last ones, and are trapped there.
      if ( const auto vias = this->vias( fecs_[ at ] ); !vias.empty() ) fib_->fecIs( U64( at ) + 1, vias );
   }
}

template class FecBook< Kynet::Prefix >;
template class FecBook< Kynet::Ip6Prefix >;

} // namespace Host
