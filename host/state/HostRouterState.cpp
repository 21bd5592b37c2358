#include "HostRouterState.h"

#include <algorithm>

namespace Host {

namespace {

Gant::String nameOf( const L3::VrfName & vrf, const Kynet::IpGenPrefix & prefix ) {
   auto name = "route " + prefix.stringValue();
   return vrf == L3::VrfName::defaultVrf() ? name : name + " in " + textOf( vrf );
}

// Calls with the family's book and prefix.
template < typename Book4, typename Book6, typename Act >
auto byFamily( Book4 & routes4, Book6 & routes6, const Kynet::IpGenPrefix & prefix, const Act & act ) {
   return prefix.af() == Kynet::AddressFamily::ipv4_ ? act( routes4, prefix.v4Prefix() )
                                                     : act( routes6, prefix.v6Prefix() );
}

std::optional< Interface::TunnelMode > modeOf( const IntfFact & fact ) {
   return fact.tunnel ? std::optional( fact.tunnel->mode() ) : std::nullopt;
}

template < typename Prefix >
Gant::String hostBits( const Prefix & prefix ) {
   return prefix.canonical() ? "" : "the prefix has host bits";
}

} // namespace

Gant::String wrongPrefix( const Kynet::Prefix & prefix ) {
   constexpr Kynet::Prefix multicast( Kynet::IpAddr( 0xe0000000 ), 4 );
   if ( auto text = hostBits( prefix ); !text.empty() ) return text;
   if ( prefix.len() >= multicast.len() && multicast.contains( prefix.address() ) )
      return "multicast is not routed by unicast routes";
   if ( prefix == Kynet::Prefix( Kynet::IpAddr( ~U32( 0 ) ), 32 ) ) return "the broadcast address is the router's own";
   return {};
}

Gant::String wrongPrefix( const Kynet::Ip6Prefix & prefix ) { return hostBits( prefix ); }

RouterState::RouterState() :
     vrfs_( tree_.allVrfStatusLocal ), intfs_( tree_, vrfs_ ), ipsec_( tree_, intfs_ ), acl_( tree_, intfs_ ),
     vlans_( tree_ ), virtualMacs_( tree_, intfs_ ), nat_( tree_, intfs_ ),
     sources_( intfs_.routes4(), intfs_.routes6() ) {}

ChangeResult RouterState::vrfIs( const VrfFact & fact, Teller teller ) {
   const auto netns = vrfs_.netns( fact.name );
   auto result = vrfs_.vrfIs( fact, teller );
   if ( vrfs_.netns( fact.name ) != netns ) intfs_.devicesAre();
   return result;
}

ChangeResult RouterState::intfIs( const IntfFact & fact, Teller teller ) {
   if ( auto text = acl_.wrong( fact ); !text.empty() )
      return refused( "interface " + fact.intfId.stringValue() + ": " + text );
   const auto present = intfs_.intfs().find( fact.intfId );
   // A description tells its connections anew after its tunnels, and they are checked against these.
   if ( teller == Teller::command_ && present != intfs_.intfs().end() &&
        modeOf( present->second.fact ) != modeOf( fact ) )
      if ( auto text = ipsec_.keeps( fact.intfId ); !text.empty() )
         return refused( "interface " + fact.intfId.stringValue() + ": " + text + ", and its mode stays" );
   const bool moves = present != intfs_.intfs().end() && present->second.fact.vrf != fact.vrf;
   auto result = intfs_.intfIs( fact, teller );
   if ( moves && isDone( result ) ) virtualMacs_.rebuilt( fact.intfId );
   return result;
}

ChangeResult RouterState::intfDel( Kynet::IntfId intfId ) {
   if ( auto text = ipsec_.keeps( intfId ); !text.empty() )
      return refused( "interface " + intfId.stringValue() + ": " + text );
   auto result = intfs_.intfDel( intfId );
   if ( !isDone( result ) ) return result;
   virtualMacs_.intfDel( intfId );
   nat_.intfDel( intfId );
   return result;
}

Gant::String RouterState::wrongWays( Kynet::AddressFamily af, const Ways & ways ) const {
   if ( ways.kind == Mirel::RouteType::forward_ && ways.hops.empty() ) return "there is no next hop";
   if ( ways.hops.size() > Mirel::RouteTable< Kynet::Prefix >::viasMax )
      return Gant::format( "%zu next hops are over %zu", ways.hops.size(),
                           Mirel::RouteTable< Kynet::Prefix >::viasMax );
   if ( ways.kind == Mirel::RouteType::forward_ )
      for ( const auto & hop : ways.hops )
         if ( auto text = intfs_.wrongHop( af, hop ); !text.empty() ) return text;
   return {};
}

Gant::String RouterState::shortOf( U32 vrfId, const Ways & ways ) const {
   const auto & hops = ways.hops;
   size_t lost = 0;
   Gant::String text;
   for ( const auto & hop : hops ) {
      auto why = ways.kind == Mirel::RouteType::forward_ ? intfs_.unreachable( vrfId, hop )
                 : intfs_.intfs().contains( hop.intfId() )
                      ? ""
                      : "interface " + hop.intfId().stringValue() + " does not exist";
      if ( why.empty() ) continue;
      if ( lost++ == 0 ) text = "accepted; " + why;
   }
   if ( lost != 0 )
      text += lost == hops.size() ? ", and its packets are dropped" : ", and its packets go by the other next hops";
   if ( std::ranges::any_of( hops, [ & ]( const Hop & hop ) { return hop.weight() != hops.front().weight(); } ) )
      text += ( text.empty() ? Gant::String( "accepted; " ) : "; " ) +
              "weights have no effect: each next hop gets an equal share";
   return text;
}

ChangeResult RouterState::routeIs( const RouteFact & fact, Teller teller ) {
   const auto name = nameOf( fact.vrf, fact.prefix ) + ": ";
   const auto vrfId = vrfs_.id( fact.vrf );
   if ( !vrfId ) return refused( name + textOf( fact.vrf ) + " does not exist" );
   if ( auto text = wrongWays( fact.prefix.af(), fact.ways ); !text.empty() ) return invalid( name + text );
   return byFamily( routes4(), routes6(), fact.prefix, [ & ]( auto & book, const auto & prefix ) {
      if ( auto text = wrongPrefix( prefix ); !text.empty() ) return invalid( name + text );
      const auto fecId = book.fecs().acquire( *vrfId, fact.ways );
      book.routeIs( *vrfId, prefix, teller, fact.ways.kind, fecId );
      book.fecs().release( fecId );
      auto result = done();
      if ( auto text = shortOf( *vrfId, fact.ways ); !text.empty() ) result.message = name + text;
      return result;
   } );
}

ChangeResult RouterState::routeDel( const L3::VrfName & vrf, const Kynet::IpGenPrefix & prefix, Teller teller ) {
   const auto vrfId = vrfs_.id( vrf );
   const bool gone = vrfId && byFamily( routes4(), routes6(), prefix, [ & ]( auto & book, const auto & p ) {
                        return book.routeDel( *vrfId, p, teller );
                     } );
   return gone ? done() : notFound( nameOf( vrf, prefix ) + " does not exist" );
}

Teller RouterState::routeTeller( const L3::VrfName & vrf, const Kynet::IpGenPrefix & prefix ) const {
   const auto vrfId = vrfs_.id( vrf );
   if ( !vrfId ) return Teller::none();
   return byFamily( routes4(), routes6(), prefix,
                    [ & ]( const auto & book, const auto & p ) { return book.teller( *vrfId, p ); } );
}

bool RouterState::routeHas( const L3::VrfName & vrf, const Kynet::IpGenPrefix & prefix, Teller teller ) const {
   const auto vrfId = vrfs_.id( vrf );
   return vrfId && byFamily( routes4(), routes6(), prefix, [ & ]( const auto & book, const auto & p ) {
             return book.routeHas( *vrfId, p, teller );
          } );
}

size_t RouterState::routes( Teller teller ) const { return routes4().routes( teller ) + routes6().routes( teller ); }

ChangeResult RouterState::vrfDel( const L3::VrfName & name ) {
   const auto vrfId = vrfs_.id( name );
   if ( !vrfId ) return notFound( textOf( name ) + " does not exist" );
   if ( *vrfId == 0 && !vrfs_.netns( name ).empty() ) {
      auto result = vrfs_.vrfDel( name );
      intfs_.devicesAre();
      return result;
   }
   for ( const auto & [ intfId, told ] : intfs_.intfs() ) {
      if ( told.fact.vrf == name ) return refused( textOf( name ) + ": " + intfId.stringValue() + " is in it" );
      if ( told.fact.tunnel && told.fact.tunnel->underlayVrf() == name )
         return refused( textOf( name ) + ": it is the underlay of " + intfId.stringValue() );
   }
   if ( auto text = ipsec_.keeps( name ); !text.empty() ) return refused( textOf( name ) + ": " + text );
   if ( *vrfId != 0 ) {
      routes4().vrfDel( *vrfId );
      routes6().vrfDel( *vrfId );
   }
   return vrfs_.vrfDel( name );
}

} // namespace Host
