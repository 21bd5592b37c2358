#include "MirelFib.h"

#include <algorithm>

namespace Mirel {

namespace {

Kynet::Prefix prefixOf( Kynet::IpAddr address, U8 len ) {
   const Kynet::Prefix whole( address, len );
   return Kynet::Prefix( Kynet::IpAddr( address.value() & whole.mask() ), len );
}

Kynet::Ip6Prefix prefixOf( const Kynet::Ip6Addr & address, U8 len ) {
   auto bytes = address.bytes();
   for ( size_t at = 0; at < bytes.size(); ++at ) {
      const int bits = std::clamp( int( len ) - int( at ) * 8, 0, 8 );
      bytes[ at ] = static_cast< U8 >( bytes[ at ] & ~( 0xff >> bits ) );
   }
   return Kynet::Ip6Prefix( Kynet::Ip6Addr( bytes ), len );
}

} // namespace

template < typename P >
U32 RouteTable< P >::hashOf( U32 vrfId, const P & prefix ) {
   return static_cast< U32 >( Gant::Hash( vrfId ).word( prefix.hash() ).value() );
}

template < typename P >
U32 RouteTable< P >::find( U32 hash, U32 vrfId, const P & prefix ) const {
   return index_.find( hash, [ & ]( U32 slot ) {
      const auto & entry = slab_[ slot ];
      return entry.address == prefix.address() && entry.len == prefix.len() && entry.vrfId == vrfId;
   } );
}

template < typename P >
typename RouteTable< P >::Vrf & RouteTable< P >::vrf( U32 vrfId ) {
   if ( lastVrf_.second == nullptr || lastVrf_.first != vrfId ) lastVrf_ = { vrfId, &vrfs_[ vrfId ] };
   return *lastVrf_.second;
}

template < typename P >
const typename RouteTable< P >::Vrf * RouteTable< P >::vrfHas( U32 vrfId ) const {
   if ( lastVrf_.second != nullptr && lastVrf_.first == vrfId ) return lastVrf_.second;
   const auto at = vrfs_.find( vrfId );
   return at == vrfs_.end() ? nullptr : &at->second;
}

template < typename P >
void RouteTable< P >::store( Entry & entry, const Route & route ) {
   entry.fecLow = static_cast< U32 >( route.fecId() );
   entry.fecHigh = static_cast< U32 >( route.fecId() >> 32 );
   entry.routeType = route.routeType();
   entry.protocol = route.protocol();
}

template < typename P >
bool RouteTable< P >::storable( const P & prefix, const Route & route ) {
   return prefix.len() <= PrefixBits< P >::bits && prefix.canonical() && route.routeType() != RouteType::none_;
}

template < typename P >
std::optional< U32 > RouteTable< P >::routePut( U32 vrfId, const P & prefix, const Route & route ) {
   if ( !storable( prefix, route ) ) return std::nullopt;
   const auto hash = hashOf( vrfId, prefix );
   const auto slot = find( hash, vrfId, prefix );
   if ( slot == HashIndex::none ) return add( hash, vrfId, prefix, route );
   routeAtIs( slot, route );
   return slot;
}

template < typename P >
std::optional< U32 > RouteTable< P >::routeAdd( U32 vrfId, const P & prefix, const Route & route ) {
   if ( !storable( prefix, route ) ) return std::nullopt;
   return add( hashOf( vrfId, prefix ), vrfId, prefix, route );
}

template < typename P >
U32 RouteTable< P >::add( U32 hash, U32 vrfId, const P & prefix, const Route & route ) {
   GANT_ON_LOOP();
   auto & vrf = this->vrf( vrfId );
   const auto slot = slab_.take();
   auto & entry = slab_[ slot ];
   entry.address = prefix.address();
   entry.len = prefix.len();
   entry.vrfId = vrfId;
   store( entry, route );
   index_.add( hash, slot );
   ++vrf.routes;
   ++vrf.lengths[ prefix.len() ];
   ++vrf.sequence;
   notifiees_.tell( &Notifiee::onRoute, Ref{ vrfId, prefix, slot } );
   return slot;
}

template < typename P >
void RouteTable< P >::routeAtIs( U32 slot, const Route & route ) {
   GANT_ON_LOOP();
   if ( routeAt( slot ) == route ) return;
   const auto ref = refAt( slot );
   store( slab_[ slot ], route );
   ++vrf( ref.vrfId ).sequence;
   notifiees_.tell( &Notifiee::onRoute, ref );
}

template < typename P >
bool RouteTable< P >::routeDel( U32 vrfId, const P & prefix ) {
   GANT_ON_LOOP();
   const auto hash = hashOf( vrfId, prefix );
   const auto slot = find( hash, vrfId, prefix );
   if ( slot == HashIndex::none ) return false;
   // The prefix may be a reference into the entry that goes.
   const Ref ref{ vrfId, prefix, slot };
   index_.remove( hash, slot );
   slab_[ slot ] = Entry();
   auto & vrf = this->vrf( vrfId );
   --vrf.routes;
   --vrf.lengths[ ref.prefix.len() ];
   ++vrf.sequence;
   notifiees_.tell( &Notifiee::onRoute, ref );
   slab_.give( slot );
   return true;
}

template < typename P >
bool RouteTable< P >::fecIs( U64 fecId, const Vias & vias ) {
   GANT_ON_LOOP();
   if ( vias.size() > viasMax ) return false;
   const auto [ at, added ] = fecs_.try_emplace( fecId, vias );
   if ( !added ) {
      if ( at->second == vias ) return true;
      at->second = vias;
   }
   notifiees_.tell( &Notifiee::onFec, fecId );
   return true;
}

template < typename P >
bool RouteTable< P >::fecDel( U64 fecId ) {
   GANT_ON_LOOP();
   if ( fecs_.erase( fecId ) == 0 ) return false;
   notifiees_.tell( &Notifiee::onFec, fecId );
   return true;
}

template < typename P >
std::optional< U32 > RouteTable< P >::slot( U32 vrfId, const P & prefix ) const {
   const auto slot = find( hashOf( vrfId, prefix ), vrfId, prefix );
   if ( slot == HashIndex::none ) return std::nullopt;
   return slot;
}

template < typename P >
std::optional< Route > RouteTable< P >::route( U32 vrfId, const P & prefix ) const {
   const auto at = slot( vrfId, prefix );
   if ( !at ) return std::nullopt;
   return routeAt( *at );
}

template < typename P >
size_t RouteTable< P >::routes( U32 vrfId ) const {
   const auto * const vrf = vrfHas( vrfId );
   return vrf == nullptr ? 0 : vrf->routes;
}

template < typename P >
U64 RouteTable< P >::sequence( U32 vrfId ) const {
   const auto * const vrf = vrfHas( vrfId );
   return vrf == nullptr ? 0 : vrf->sequence;
}

template < typename P >
const Vias * RouteTable< P >::fec( U64 fecId ) const {
   const auto at = fecs_.find( fecId );
   return at == fecs_.end() ? nullptr : &at->second;
}

template < typename P >
std::optional< RouteRef< P > > RouteTable< P >::match( U32 vrfId, const Address & address ) const {
   const auto * const vrf = vrfHas( vrfId );
   if ( vrf == nullptr ) return std::nullopt;
   for ( int len = PrefixBits< P >::bits; len >= 0; --len ) {
      if ( vrf->lengths[ static_cast< size_t >( len ) ] == 0 ) continue;
      const auto prefix = prefixOf( address, static_cast< U8 >( len ) );
      const auto slot = find( hashOf( vrfId, prefix ), vrfId, prefix );
      if ( slot != HashIndex::none ) return Ref{ vrfId, prefix, slot };
   }
   return std::nullopt;
}

template < typename P >
RouteRef< P > RouteTable< P >::refAt( U32 slot ) const {
   const auto & entry = slab_[ slot ];
   return { entry.vrfId, P( entry.address, entry.len ), slot };
}

template < typename P >
Route RouteTable< P >::routeAt( U32 slot ) const {
   const auto & entry = slab_[ slot ];
   return Route( entry.routeType, U64( entry.fecHigh ) << 32 | entry.fecLow, entry.protocol );
}

template class RouteTable< Kynet::Prefix >;
template class RouteTable< Kynet::Ip6Prefix >;

} // namespace Mirel
