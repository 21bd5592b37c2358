#include "HulAdjSm.h"

#include "GantAssert.h"
#include "GantFlat.h"
#include "GantTrace.h"
#include "HulL2AdjHelper.h"
#include "HulL2AdjRequest.h"
#include "HulL3Status.h"
#include "HulNeighbors.h"
#include "HulPosted.h"
#include "HulRoutePathSm.h"
#include "HulVrfSm.h"
#include "MirelSlab.h"

namespace Hul {

static Gant::TraceHandle traceHandle( "HulAdjSm" );

namespace {

// Adjacencies that an update in one turn of the loop does not make wait for others.
constexpr size_t walksPerTurn = 256;

GANT_ENUM( WalkState, U8, ( idle, 0 ), // no walk is owed
           ( scheduled, 1 ),           // in the queue
           ( waiting, 2 ) )            // the helper still wants one, and nothing has changed

using Numbers = Gant::OrderedSet< AdjSm::Number >;

struct Adj {
   Gant::Ptr< L2Adjacency > l2Adj; // null: the number is free
   Kynet::AddressFamily af;
   Mirel::Vias vias;
   Ways ways;
   std::vector< VrfAndIpAddr > followed; // ends of its tunnels
   U32 routes = 0;
   bool created = false;
   bool walkGranted = false; // since the last change of a fact, a walk has been granted to the helper
   WalkState walk;
};

struct ViasKey {
   Kynet::AddressFamily af;
   const Mirel::Vias & vias;
};

// The adjacencies by their vias, which are looked at in place.
struct ViasHash {
   using is_transparent = void;
   const Mirel::Slab< Adj > & adjs;
   size_t operator()( const ViasKey & key ) const {
      Gant::Hash hash( key.af.value() );
      for ( const auto & via : key.vias ) hash << via;
      return hash.value();
   }
   size_t operator()( AdjSm::Number number ) const {
      return ( *this )( ViasKey{ adjs[number].af, adjs[number].vias } );
   }
};

struct ViasEqual {
   using is_transparent = void;
   const Mirel::Slab< Adj > & adjs;
   bool operator()( AdjSm::Number a, AdjSm::Number b ) const { return a == b; }
   bool operator()( AdjSm::Number a, const ViasKey & b ) const { return adjs[a].af == b.af && adjs[a].vias == b.vias; }
   bool operator()( const ViasKey & a, AdjSm::Number b ) const { return ( *this )( b, a ); }
};

template < typename Index, typename Key >
void put( Index & index, const Key & key, AdjSm::Number number, bool present ) {
   if ( present ) {
      index[key].insert( number );
      return;
   }
   const auto at = index.find( key );
   if ( at == index.end() ) return;
   at->second.erase( number );
   if ( at->second.empty() ) index.erase( at );
}

} // namespace

struct AdjSm::Impl {
   Impl( AdjSm & sm, Args args );

   // What reactors call.
   void handleNeighbor( const Arp::NeighborKey & key ) { reviewAll( byNeighbor, key ); }
   void handleIntf( Kynet::IntfId intfId ) { reviewAll( byIntf, intfId ); }
   void handleRoutingState( Kynet::IntfId intfId );
   void handleTunnel( Kynet::IntfId tunnelIntfId );
   void handlePaths( const VrfAndIpAddr & end );
   void handleVrfs();
   void handleAll();
   void handleReview();

   template < typename Index, typename Key >
   void reviewAll( Index & index, const Key & key );
   template < typename Do >
   void each( const Numbers & numbers, const Do & act );

   Number make( Kynet::AddressFamily af, const Mirel::Vias & vias );
   void maybeDelete( Number number );
   // From the vias, and the routes of tunnels, to the ways; the indexes follow.
   void bind( Number number );
   void indexIs( Number number, bool present );
   // From the ways, and the neighbours, to the next hops. True when they are others than before.
   bool resolve( Number number );
   NextHop nextHop( const Way & way, Kynet::AddressFamily af ) const;
   const Paths & pathsOf( Kynet::IntfId tunnelIntfId, Adj & adj );

