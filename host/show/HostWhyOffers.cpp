#include "HostWhyOffers.h"

#include "HostRouterState.h"

namespace Host {

namespace {

Json viaOf( const Ways & ways ) {
   auto hops = Json::array();
   for ( const auto & hop : ways.hops ) {
      Json row = Json::object();
      if ( hop.addrHas() ) row[ "address" ] = hop.addr().stringValue();
      if ( !!hop.intfId() ) row[ "interface" ] = hop.intfId().stringValue();
      if ( hop.weight() > 1 ) row[ "weight" ] = hop.weight();
      hops.push_back( std::move( row ) );
   }
   return hops;
}

template < typename P >
Json offersIn( RouteBook< P > & book, U32 vrfId, const P & prefix ) {
   auto offers = Json::array();
   const auto inUse = book.teller( vrfId, prefix );
   for ( U8 number = Teller::connected_; number <= Teller::kernel_; ++number ) {
      const Teller teller( number );
      if ( !book.routeHas( vrfId, prefix, teller ) ) continue;
      Json row{ { "source", textOfTeller( teller ) }, { "inUse", teller == inUse } };
      if ( const auto route = book.table().route( vrfId, prefix ); route && teller == inUse ) {
         row[ "type" ] = route->routeType().stringValue();
         row[ "via" ] = viaOf( book.fecs().ways( route->fecId() ) );
      }
      offers.push_back( std::move( row ) );
   }
   return offers;
}

} // namespace

Json offersOf( RouterState & state, U32 vrfId, const Kynet::IpGenPrefix & prefix ) {
   if ( prefix.af() == Kynet::AddressFamily::ipv4_ ) return offersIn( state.routes4(), vrfId, prefix.v4Prefix() );
   return offersIn( state.routes6(), vrfId, prefix.v6Prefix() );
}

} // namespace Host
