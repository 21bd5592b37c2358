// How adjacencies follow their facts: neighbours, interfaces, tunnels and routes.
#include "HulAdjImpl.h"

#include "HulCommonSmData.h"

#include <algorithm>

namespace Hul {

namespace {

template < typename Index, typename Key >
void put( Index & index, const Key & key, AdjSm::Number number, bool present ) {
   if ( present ) {
      index[ key ].insert( number );
      return;
   }
   const auto at = index.find( key );
   if ( at == index.end() ) return;
   at->second.erase( number );
   if ( at->second.empty() ) index.erase( at );
}

} // namespace

struct AdjSm::Impl::GantArp : Arp::Table::Status::Notifiee {
   explicit GantArp( Impl & impl ) : Notifiee( &impl.sm, impl.args.neighborTable ), impl( impl ) {}
   void onNeighbor( const Arp::NeighborKey & key ) override { impl.handleNeighbor( key ); }
   void onRenotify() override { impl.missed = true; }
   Impl & impl;
};

struct AdjSm::Impl::GantL3Status : L3Status::Notifiee {
   explicit GantL3Status( Impl & impl ) : Notifiee( &impl.sm, impl.args.hulL3Status ), impl( impl ) {}
   void onIntfRoutingState( const Kynet::IntfId & intfId ) override { impl.handleRoutingState( intfId ); }
   void onRenotify() override { impl.missed = true; }
   Impl & impl;
};

struct AdjSm::Impl::GantIntfs : Interface::AllIntfStatusDir::Notifiee {
   explicit GantIntfs( Impl & impl ) : Notifiee( &impl.sm, impl.args.allIntfStatusDir ), impl( impl ) {}
   void onIntfStatus( const Kynet::IntfId & intfId ) override { impl.handleIntf( intfId ); }
   void onRenotify() override { impl.missed = true; }
   Impl & impl;
};

struct AdjSm::Impl::GantTunnels : Interface::TunnelIntfStatusDir::Notifiee {
   explicit GantTunnels( Impl & impl ) :
        Notifiee( &impl.sm, impl.args.allIntfStatusDir->tunnelIntfStatusDir() ), impl( impl ) {}
   void onIntfStatus( const Kynet::IntfId & intfId ) override { impl.handleTunnel( intfId ); }
   void onRenotify() override { impl.missed = true; }
   Impl & impl;
};

struct AdjSm::Impl::GantPaths : RoutePathSm::Notifiee {
   explicit GantPaths( Impl & impl ) : Notifiee( &impl.sm, impl.args.routePathSm ), impl( impl ) {}
   void onPaths( const VrfAndIpAddr & end ) override { impl.handlePaths( end ); }
   void onRenotify() override { impl.missed = true; }
   Impl & impl;
};

struct AdjSm::Impl::GantVrfs : VrfDir::Notifiee {
   explicit GantVrfs( Impl & impl ) : Notifiee( &impl.sm, impl.args.vrfSm->vrfDir() ), impl( impl ) {}
   void onVrfPhase( const VrfId & ) override { impl.handleVrfs(); }
   void onRenotify() override { impl.missed = true; }
   Impl & impl;
};

struct AdjSm::Impl::GantReview : AdjReviewEvent::Notifiee {
   explicit GantReview( Impl & impl ) : Notifiee( &impl.sm, impl.args.adjReviewEvent ), impl( impl ) {}
   void onReview() override { impl.handleReview(); }
   void onRenotify() override { impl.missedReview = true; }
   Impl & impl;
};

struct AdjSm::Impl::GantProgress : Progress::Notifiee {
   explicit GantProgress( Impl & impl ) : Notifiee( &impl.sm, impl.args.common->progress() ), impl( impl ) {}
   void onRefused( const RefusedCommand & command ) override {
      impl.underWay.refused( command, [ this ]( const auto & entry ) { impl.settled( entry ); } );
   }
   void onAcknowledged() override {
      impl.underWay.acknowledged( notifier()->acknowledged(),
                                  [ this ]( const auto & entry ) { impl.settled( entry ); } );
   }
   void onRenotify() override {
      for ( const auto & command : notifier()->refused() ) onRefused( command );
      onAcknowledged();
   }
   Impl & impl;
};

AdjSm::Impl::Impl( AdjSm & sm, Args given ) :
     sm( sm ), args( std::move( given ) ), neighbors{ args.hulL3Status, args.neighborTable, args.allIntfStatusDir },
     arpReactor( std::make_unique< GantArp >( *this ) ), l3Reactor( std::make_unique< GantL3Status >( *this ) ),
     intfReactor( std::make_unique< GantIntfs >( *this ) ), tunnelReactor( std::make_unique< GantTunnels >( *this ) ),
     pathReactor( std::make_unique< GantPaths >( *this ) ), vrfReactor( std::make_unique< GantVrfs >( *this ) ),
     reviewReactor( std::make_unique< GantReview >( *this ) ),
     progressReactor( std::make_unique< GantProgress >( *this ) ) {
   for ( const auto & [ intfId, state ] : args.hulL3Status->intfRoutingStateIterator() ) toldIntfs.insert( intfId );
}

AdjSm::Impl::~Impl() = default;

NextHop AdjSm::Impl::nextHop( const Way & way, Kynet::AddressFamily af ) const {
   const bool tunnel = !!way.tunnelIntfId;
   if ( tunnel && !neighbors.usable( way.tunnelIntfId, af ) )
      return NextHop( NextHopEntryType::unresolved(), way.tunnelIntfId, {}, {}, {} );
   if ( way.type != NextHopEntryType::forward_ ) return NextHop( way.type, way.intfId, {}, way.tunnelIntfId, {} );
   // The underlay of a tunnel is IPv4, whatever the tunnel carries.
   const auto wayAf = tunnel ? Kynet::AddressFamily( Kynet::AddressFamily::ipv4_ ) : af;
   // Nobody could resolve anything behind it, and other ways may carry.
   if ( tunnel && !neighbors.usable( way.intfId, wayAf ) )
      return NextHop( NextHopEntryType::drop(), way.tunnelIntfId, {}, {}, {} );
   const auto mac = neighbors.mac( way.intfId, way.hop, wayAf );
   if ( !mac ) return NextHop( NextHopEntryType::unresolved(), way.intfId, {}, way.tunnelIntfId, {} );
   return NextHop( NextHopEntryType::forward(), way.intfId, way.intfId, way.tunnelIntfId, mac );
}

Gant::String AdjSm::Impl::lacks( const Way & way, const Adj & adj ) const {
   const auto notUsable = [ & ]( Kynet::IntfId intfId, Kynet::AddressFamily af ) {
      return neighbors.usable( intfId, af ) ? "" : intfId.stringValue() + " is not up and routed";
   };
   const bool tunnel = !!way.tunnelIntfId;
   if ( tunnel && !neighbors.usable( way.tunnelIntfId, adj.af ) ) return notUsable( way.tunnelIntfId, adj.af );
   const auto af = tunnel ? Kynet::AddressFamily( Kynet::AddressFamily::ipv4_ ) : adj.af;
   switch ( way.type ) {
   case NextHopEntryType::drop_: {
      const auto & via = adj.vias[ way.via ];
      if ( via.kind() == Mirel::RouteType::forward_ )
         return "there is no route to the end of " + way.intfId.stringValue();
      const auto by = !via.intfId() ? "" : " by " + via.intfId().stringValue();
      if ( via.hopHas() ) return "no interface of the VRF reaches next hop " + via.hop().stringValue() + by;
      return by.empty() ? "" : "the VRF has no way out" + by;
   }
   case NextHopEntryType::forward_:
      if ( !!neighbors.mac( way.intfId, way.hop, af ) ) return "";
      if ( !neighbors.usable( way.intfId, af ) ) return notUsable( way.intfId, af );
      return "neighbour " + way.hop.stringValue() + " on " + way.intfId.stringValue() + " is not resolved";
   default: return !way.intfId ? "" : notUsable( way.intfId, af );
   }
}

Gant::String AdjSm::Impl::lacks( const Adj & adj ) const {
   for ( const auto & way : adj.ways )
      if ( auto lacking = lacks( way, adj ); !lacking.empty() ) return lacking;
   return "";
}

bool AdjSm::Impl::resolve( Number number ) {
   auto & adj = adjs[ number ];
   disabledIs( adj, !!sm.disabledIntf( number ) );
   resolved.clear();
   for ( const auto & way : adj.ways ) resolved.nextHopInc( nextHop( way, adj.af ), way.multiplicity, way.via );
   if ( resolved == adj.l2Adj->via() ) return false;
   adj.l2Adj->viaSwap( resolved );
   return true;
}

const Paths & AdjSm::Impl::pathsOf( Kynet::IntfId tunnelIntfId, Adj & adj ) {
   static const Paths none;
   const auto & tunnels = args.allIntfStatusDir->tunnelIntfStatusDir();
   if ( !tunnels || !tunnels->intfStatusHas( tunnelIntfId ) ) return none;
   const auto tunnel = tunnels->intfStatus( tunnelIntfId );
   const auto & vrf = args.hulL3Status->vrfL3Status( tunnel.underlayVrf() );
   if ( !vrf || !args.vrfSm->vrfDir()->active( vrf->vrfId() ) ) return none;
   const VrfAndIpAddr end( vrf->vrfId(), tunnel.dstAddr() );
   args.routePathSm->follow( end );
   adj.followed.push_back( end );
   return args.routePathSm->paths( end );
}

void AdjSm::Impl::bind( Number number ) {
   auto & adj = adjs[ number ];
   indexIs( number, false );
   // The new ends are followed before the old ones are given up: most are the same.
   const auto before = std::exchange( adj.followed, {} );
   adj.ways = waysOf( adj.vias,
                      [ & ]( Kynet::IntfId tunnelIntfId ) -> const Paths & { return pathsOf( tunnelIntfId, adj ); } );
   for ( const auto & end : before ) args.routePathSm->unfollow( end );
   indexIs( number, true );
}

void AdjSm::Impl::indexIs( Number number, bool present ) {
   const auto & adj = adjs[ number ];
   for ( const auto & way : adj.ways ) {
      if ( way.type == NextHopEntryType::forward_ )
         put( byNeighbor, Arp::NeighborKey( way.intfId, way.hop ), number, present );
      if ( !!way.intfId ) put( byIntf, way.intfId, number, present );
   }
   for ( const auto & via : adj.vias )
      if ( Kynet::TunnelIntfId::isTunnelIntfId( via.intfId() ) ) put( byIntf, via.intfId(), number, present );
   for ( const auto & end : adj.followed ) put( byTunnelEnd, end, number, present );
}

// The helper may come back to this machine, so the walk is over a copy, whose memory is used again.
template < typename Do >
void AdjSm::Impl::each( const Numbers & numbers, const Do & act ) {
   std::vector< Number > copy;
   if ( !spare.empty() ) {
      copy = std::move( spare.back() );
      spare.pop_back();
   }
   copy.assign( numbers.begin(), numbers.end() );
   for ( const auto number : copy )
      if ( adjs[ number ].l2Adj ) act( number );
   spare.push_back( std::move( copy ) );
}

template < typename Index, typename Key >
void AdjSm::Impl::reviewAll( Index & index, const Key & key ) {
   const auto at = index.find( key );
   if ( at == index.end() ) return;
   each( at->second, [ & ]( Number number ) {
      if ( resolve( number ) ) tell( number );
   } );
}

void AdjSm::Impl::handleNeighbor( const Arp::NeighborKey & key ) { reviewAll( byNeighbor, key ); }

void AdjSm::Impl::handleIntf( Kynet::IntfId intfId ) { reviewAll( byIntf, intfId ); }

void AdjSm::Impl::handleRoutingState( Kynet::IntfId intfId ) {
   const bool there = args.hulL3Status->intfRoutingStateHas( intfId );
   const bool came = there && toldIntfs.insert( intfId ).second;
   if ( !there ) toldIntfs.erase( intfId );
   if ( !came ) {
      handleIntf( intfId );
      return;
   }
   // What the helper was told with the interface's name went with the interface that had it before.
   const auto at = byIntf.find( intfId );
   if ( at == byIntf.end() ) return;
   each( at->second, [ & ]( Number number ) {
      resolve( number );
      tell( number );
   } );
}

void AdjSm::Impl::handleTunnel( Kynet::IntfId tunnelIntfId ) {
   const auto at = byIntf.find( tunnelIntfId );
   if ( at == byIntf.end() ) return;
   each( at->second, [ & ]( Number number ) {
      bind( number );
      if ( resolve( number ) ) tell( number );
   } );
}

void AdjSm::Impl::handlePaths( const VrfAndIpAddr & end ) {
   const auto at = byTunnelEnd.find( end );
   if ( at == byTunnelEnd.end() ) return;
   each( at->second, [ & ]( Number number ) {
      bind( number );
      if ( resolve( number ) ) tell( number );
   } );
}

void AdjSm::Impl::handleVrfs() {
   std::vector< Kynet::IntfId > tunnels;
   for ( const auto & [ intfId, numbers ] : byIntf )
      if ( Kynet::TunnelIntfId::isTunnelIntfId( intfId ) ) tunnels.push_back( intfId );
   std::ranges::sort( tunnels );
   for ( const auto intfId : tunnels ) handleTunnel( intfId );
}

void AdjSm::Impl::handleAll() {
   for ( const auto & intfId : Gant::keysOf( toldIntfs ) )
      if ( !args.hulL3Status->intfRoutingStateHas( intfId ) ) handleRoutingState( intfId );
   for ( const auto & intfId : args.hulL3Status->intfRoutingStateKeys() )
      if ( !toldIntfs.contains( intfId ) ) handleRoutingState( intfId );
   for ( Number number = 0; number < adjs.size(); ++number ) {
      if ( !adjs[ number ].l2Adj ) continue;
      bind( number );
      if ( resolve( number ) ) tell( number );
   }
}

void AdjSm::Impl::handleReview() {
   handleAll();
   for ( Number number = 0; number < adjs.size(); ++number ) {
      const auto & adj = adjs[ number ];
      if ( adj.l2Adj && ( !adj.created || adj.walk == WalkState::waiting_ ) ) tell( number );
   }
}

} // namespace Hul