   // Tells the helper, for a reason of ours.
   void tell( Number number );
   void tellWalk( Number number );
   void offer( Adj & adj );
   void answered( Number number, const AdjUpdateReturnType & answer );
   void schedule( Number number );
   void walk();

   AdjSm & sm;
   Args args;
   Neighbors neighbors;
   Mirel::Slab< Adj > adjs;
   absl::flat_hash_set< Number, ViasHash, ViasEqual > byVias{ 0, ViasHash{ adjs }, ViasEqual{ adjs } };
   Gant::FlatMap< U64, Number > byIndex;
   Gant::FlatMap< Arp::NeighborKey, Numbers > byNeighbor;
   Gant::FlatMap< Kynet::IntfId, Numbers > byIntf; // also tunnels
   Gant::OrderedMap< VrfAndIpAddr, Numbers > byTunnelEnd;
   Gant::OrderedSet< Kynet::IntfId > toldIntfs;

   NextHopCollection resolved; // keeps its memory between resolutions
   std::vector< std::vector< Number > > spare;

   std::vector< Number > queue; // walks, in order
   Posted walks{ [this] { walk(); } };

   struct GantArp;
   struct GantL3Status;
   struct GantIntfs;
   struct GantTunnels;
   struct GantPaths;
   struct GantVrfs;
   struct GantReview;
   std::unique_ptr< GantArp > arpReactor;
   std::unique_ptr< GantL3Status > l3Reactor;
   std::unique_ptr< GantIntfs > intfReactor;
   std::unique_ptr< GantTunnels > tunnelReactor;
   std::unique_ptr< GantPaths > pathReactor;
   std::unique_ptr< GantVrfs > vrfReactor;
   std::unique_ptr< GantReview > reviewReactor;
};

struct AdjSm::Impl::GantArp : Arp::Table::Status::Notifiee {
   explicit GantArp( Impl & impl ) : Notifiee( &impl.sm, impl.args.arpMirel ), impl( impl ) {}
   void onNeighbor( const Arp::NeighborKey & key ) override { impl.handleNeighbor( key ); }
   void onRenotify() override { impl.handleAll(); }
   Impl & impl;
};

struct AdjSm::Impl::GantL3Status : L3Status::Notifiee {
   explicit GantL3Status( Impl & impl ) : Notifiee( &impl.sm, impl.args.hulL3Status ), impl( impl ) {}
   void onIntfRoutingState( const Kynet::IntfId & intfId ) override { impl.handleRoutingState( intfId ); }
   void onRenotify() override { impl.handleAll(); }
   Impl & impl;
};

struct AdjSm::Impl::GantIntfs : Interface::AllIntfStatusDir::Notifiee {
   explicit GantIntfs( Impl & impl ) : Notifiee( &impl.sm, impl.args.allIntfStatusDir ), impl( impl ) {}
   void onIntfStatus( const Kynet::IntfId & intfId ) override { impl.handleIntf( intfId ); }
   void onRenotify() override { impl.handleAll(); }
   Impl & impl;
};

struct AdjSm::Impl::GantTunnels : Interface::TunnelIntfStatusDir::Notifiee {
   explicit GantTunnels( Impl & impl ) :
        Notifiee( &impl.sm, impl.args.allIntfStatusDir->tunnelIntfStatusDir() ),
        impl( impl ) {}
   void onIntfStatus( const Kynet::IntfId & intfId ) override { impl.handleTunnel( intfId ); }
   void onRenotify() override { impl.handleAll(); }
   Impl & impl;
};

struct AdjSm::Impl::GantPaths : RoutePathSm::Notifiee {
   explicit GantPaths( Impl & impl ) : Notifiee( &impl.sm, impl.args.routePathSm ), impl( impl ) {}
   void onPaths( const VrfAndIpAddr & end ) override { impl.handlePaths( end ); }
   void onRenotify() override { impl.handleAll(); }
   Impl & impl;
};

struct AdjSm::Impl::GantVrfs : VrfDir::Notifiee {
   explicit GantVrfs( Impl & impl ) : Notifiee( &impl.sm, impl.args.vrfSm->vrfDir() ), impl( impl ) {}
   void onVrfPhase( const VrfId & ) override { impl.handleVrfs(); }
   void onRenotify() override { impl.handleAll(); }
   Impl & impl;
};

struct AdjSm::Impl::GantReview : AdjReviewEvent::Notifiee {
   explicit GantReview( Impl & impl ) : Notifiee( &impl.sm, impl.args.adjReviewEvent ), impl( impl ) {}
   void onReview() override { impl.handleReview(); }
   void onRenotify() override { impl.handleReview(); }
   Impl & impl;
};

AdjSm::Impl::Impl( AdjSm & sm, Args given ) :
     sm( sm ),
     args( std::move( given ) ),
     neighbors{ args.hulL3Status, args.arpMirel, args.allIntfStatusDir },
     arpReactor( std::make_unique< GantArp >( *this ) ),
     l3Reactor( std::make_unique< GantL3Status >( *this ) ),
     intfReactor( std::make_unique< GantIntfs >( *this ) ),
     tunnelReactor( std::make_unique< GantTunnels >( *this ) ),
     pathReactor( std::make_unique< GantPaths >( *this ) ),
     vrfReactor( std::make_unique< GantVrfs >( *this ) ),
     reviewReactor( std::make_unique< GantReview >( *this ) ) {
   for ( const auto & [intfId, state] : args.hulL3Status->intfRoutingStateIterator() ) toldIntfs.insert( intfId );
}

// ---- resolution

NextHop AdjSm::Impl::nextHop( const Way & way, Kynet::AddressFamily af ) const {
   const bool tunnel = !!way.tunnelIntfId;
   if ( tunnel && !neighbors.usable( way.tunnelIntfId, af ) )
      return NextHop( NextHopEntryType::unresolved(), way.tunnelIntfId, {}, {}, {} );
   if ( way.type != NextHopEntryType::forward_ ) return NextHop( way.type, way.intfId, {}, way.tunnelIntfId, {} );
   // The underlay of a tunnel is IPv4, whatever the tunnel carries.
   const auto mac =
        neighbors.mac( way.intfId, way.hop, tunnel ? Kynet::AddressFamily( Kynet::AddressFamily::ipv4_ ) : af );
   if ( !mac ) return NextHop( NextHopEntryType::unresolved(), way.intfId, {}, way.tunnelIntfId, {} );
   return NextHop( NextHopEntryType::forward(), way.intfId, way.intfId, way.tunnelIntfId, mac );
}

bool AdjSm::Impl::resolve( Number number ) {
   auto & adj = adjs[number];
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
   auto & adj = adjs[number];
   indexIs( number, false );
   // The new ends are followed before the old ones are given up: most are the same.
   const auto before = std::exchange( adj.followed, {} );
   adj.ways =
        waysOf( adj.vias, [&]( Kynet::IntfId tunnelIntfId ) -> const Paths & { return pathsOf( tunnelIntfId, adj ); } );
   for ( const auto & end : before ) args.routePathSm->unfollow( end );
   indexIs( number, true );
}

void AdjSm::Impl::indexIs( Number number, bool present ) {
   const auto & adj = adjs[number];
   for ( const auto & way : adj.ways ) {
      if ( way.type == NextHopEntryType::forward_ )
         put( byNeighbor, Arp::NeighborKey( way.intfId, way.hop ), number, present );
      if ( !!way.intfId ) put( byIntf, way.intfId, number, present );
   }
   for ( const auto & via : adj.vias )
      if ( Kynet::TunnelIntfId::isTunnelIntfId( via.intfId() ) ) put( byIntf, via.intfId(), number, present );
   for ( const auto & end : adj.followed ) put( byTunnelEnd, end, number, present );
}

// ---- changes of facts

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
      if ( adjs[number].l2Adj ) act( number );
   spare.push_back( std::move( copy ) );
}

