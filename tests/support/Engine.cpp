#include "Engine.h"

#include "VexRouteHelper.h"

#include <map>

namespace Test {

Gant::Ptr< Vex::L2Intf > Engine::port( const char * name, const char * macAddr ) {
   const auto made =
        Gant::make< Vex::L2Intf >( intf( name ), Vex::EncapType::ethernet_, mac( macAddr ), enginePair, trap );
   vexcsd->l2IntfIs( intf( name ), made );
   return made;
}

Gant::Ptr< Vex::L2Intf > Engine::tunnel( const char * name, Vex::EncapType encapType ) {
   const auto made = Gant::make< Vex::L2Intf >( intf( name ), encapType, Kynet::EthAddr(), enginePair, trap );
   vexcsd->l2IntfIs( intf( name ), made );
   return made;
}

L3Core::L3Core() {
   using namespace VexL3Unicast;
   l3Status->hulL3IntfTableIs( l3IntfTable );
   mfa4 = Gant::make< VexL3Mcast::MfaAgent >( Kynet::AddressFamily::ipv4_, nullptr, l3Pair, nullptr, vexcsd, false );
   mfa6 = Gant::make< VexL3Mcast::MfaAgent >( Kynet::AddressFamily::ipv6_, nullptr, l3Pair, nullptr, vexcsd, false );
   sm = vexL3SmFactory( l3Pair, vexcsd, l3Modules, routeDb, bridgingConfig, l3Status, nullptr, nullptr, nullptr, mfa4,
                        mfa6, ipsecHelper );
   adjHelper = Gant::make< AdjHelper >( "adjHelper", routeDb, l3Status, sm );
   route4Helper = Gant::make< Route4Helper >( "route4Helper", routeDb, sm, l3Status );
   route6Helper = Gant::make< Route6Helper >( "route6Helper", routeDb, sm, l3Status );
   vrfHelper = vexVrfHelperFactory( "vrfHelper", vexcsd, l3Modules, l3Status, l3Pair, mfa4, mfa6 );
   routingStatusHelper = routingStatusHelperFactory( "routingStatusHelper", routingStatus, vexcsd, l3Modules );
   vrf( "default", 0 );
}

L3Core::~L3Core() {
   // The proxies know the state machine, which owns nothing of theirs.
   sm->gantDoZombieReactors( true );
}

void L3Core::vrf( const char * name, U32 id ) {
   const L3::VrfName vrfName( name );
   l3Status->vrfNameIs( Hul::VrfId( id ), vrfName );
   l3Status->vrfL3StatusIs( vrfName, Gant::make< Hul::VrfL3Status >( vrfName, Hul::VrfId( id ) ) );
}

void L3Core::routed( const char * name, U32 vlan, U32 vrfId, U32 mtu ) {
   l3IntfTable->intfL3IndexIs( intf( name ), HulL3Intf::L3Id( vlan ) );
   vexcsd->l3IntfIs( intf( name ), Hul::VrfId( vrfId ), vexcsd->l2Intf( intf( name ) ), mtu );
}

Gant::Ptr< Hul::L2Adjacency > L3Core::adjacency( U64 index, const Hul::NextHopCollection & nextHops ) {
   const auto adj = Gant::make< Hul::L2Adjacency >( Hul::L2AdjKey( index ) );
   adj->viaIs( nextHops );
   return adj;
}

bool L3Core::route( const char * prefixText, U64 oldAdj, U64 newAdj, U64 sequence, U32 vrfId ) {
   const Hul::RouteInfo none;
   const auto info = [ & ]( U64 adj ) { return adj == 0 ? none : Hul::RouteInfo( 1, adj ); };
   return route4Helper->updateRoute( prefix( prefixText ), Hul::VrfId( vrfId ), info( oldAdj ), info( newAdj ),
                                     sequence );
}

Gant::String L3Core::brokenInvariant() const {
   using namespace VexL3Unicast;
   std::map< FecKey, size_t > routesOn;
   std::array< U32, 3 > routesOf{};
   for ( const auto & [ vrfPrefix, routeInfo ] : routeDb->routeIterator() ) {
      const auto & fec = routeDb->fec( routeInfo->fecKey() );
      if ( !fec || !fec->lpmRouteHas( vrfPrefix ) ) return "route " + vrfPrefix.strep() + " is not on its FEC";
      if ( routeInfo->tableType() != RouteTableType::lpmTableType_ )
         return "route " + vrfPrefix.strep() + " in no table";
      ++routesOn[ routeInfo->fecKey() ];
      ++routesOf[ vrfPrefix.prefix().af() ];
   }
   std::array< U32, 3 > sums{};
   for ( const auto & [ key, fec ] : routeDb->fecIterator() ) {
      if ( fec->lpmRoutes() != routesOn[ key ] ) return "FEC " + fec->str() + " has routes that are none";
      if ( routeDb->unusedFecKeyHas( key ) ) return "FEC " + fec->str() + " has an unused key";
      if ( routeDb->adjIdxToFec( routeDb->fecToAdjIdx( key ) ) != key )
         return "FEC " + fec->str() + " has no adjacency";
      for ( U32 af = 0; af < 3; ++af ) sums[ af ] += fec->numLpmRoutes( af );
   }
   if ( routeDb->adjIdxToFecs() != routeDb->fecs() || routeDb->fecToAdjIdxs() != routeDb->fecs() )
      return "adjacencies and FECs do not match";
   for ( U32 af = 0; af < 3; ++af )
      if ( sums[ af ] != routesOf[ af ] || routeDb->numLpmRoutes( af ) != routesOf[ af ] )
         return "numLpmRoutes of family " + std::to_string( af );
   for ( const auto & [ intfId, fecSet ] : routeDb->intfToFecSetIterator() )
      if ( fecSet->fecs() == 0 ) return "empty FEC set of " + intfId.stringValue();
   return "";
}

Hul::NextHop forwardHop( const char * intfName, const char * macAddr ) {
   return Hul::NextHop( Hul::NextHopEntryType::forward(), intf( intfName ), intf( intfName ), {}, mac( macAddr ) );
}

Hul::NextHop tunnelHop( const char * tunnelName, const char * underlay, const char * macAddr ) {
   return Hul::NextHop( Hul::NextHopEntryType::forward(), intf( underlay ), intf( underlay ), intf( tunnelName ),
                        mac( macAddr ) );
}

Hul::NextHop hop( Hul::NextHopEntryType type, const char * intfName ) {
   return Hul::NextHop( type, intf( intfName ), {}, {}, {} );
}

Hul::NextHopCollection via( std::initializer_list< std::pair< Hul::NextHop, U32 > > hops ) {
   Hul::NextHopCollection collection;
   U32 position = 0;
   for ( const auto & [ nextHop, multiplicity ] : hops )
      if ( multiplicity == 0 )
         collection.nextHopIs( nextHop, 0 );
      else
         collection.nextHopInc( nextHop, multiplicity, position++ );
   return collection;
}

} // namespace Test
