// routes: static routes of both families.
#include "HostSection.h"

#include "HostVerdict.h"

namespace Host {

std::vector< Hop > hopsOf( const std::vector< Entry > & entries ) {
   std::vector< Hop > hops;
   for ( const auto & entry : entries ) {
      Hop hop;
      if ( entry.node().IsScalar() ) {
         if ( const auto wrong = parseHop( entry.node().Scalar(), hop ); !wrong.empty() ) entry.fail( wrong );
      } else {
         entry.only( { "nexthop", "interface", "weight" } );
         hop.addrIs( entry.value< Kynet::IpGenAddr >( "nexthop", "an IP address", {} ) );
         if ( entry.has( "interface" ) ) hop.intfIdIs( entry.intf( "interface" ) );
         hop.weightIs( static_cast< U16 >( entry.number( "weight", 1, 65535, 1 ) ) );
         if ( !hop.addrHas() && !hop.intfId() ) entry.fail( "a next hop has an address, an interface, or both" );
      }
      hops.push_back( std::move( hop ) );
   }
   return hops;
}

namespace {

using Mirel::RouteType;

class RouteSection : public Section {
 public:
   const char * name() const override { return "routes"; }
   const char * kind() const override { return "route"; }
   std::string key( const Entry & entry ) const override { return textOf( entry.vrf(), prefixOf( entry ) ); }
   bool has( const RouterState & state, const Entry & entry ) const override {
      return told( state, entry ) != Teller::none_;
   }

   ChangeResult replace( RouterState & state, const Entry & entry, Teller teller ) const override {
      entry.only( { "prefix", "vrf", "via", "blackhole", "receive" } );
      const auto vrf = entry.vrf();
      const auto prefix = prefixOf( entry );
      auto result = state.routeIs( { vrf, prefix, waysOf( entry ) }, teller );
      // A reload brings back what a command had put another route in the place of.
      if ( teller == Teller::description_ && isDone( result ) ) state.routeDel( vrf, prefix, Teller::command() );
      return result;
   }

   ChangeResult del( RouterState & state, const Entry & entry ) const override {
      const auto vrf = entry.vrf();
      const auto prefix = prefixOf( entry );
      const auto teller = told( state, entry ), holder = state.routeTeller( vrf, prefix );
      if ( teller != Teller::none_ || holder == Teller::none_ ) return state.routeDel( vrf, prefix, teller );
      return refused( "route " + prefix.stringValue() + ": it follows from " + textOfTeller( holder ) +
                      " and goes with it" );
   }

   std::vector< ChangeResult > delOthers( RouterState & state, Teller teller,
                                          const std::set< std::string > & keys ) const override {
      const auto delFrom = [ & ]( auto & book ) {
         for ( const auto & [ vrfId, prefix ] : book.prefixes( teller ) )
            if ( !keys.contains( textOf( state.vrfBook().name( vrfId ), Kynet::IpGenPrefix( prefix ) ) ) )
               book.routeDel( vrfId, prefix, teller );
      };
      delFrom( state.routes4() );
      delFrom( state.routes6() );
      return {};
   }

 private:
   // Who told it that can take it back, though it may wait behind another source's; of several the first one.
   static Teller told( const RouterState & state, const Entry & entry ) {
      for ( const auto teller : { Teller::command(), Teller::description(), Teller::routeFile() } )
         if ( state.routeHas( entry.vrf(), prefixOf( entry ), teller ) ) return teller;
      return {};
   }
   static Kynet::IpGenPrefix prefixOf( const Entry & entry ) { return entry.at( "prefix" ).prefix(); }
   static std::string textOf( const L3::VrfName & vrf, const Kynet::IpGenPrefix & prefix ) {
      auto text = prefix.stringValue();
      return vrf == L3::VrfName::defaultVrf() ? text : text + " in VRF " + vrf.value();
   }
   static Ways waysOf( const Entry & entry ) {
      const bool blackhole = entry.flag( "blackhole", false );
      const int told = int( blackhole ) + int( entry.has( "via" ) ) + int( entry.has( "receive" ) );
      if ( told != 1 ) entry.fail( "a route has one of \"via\", \"blackhole\" and \"receive\"" );
      if ( blackhole ) return { RouteType::drop(), {} };
      if ( entry.has( "receive" ) ) return { RouteType::receive(), { Hop( {}, entry.intf( "receive" ), 1 ) } };
      return { RouteType::forward(), hopsOf( entry.list( "via" ) ) };
   }
};

} // namespace

std::unique_ptr< const Section > routeSection() { return std::make_unique< RouteSection >(); }

} // namespace Host
