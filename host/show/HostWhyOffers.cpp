#include "HostWhyOffers.h"

#include "HostRouterState.h"

namespace Host {

namespace {

template < typename P >
std::vector< Offer > offersIn( const RouteBook< P > & book, U32 vrfId, const P & prefix ) {
   std::vector< Offer > offers;
   const auto inUse = book.teller( vrfId, prefix );
   for ( U8 number = Teller::connected_; number <= Teller::kernel_; ++number )
      if ( const Teller teller( number ); const auto route = book.route( vrfId, prefix, teller ) )
         offers.push_back( { textOfTeller( teller ), teller == inUse, book.fecs().ways( route->fecId() ) } );
   return offers;
}

} // namespace

std::vector< Offer > offersOf( const RouterState & state, U32 vrfId, const Kynet::IpGenPrefix & prefix ) {
   if ( prefix.af() == Kynet::AddressFamily::ipv4_ ) return offersIn( state.routes4(), vrfId, prefix.v4Prefix() );
   return offersIn( state.routes6(), vrfId, prefix.v6Prefix() );
}

Json inJson( const Ways & ways ) {
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

} // namespace Host
