#include "HostWhyOffers.h"

#include "HostRouterState.h"

namespace Host {

namespace {

// "FPM, bgp", "the description"
std::string textOf( const Origin & origin ) {
   const auto protocol = nameOfProtocol( origin.protocol );
   return textOfTeller( origin.teller ) + std::string( protocol.empty() ? "" : ", " + protocol );
}

template < typename P >
std::vector< OfferFacts > offersIn( const RouteBook< P > & book, U32 vrfId, const P & prefix ) {
   std::vector< OfferFacts > offers;
   for ( const auto & offer : book.offers( vrfId, prefix ) )
      offers.push_back( { textOf( book.originOf( offer ) ), offers.empty(), book.fecs().ways( offer.fecId ) } );
   return offers;
}

} // namespace

std::vector< OfferFacts > offersOf( const RouterState & state, U32 vrfId, const Kynet::IpGenPrefix & prefix ) {
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