template < typename Index, typename Key >
void AdjSm::Impl::reviewAll( Index & index, const Key & key ) {
   const auto at = index.find( key );
   if ( at == index.end() ) return;
   each( at->second, [&]( Number number ) {
      if ( resolve( number ) ) tell( number );
   } );
}

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
   each( at->second, [&]( Number number ) {
      resolve( number );
      tell( number );
   } );
}

void AdjSm::Impl::handleTunnel( Kynet::IntfId tunnelIntfId ) {
   const auto at = byIntf.find( tunnelIntfId );
   if ( at == byIntf.end() ) return;
   each( at->second, [&]( Number number ) {
      bind( number );
      if ( resolve( number ) ) tell( number );
   } );
}

void AdjSm::Impl::handlePaths( const VrfAndIpAddr & end ) {
   const auto at = byTunnelEnd.find( end );
   if ( at == byTunnelEnd.end() ) return;
   each( at->second, [&]( Number number ) {
      bind( number );
      if ( resolve( number ) ) tell( number );
   } );
}

void AdjSm::Impl::handleVrfs() {
   std::vector< Kynet::IntfId > tunnels;
   for ( const auto & [intfId, numbers] : byIntf )
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
      if ( !adjs[number].l2Adj ) continue;
      bind( number );
      if ( resolve( number ) ) tell( number );
   }
}

