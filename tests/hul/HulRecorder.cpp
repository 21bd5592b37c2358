#include "HulRecorder.h"

#include "MirelFib.h"

#include <gtest/gtest.h>

namespace HulTest {

namespace {

Gant::String text( const Hul::RoutingState & state ) {
   Gant::String out;
   const auto add = [ & ]( bool on, const char * name ) {
      if ( on ) out += ( out.empty() ? "" : "+" ) + Gant::String( name );
   };
   add( state.routingEnabled(), "ip" );
   add( state.routing6Enabled(), "ip6" );
   add( state.multicastRoutingEnabled(), "mcast" );
   add( state.mplsRoutingEnabled(), "mpls" );
   return out.empty() ? "off" : out;
}

Gant::String text( const Hul::RouteInfo & info ) {
   if ( info.routeType() == 0 ) return "none";
   return Mirel::RouteType( info.routeType() ).stringValue() + "/" + std::to_string( info.adjIndex() );
}

} // namespace

Gant::String text( const Hul::NextHopCollection & via ) {
   Gant::String out;
   for ( const auto & [ nextHop, multiplicity ] : via ) {
      if ( !out.empty() ) out += ", ";
      out += nextHop.type().stringValue();
      if ( !!nextHop.l3Intf() ) out += " " + nextHop.l3Intf().shortName();
      if ( !!nextHop.macAddr() ) out += " " + nextHop.macAddr().stringValue();
      if ( !!nextHop.staticInterfaceTunnelIntfId() ) out += " via " + nextHop.staticInterfaceTunnelIntfId().shortName();
      out += " x" + std::to_string( multiplicity );
   }
   return out.empty() ? "nothing" : out;
}

class Recorder::Vrfs : public HulHelper::VrfHelper {
 public:
   explicit Vrfs( Recorder & r ) : VrfHelper( "vrfs" ), r( r ) {}
   void createVrf( Hul::VrfId vrf ) override {
      r.line( "createVrf " + vrf.strep() );
      r.check( r.vrfs_.insert( vrf ).second, "the VRF is there already" );
      r.check( !!r.l3Status_->vrfName( vrf ), "the VRF has no name" );
   }
   void deleteVrf( Hul::VrfId vrf ) override {
      r.line( "deleteVrf " + vrf.strep() );
      r.check( r.vrfs_.erase( vrf ) == 1, "the VRF is not there" );
      r.check( !!r.l3Status_->vrfName( vrf ), "the VRF has no name any more" );
      for ( const auto & [ intfId, intf ] : r.intfs_ ) r.check( intf.vrfId != vrf, "an interface is in the VRF" );
      for ( const auto & [ key, info ] : r.routes_ ) r.check( key.first != vrf, "a route is in the VRF" );
   }
   void verifyVrf( Hul::VrfId vrf ) override { r.line( "verifyVrf " + vrf.strep() ); }
   Recorder & r;
};

class Recorder::Routing : public HulHelper::RoutingStatusSmHelper {
 public:
   explicit Routing( Recorder & r ) : RoutingStatusSmHelper( "routing" ), r( r ) {}
   void handleRouting( bool enable, bool enable6 ) override {
      r.line( Gant::format( "handleRouting %d %d", enable, enable6 ) );
   }
   void handleRouterMac( const Kynet::EthAddr & address, bool add ) override {
      r.line( "handleRouterMac " + address.stringValue() + ( add ? " add" : " remove" ) );
      r.check( !!address && ( add ? !r.routerMac_ : r.routerMac_ == address ), "the MAC does not go over none" );
      r.routerMac_ = add ? address : Kynet::EthAddr();
   }
   void handleVirtualRouterMac( const Kynet::EthAddrWithMask & address, bool add ) override {
      r.line( "handleVirtualRouterMac " + address.addr().stringValue() + ( add ? " add" : " remove" ) );
      r.check( !!address.addr() && ( add ? !r.virtualMac_ : r.virtualMac_ == address.addr() ),
               "the MAC does not go over none" );
      r.virtualMac_ = add ? address.addr() : Kynet::EthAddr();
   }
   void handleL3Intf( Kynet::IntfId intfId, U32 vlanId, U32 mtu, bool create, bool update, Hul::VrfId vrfId ) override {
      r.line( Gant::format( "handleL3Intf %s vlan %u mtu %u vrf %u %s", intfId.shortName().c_str(), vlanId, mtu,
                            vrfId.value(),
                            !create  ? "delete"
                            : update ? "update"
                                     : "create" ) );
      const auto at = r.intfs_.find( intfId );
      const bool there = at != r.intfs_.end();
      if ( !create || update )
         r.check( there && at->second.vlanId == vlanId && at->second.vrfId == vrfId, "the interface is not this one" );
      if ( !create ) {
         for ( const auto & [ index, via ] : r.adjs_ )
            for ( const auto & [ nextHop, multiplicity ] : via )
               r.check( nextHop.type() != Hul::NextHopEntryType::forward_ ||
                             ( nextHop.l3Intf() != intfId && nextHop.staticInterfaceTunnelIntfId() != intfId ),
                        "an adjacency forwards over the interface that goes" );
         r.intfs_.erase( intfId );
         return;
      }
      r.check( r.vrfs_.contains( vrfId ), "the interface's VRF is not there" );
      r.check( ( r.l3Status_->hulL3IntfTable()->intfIdToL3Id( intfId ) & 0xffff ) == vlanId && vlanId != 0,
               "the interface's VLAN is not that of the table" );
      if ( update ) {
         r.check( at->second.mtu != mtu, "nothing has changed" );
         at->second.mtu = mtu;
         return;
      }
      r.check( !there, "the interface is there already" );
      for ( const auto & [ other, intf ] : r.intfs_ ) r.check( intf.vlanId != vlanId, "two interfaces have one VLAN" );
      r.intfs_[ intfId ] = { vrfId, vlanId, mtu, {} };
   }
   void enableVlanRouting( Kynet::IntfId intfId, U32 vlanId, Hul::RoutingState state ) override {
      r.line( Gant::format( "enableVlanRouting %s vlan %u ", intfId.shortName().c_str(), vlanId ) + text( state ) );
      const auto at = r.intfs_.find( intfId );
      r.check( at != r.intfs_.end() && at->second.vlanId == vlanId, "the interface is not there" );
      if ( at != r.intfs_.end() ) at->second.state = state;
   }
   void handleTcpMssEgress( Kynet::IntfId intfId, U16 mss ) override {
      r.line( Gant::format( "handleTcpMssEgress %s %u", intfId.shortName().c_str(), mss ) );
   }
   void handleTcpMssIngress( Kynet::IntfId intfId, U16 mss ) override {
      r.line( Gant::format( "handleTcpMssIngress %s %u", intfId.shortName().c_str(), mss ) );
   }
   void verifyL3Intf( Kynet::IntfId intfId, U32, bool, Hul::VrfId, U32 ) override {
      r.line( "verifyL3Intf " + intfId.shortName() );
   }
   Recorder & r;
};

class Recorder::Adjs : public HulHelper::AdjSmHelper {
 public:
   explicit Adjs( Recorder & r ) : AdjSmHelper( "adjs" ), r( r ) {}
   Hul::AdjUpdateStatus createAdj( const AdjPtr & adj ) override {
      const bool refused = r.refusesAdj();
      tell( "createAdj", adj, refused );
      r.check( !r.adjs_.contains( adj->key().index() ), "the adjacency is there already" );
      if ( refused ) return Hul::AdjUpdateStatus::adjUpdateFailed();
      r.adjs_[ adj->key().index() ] = adj->via();
      return Hul::AdjUpdateStatus::adjUpdateSucceeded();
   }
   Hul::AdjUpdateReturnType updateAdj( const AdjPtr & adj ) override {
      tell( "updateAdj", adj, false );
      r.check( r.adjs_.contains( adj->key().index() ), "the adjacency is not there" );
      r.adjs_[ adj->key().index() ] = adj->via();
      return Hul::AdjUpdateReturnType( Hul::AdjUpdateStatus::adjUpdateSucceeded(), r.wantsWalk() );
   }
   void deleteAdj( const AdjPtr & adj ) override {
      r.line( Gant::format( "deleteAdj %u", U32( adj->key().index() ) ) );
      r.check( r.adjs_.erase( adj->key().index() ) == 1, "the adjacency is not there" );
      for ( const auto & [ key, info ] : r.routes_ )
         r.check( info.adjIndex() != adj->key().index(), "a route names the adjacency that goes" );
   }
   void verifyAdj( const AdjPtr & adj ) override {
      r.line( Gant::format( "verifyAdj %u", U32( adj->key().index() ) ) );
   }
   Pbr::NexthopIndex getNexthopIndexForAdj( const AdjPtr & ) const override { return {}; }