void AdjSm::Impl::handleReview() {
   handleAll();
   for ( Number number = 0; number < adjs.size(); ++number ) {
      const auto & adj = adjs[number];
      if ( adj.l2Adj && ( !adj.created || adj.walk == WalkState::waiting_ ) ) tell( number );
   }
}

// ---- the helper

void AdjSm::Impl::tell( Number number ) {
   auto & adj = adjs[number];
   adj.walkGranted = false;
   if ( adj.created )
      answered( number, args.hulL2AdjHelper->update( adj.l2Adj ) );
   else
      offer( adj );
}

void AdjSm::Impl::tellWalk( Number number ) {
   auto & adj = adjs[number];
   if ( adj.created )
      answered( number, args.hulL2AdjHelper->update( adj.l2Adj ) );
   else
      offer( adj );
}

void AdjSm::Impl::offer( Adj & adj ) {
   adj.created = args.hulL2AdjHelper->create( adj.l2Adj );
   adj.walk = WalkState::idle();
   if ( !adj.created ) return;
   const auto l2Adj = adj.l2Adj;
   sm.notifiees_.tell( &Notifiee::onCreated, l2Adj );
}

void AdjSm::Impl::answered( Number number, const AdjUpdateReturnType & answer ) {
   auto & adj = adjs[number];
   // This update has done what a walk in the queue would do.
   adj.walk = WalkState::idle();
   if ( !answer.prefixWalkRequired() ) return;
   if ( adj.walkGranted ) {
      adj.walk = WalkState::waiting();
      return;
   }
   adj.walkGranted = true;
   schedule( number );
}

void AdjSm::Impl::schedule( Number number ) {
   if ( adjs[number].walk == WalkState::scheduled_ ) return;
   adjs[number].walk = WalkState::scheduled();
   queue.push_back( number );
   walks.post();
}

void AdjSm::Impl::walk() {
   if ( sm.zombie() || !sm.hasNotificationActive() ) return;
   const auto turn = std::min( queue.size(), walksPerTurn );
   const std::vector< Number > numbers( queue.begin(), queue.begin() + static_cast< std::ptrdiff_t >( turn ) );
   queue.erase( queue.begin(), queue.begin() + static_cast< std::ptrdiff_t >( turn ) );
   for ( const auto number : numbers )
      if ( adjs[number].l2Adj && adjs[number].walk == WalkState::scheduled_ ) tellWalk( number );
   if ( !queue.empty() ) walks.post();
}

// ---- life

AdjSm::Number AdjSm::Impl::make( Kynet::AddressFamily af, const Mirel::Vias & vias ) {
   const auto number = adjs.take();
   auto & adj = adjs[number];
   adj.af = af;
   adj.vias = vias;
   adj.l2Adj = args.hulL2AdjHelper->newAdj();
   byVias.insert( number );
   byIndex[adj.l2Adj->key().index()] = number;
   bind( number );
   resolve( number );
   return number;
}

void AdjSm::Impl::maybeDelete( Number number ) {
   auto & adj = adjs[number];
   if ( adj.routes != 0 || adj.l2Adj->adjEntrys() != 0 ) return;
   args.hulL2AdjHelper->del( adj.l2Adj, adj.created );
   indexIs( number, false );
   for ( const auto & end : adj.followed ) args.routePathSm->unfollow( end );
   byIndex.erase( adj.l2Adj->key().index() );
   byVias.erase( number );
   adjs.give( number );
}

AdjSm::AdjSm( Args args ) : impl_( std::make_unique< Impl >( *this, std::move( args ) ) ) {}

AdjSm::~AdjSm() = default;

void AdjSm::hasNotificationActiveIs( bool active ) {
   StateMachine::hasNotificationActiveIs( active );
   if ( active && !impl_->queue.empty() ) impl_->walks.post();
}

void AdjSm::schedulePrefixWalk( const Gant::Ptr< AdjEntry > & adjEntry ) {
   if ( zombie() || !adjEntry ) return;
   const auto at = impl_->byIndex.find( adjEntry->adjIndex() );
   if ( at == impl_->byIndex.end() ) return;
   impl_->adjs[at->second].walkGranted = false;
   impl_->schedule( at->second );
}

AdjSm::Number AdjSm::find( Kynet::AddressFamily af, const Mirel::Vias & vias ) const {
   const auto at = impl_->byVias.find( ViasKey{ af, vias } );
   return at == impl_->byVias.end() ? none : *at;
}

AdjSm::Number AdjSm::use( Kynet::AddressFamily af, U64 fecId, const Mirel::Vias & vias ) {
   auto number = find( af, vias );
   const bool made = number == none;
   if ( made ) number = impl_->make( af, vias );
   auto & adj = impl_->adjs[number];
   const auto & l2Adj = adj.l2Adj;
   const U8 routeType = vias.empty() ? Mirel::RouteType::none_ : vias.front().kind().value();
   l2Adj->adjEntryIs( fecId, Gant::make< AdjEntry >( l2Adj->key().index(), routeType, fecId ) );
   if ( made ) adj.created = impl_->args.hulL2AdjHelper->create( l2Adj );
   return number;
}

void AdjSm::unuse( Number number, U64 fecId ) {
   impl_->adjs[number].l2Adj->adjEntryDel( fecId );
   impl_->maybeDelete( number );
}

void AdjSm::viasIs( Number number, const Mirel::Vias & vias ) {
   auto & adj = impl_->adjs[number];
   impl_->indexIs( number, false );
   impl_->byVias.erase( number );
   adj.ways.clear();
   adj.vias = vias;
   impl_->byVias.insert( number );
   impl_->bind( number );
   if ( impl_->resolve( number ) ) impl_->tell( number );
}

const Mirel::Vias & AdjSm::vias( Number number ) const { return impl_->adjs[number].vias; }

size_t AdjSm::fecs( Number number ) const { return impl_->adjs[number].l2Adj->adjEntrys(); }

void AdjSm::routesInc( Number number ) { ++impl_->adjs[number].routes; }

void AdjSm::routesDec( Number number ) {
   auto & adj = impl_->adjs[number];
   GANT_ASSERT( adj.routes != 0, " adjacency ", adj.l2Adj->key().index() );
   if ( --adj.routes == 0 ) impl_->maybeDelete( number );
}

U32 AdjSm::routes( Number number ) const { return impl_->adjs[number].routes; }

bool AdjSm::created( Number number ) const { return impl_->adjs[number].created; }

U64 AdjSm::adjIndex( Number number ) const { return impl_->adjs[number].l2Adj->key().index(); }

size_t AdjSm::adjs() const { return impl_->adjs.taken(); }

void AdjSm::verify() {
   auto & adjs = impl_->adjs;
   for ( Number number = 0; number < adjs.size(); ++number )
      if ( adjs[number].l2Adj && adjs[number].created ) impl_->args.hulL2AdjHelper->verify( adjs[number].l2Adj );
}

void AdjSm::pending( Pendings & out ) const {
   const auto & adjs = impl_->adjs;
   for ( Number number = 0; number < adjs.size(); ++number ) {
      const auto & adj = adjs[number];
      if ( !adj.l2Adj ) continue;
      const auto object = "adjacency " + std::to_string( adj.l2Adj->key().index() );
      if ( !adj.created )
         out.push_back( { object, "the data plane refused it" } );
      else if ( adj.walk == WalkState::waiting_ )
         out.push_back( { object, "the data plane took it in part" } );
   }
}

} // namespace Hul