 private:
   void tell( const char * what, const AdjPtr & adj, bool refused ) {
      r.line( Gant::format( "%s %u: ", what, U32( adj->key().index() ) ) + HulTest::text( adj->via() ) +
              ( refused ? " refused" : "" ) );
      r.check( r.l3Status_->l2AdjList( adj->key() ) == adj, "the adjacency is not in the list" );
      r.checkVia( adj->via() );
   }
   Recorder & r;
};

class Recorder::Routes : public HulHelper::RouteSmHelper {
 public:
   explicit Routes( Recorder & r ) : RouteSmHelper( "routes" ), r( r ) {}
   void handleRouting( bool ) override {}
   void verifyRouting( bool ) override {}
   bool updateRoute( const Kynet::Prefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & old,
                     const Hul::RouteInfo & now, const U64 & sequence ) override {
      return r.updateRoute( prefix, vrfId, old, now, sequence );
   }
   void prepareForVerifyRoute() override { r.line( "prepareForVerifyRoute" ); }
   void cleanupForVerifyRoute() override { r.line( "cleanupForVerifyRoute" ); }
   void verifyRoute( const Kynet::Prefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & info ) override {
      r.verifyRoute( prefix, vrfId, info );
   }
   void commitRouteBatch() override { r.line( "commitRouteBatch" ); }
   void endOfSyncOnInit() override { r.line( "endOfSyncOnInit" ); }
   Recorder & r;
};

class Recorder::Routes6 : public HulHelper::Route6SmHelper {
 public:
   explicit Routes6( Recorder & r ) : Route6SmHelper( "routes6" ), r( r ) {}
   void handleRouting( bool ) override {
      if ( r.refusesIp6 ) r.l3Status_->suspendIp6RouteUpdatesIs( true );
   }
   void verifyRouting( bool ) override {}
   Hul::HulRouteUpdateStatus updateRoute( const Kynet::Ip6Prefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & old,
                                          const Hul::RouteInfo & now, const U64 & sequence ) override {
      r.check( !r.refusesIp6 || now.routeType() == 0, "an IPv6 route is told while they are suspended" );
      return r.updateRoute( prefix, vrfId, old, now, sequence ) ? Hul::HulRouteUpdateStatus::routeUpdateSucceeded()
                                                                : Hul::HulRouteUpdateStatus::routeUpdateFailed();
   }
   void prepareForVerifyRoute() override {}
   void cleanupForVerifyRoute() override {}
   void verifyRoute( const Kynet::Ip6Prefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & info ) override {
      r.verifyRoute( prefix, vrfId, info );
   }
   Recorder & r;
};

Recorder::Recorder( Gant::Ptr< Hul::L3Status > l3Status ) :
     vrfHelper( Gant::make< Vrfs >( *this ) ), routingStatusHelper( Gant::make< Routing >( *this ) ),
     adjHelper( Gant::make< Adjs >( *this ) ), route4Helper( Gant::make< Routes >( *this ) ),
     route6Helper( Gant::make< Routes6 >( *this ) ), l3Status_( std::move( l3Status ) ) {}

void Recorder::line( const Gant::String & text ) {
   if ( !silent ) lines_.push_back( text );
   check( !over, "a helper is called although all is over" );
}

void Recorder::check( bool holds, const char * what ) {
   if ( holds ) return;
   ++breaches_;
   ADD_FAILURE() << what << ( lines_.empty() ? "" : ": " + lines_.back() );
}

void Recorder::checkVia( const Hul::NextHopCollection & via ) {
   for ( const auto & [ nextHop, multiplicity ] : via ) {
      check( multiplicity != 0, "a next hop has no share" );
      check( via.nextHopBitmap( nextHop ) != HulTypes::ViaBitmap(), "a next hop comes from no via" );
      if ( nextHop.type() != Hul::NextHopEntryType::forward_ ) continue;
      check( !!nextHop.macAddr(), "a forwarding next hop has no MAC" );
      check( intfs_.contains( nextHop.l3Intf() ), "an adjacency forwards over an interface that is not there" );
      const auto tunnel = nextHop.staticInterfaceTunnelIntfId();
      check( !tunnel || intfs_.contains( tunnel ), "an adjacency forwards over a tunnel that is not there" );
   }
}

bool Recorder::updateRoute( const Kynet::IpGenPrefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & old,
                            const Hul::RouteInfo & now, U64 sequence ) {
   const bool refused = refusesRoute( prefix ) && now.routeType() != 0;
   if ( !silent )
      line( prefix.stringValue() + Gant::format( " vrf %u ", vrfId.value() ) + text( old ) + " -> " + text( now ) +
            ( sequence != 0 ? " seq " + std::to_string( sequence ) : "" ) + ( refused ? " refused" : "" ) );
   else
      check( !over, "a helper is called although all is over" );
   const RouteKey key( vrfId, prefix );
   const auto at = routes_.find( key );
   const auto inForce = at == routes_.end() ? Hul::RouteInfo() : at->second;
   check( inForce == old, "the old information is not that in force" );
   check( repeats || !( old == now ), "nothing has changed" );
   check( vrfs_.contains( vrfId ), "the route's VRF is not there" );
   check( now.routeType() == 0 || adjs_.contains( now.adjIndex() ), "the route's adjacency is not there" );
   if ( now.routeType() == 0 || refused )
      routes_.erase( key );
   else
      routes_[ key ] = now;
   return !refused;
}

void Recorder::verifyRoute( const Kynet::IpGenPrefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & info ) {
   line( "verifyRoute " + prefix.stringValue() );
   const auto at = routes_.find( RouteKey( vrfId, prefix ) );
   check( at != routes_.end() && at->second == info, "the layer does not know what is in force" );
}

Gant::String Recorder::route( Hul::VrfId vrfId, const Kynet::IpGenPrefix & prefix ) const {
   const auto at = routes_.find( RouteKey( vrfId, prefix ) );
   if ( at == routes_.end() ) return "none";
   const auto adj = adjs_.find( at->second.adjIndex() );
   return Mirel::RouteType( at->second.routeType() ).stringValue() + ": " +
          ( adj == adjs_.end() ? "no adjacency" : HulTest::text( adj->second ) );
}

Lines Recorder::state() const {
   Lines out;
   for ( const auto vrf : vrfs_ ) out.push_back( Gant::format( "vrf %u", vrf ) );
   for ( const auto & [ intfId, intf ] : intfs_ )
      out.push_back( intfId.shortName() + Gant::format( " vrf %u mtu %u ", intf.vrfId.value(), intf.mtu ) +
                     text( intf.state ) );
   for ( const auto & [ key, info ] : routes_ )
      out.push_back( Gant::format( "vrf %u ", key.first ) + key.second.stringValue() + " " +
                     route( Hul::VrfId( key.first ), key.second ) );
   return out;
}

} // namespace HulTest
