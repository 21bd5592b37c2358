#include "HulRouteSm.h"

#include "GantAssert.h"
#include "GantTrace.h"

namespace Hul {

static Gant::TraceHandle traceHandle( "HulRouteSm" );

namespace {

// Routes that one turn of the loop looks at.
constexpr size_t routesPerTurn = 4096;

} // namespace

template < typename F >
struct RouteMachine< F >::GantTable : Table::Notifiee {
   explicit GantTable( RouteMachine * owner ) : Table::Notifiee( owner, owner->args_.table ), owner( owner ) {}
   void onRoute( const Ref & ref ) override { owner->handleRoute( ref ); }
   void onFec( const U64 & fecId ) override { owner->handleFec( fecId ); }
   void onRenotify() override { owner->handleAll(); }
   RouteMachine * owner;
};

template < typename F >
struct RouteMachine< F >::GantVrfDir : VrfDir::Notifiee {
   explicit GantVrfDir( RouteMachine * owner ) : Notifiee( owner, owner->args_.vrfSm->vrfDir() ), owner( owner ) {}
   void onVrfPhase( const VrfId & vrfId ) override { owner->handleVrf( vrfId ); }
   void onRenotify() override { owner->handleAll(); }
   RouteMachine * owner;
};

template < typename F >
struct RouteMachine< F >::GantAdjSm : AdjSm::Notifiee {
   explicit GantAdjSm( RouteMachine * owner ) : Notifiee( owner, owner->args_.adjSm ), owner( owner ) {}
   void onCreated( const Gant::Ptr< L2Adjacency > & l2Adj ) override { owner->handleCreated( l2Adj ); }
   void onRenotify() override { owner->handleAll(); }
   RouteMachine * owner;
};

template < typename F >
struct RouteMachine< F >::GantL3Status : L3Status::Notifiee {
   explicit GantL3Status( RouteMachine * owner ) : Notifiee( owner, owner->args_.hulL3Status ), owner( owner ) {}
   void onSuspendIp6RouteUpdates() override { owner->handleSuspend(); }
   void onRenotify() override { owner->handleSuspend(); }
   RouteMachine * owner;
};

template < typename F >
RouteMachine< F >::RouteMachine( Args args ) :
     args_( std::move( args ) ),
     suspended_( F::suspended( *args_.hulL3Status ) ),
     tableReactor_( std::make_unique< GantTable >( this ) ),
     vrfReactor_( std::make_unique< GantVrfDir >( this ) ),
     adjReactor_( std::make_unique< GantAdjSm >( this ) ),
     l3Reactor_( std::make_unique< GantL3Status >( this ) ) {
   handleAll();
}

template < typename F >
RouteMachine< F >::~RouteMachine() = default;

template < typename F >
void RouteMachine< F >::hasNotificationActiveIs( bool active ) {
   StateMachine::hasNotificationActiveIs( active );
   if ( active && ( busy() || uncommitted_ ) ) turns_.post();
}

// ---- changes

template < typename F >
void RouteMachine< F >::handleRoute( const Ref & ref ) {
   const U64 sequence = sweeping_ ? 0 : args_.table->sequence( ref.vrfId );
   review( ref.slot, sequence, true );
   acknowledge( vrf( ref.vrfId ), sequence );
}

template < typename F >
void RouteMachine< F >::handleFec( U64 fecId ) {
   const auto * const vias = suspended_ ? nullptr : args_.table->fec( fecId );
   if ( vias == nullptr && !fecById_.contains( fecId ) ) return;
   const auto number = fecNumber( fecId );
   auto & fec = fecs_[number];
   const auto old = fec.adj;
   if ( vias == nullptr ) {
      if ( old == AdjSm::none ) return;
      fec.adj = AdjSm::none;
   } else if ( old == AdjSm::none ) {
      fec.adj = args_.adjSm->use( F::af, fecId, *vias );
   } else if ( args_.adjSm->vias( old ) == *vias ) {
      return;
   } else if ( args_.adjSm->fecs( old ) == 1 && args_.adjSm->routes( old ) == fec.told &&
               links( movingRing( number ) ).next == movingRing( number ) &&
               args_.adjSm->find( F::af, *vias ) == AdjSm::none ) {
      // Nobody else is on the adjacency: it changes, and the routes stay on it.
      args_.adjSm->viasIs( old, *vias );
      return;
   } else {
      fec.adj = args_.adjSm->use( F::af, fecId, *vias );
   }
   move( number );
   if ( old != AdjSm::none ) args_.adjSm->unuse( old, fecId );
   fecMaybeDelete( number );
}

template < typename F >
void RouteMachine< F >::handleVrf( VrfId vrfId ) {
   auto & vrf = this->vrf( vrfId );
   const bool active = args_.vrfSm->vrfDir()->active( vrfId );
   vrf.status = active ? args_.hulL3Status->vrfL3Status( args_.hulL3Status->vrfName( vrfId ) ) : nullptr;
   if ( std::exchange( vrf.active, active ) == active ) return;
   if ( vrf.told != 0 || args_.table->routes( vrfId ) != 0 ) sweep();
}

template < typename F >
void RouteMachine< F >::handleCreated( const Gant::Ptr< L2Adjacency > & l2Adj ) {
   for ( const auto & [fecId, entry] : l2Adj->adjEntryIterator() ) {
      const auto at = fecById_.find( fecId );
      if ( at == fecById_.end() ) continue;
      const auto adj = fecs_[at->second].adj;
      if ( adj != AdjSm::none && args_.adjSm->adjIndex( adj ) == l2Adj->key().index() ) move( at->second );
   }
}

template < typename F >
void RouteMachine< F >::handleSuspend() {
   if ( std::exchange( suspended_, F::suspended( *args_.hulL3Status ) ) != suspended_ ) handleAll();
}

template < typename F >
void RouteMachine< F >::handleAll() {
   // Routes that went while nobody listened go first: their slots, and their prefixes, may be others' by now.
   for ( U32 slot = 0; slot < told_.size(); ++slot )
      if ( told_[slot].here && !same( told_[slot], slot ) ) forget( slot, 0 );
   std::vector< U64 > fecIds;
   for ( const auto & [fecId, number] : fecById_ ) fecIds.push_back( fecId );
   for ( const auto & [fecId, vias] : args_.table->fecIterator() ) fecIds.push_back( fecId );
   std::ranges::sort( fecIds );
   for ( const auto fecId : fecIds ) handleFec( fecId );
   for ( const auto & [vrfId, vrf] : vrfs_ ) handleVrf( VrfId( vrfId ) );
   for ( const auto & vrfId : args_.vrfSm->vrfDir()->vrfPhaseKeys() ) handleVrf( vrfId );
   sweep();
}

// ---- one route

template < typename F >
void RouteMachine< F >::review( U32 slot, U64 sequence, bool retry ) {
   told_.grow( args_.table->slots() );
   auto & told = told_[slot];
   if ( !args_.table->slotHas( slot ) ) {
      if ( told.here ) forget( slot, sequence );
      return;
   }
   if ( !told.here ) adopt( slot );
   const auto route = args_.table->routeAt( slot );
   place( slot, route.fecId() );
   if ( suspended_ ) {
      tell( told, What(), sequence );
      unprogrammedIs( told, Mirel::UnprogrammedReason::familyNotSupported_ );
      return;
   }
   const auto what = wanted( told, route.routeType() );
   if ( told.unprogrammed == Mirel::UnprogrammedReason::refused_ && what.routeType != 0 && !retry ) return;
   unprogrammedIs( told, 0 );
   tell( told, what, sequence );
}

template < typename F >
bool RouteMachine< F >::same( const Told & told, U32 slot ) const {
   if ( !args_.table->slotHas( slot ) ) return false;
   const auto ref = args_.table->refAt( slot );
   return ref.vrfId == told.vrfId && ref.prefix == Prefix( told.address, told.len );
}

template < typename F >
void RouteMachine< F >::adopt( U32 slot ) {
   const auto ref = args_.table->refAt( slot );
   auto & told = told_[slot];
   told.here = true;
   told.address = ref.prefix.address();
   told.len = ref.prefix.len();
   told.vrfId = ref.vrfId;
}

template < typename F >
typename RouteMachine< F >::What RouteMachine< F >::wanted( const Told & told, Mirel::RouteType routeType,
                                                            Gant::String * missing ) const {
   const auto lacks = [missing]( const auto & why ) {
      if ( missing != nullptr ) *missing = why();
      return What();
   };
   const auto & fec = fecs_[told.fec];
   if ( !vrf( told.vrfId ).active ) return lacks( [&] { return Gant::format( "VRF %u does not exist", told.vrfId ); } );
   if ( fec.adj == AdjSm::none )
      return lacks( [&] { return "FEC " + std::to_string( fec.fecId ) + " does not exist"; } );
   if ( !args_.adjSm->created( fec.adj ) )
      return lacks( [&] { return "the data plane refused the adjacency of FEC " + std::to_string( fec.fecId ); } );
   return { routeType.value(), fec.adj };
}

template < typename F >
RouteInfo RouteMachine< F >::info( const What & what ) const {
   return what.routeType == 0 ? RouteInfo() : RouteInfo( what.routeType, args_.adjSm->adjIndex( what.adj ) );
}

template < typename F >
void RouteMachine< F >::tell( Told & told, const What & what, U64 sequence ) {
   const What old{ told.routeType, told.adj };
   if ( what.routeType == old.routeType && ( what.routeType == 0 || what.adj == old.adj ) ) return;
   const Prefix prefix( told.address, told.len );
   const bool done =
        F::done( args_.helper->updateRoute( prefix, VrfId( told.vrfId ), info( old ), info( what ), sequence ) );
   GANT_TRACE( 8, "RouteMachine::tell ", prefix, " vrf ", told.vrfId, done ? "" : " refused" );
   unprogrammedIs( told, done || what.routeType == 0 ? 0 : Mirel::UnprogrammedReason::refused_ );
   toldIs( told, done ? what : What() );
   uncommitted_ = true;
   turns_.post();
}

// What the helper has of the route from now on, with everything that counts it. The VRF and the former adjacency may go
// with their last route.
template < typename F >
void RouteMachine< F >::toldIs( Told & told, const What & what ) {
   const What old{ told.routeType, told.adj };
   told.routeType = what.routeType;
   told.adj = what.adj;
   const int more = int( what.routeType != 0 ) - int( old.routeType != 0 );
   toldRoutes_ += static_cast< U32 >( more );
   fecs_[told.fec].told += static_cast< U32 >( more );
   if ( what.routeType != 0 ) args_.adjSm->routesInc( what.adj );
   if ( old.routeType != 0 ) args_.adjSm->routesDec( old.adj );
   if ( more == 0 ) return;
   const auto vrfId = told.vrfId;
   auto & vrf = this->vrf( vrfId );
   vrf.told += static_cast< U32 >( more );
   if ( more > 0 && vrf.told == 1 ) args_.vrfSm->useInc( VrfId( vrfId ) );
   if ( more < 0 && vrf.told == 0 ) args_.vrfSm->useDec( VrfId( vrfId ) );
}

template < typename F >
void RouteMachine< F >::forget( U32 slot, U64 sequence ) {
   auto & told = told_[slot];
   tell( told, What(), sequence );
   unprogrammedIs( told, 0 );
   const auto fec = told.fec;
   unlink( slot );
   told = Told();
   fecMaybeDelete( fec );
}

template < typename F >
void RouteMachine< F >::unprogrammedIs( Told & told, U8 reason ) {
   if ( told.unprogrammed == reason ) return;
   told.unprogrammed = reason;
   const Mirel::UnprogrammedTable::Key key( told.vrfId, Kynet::IpGenPrefix( Prefix( told.address, told.len ) ) );
   if ( reason == 0 )
      args_.unprogrammed->routeDel( key );
   else
      args_.unprogrammed->routeIs( key, Mirel::UnprogrammedReason( reason ) );
}

template < typename F >
void RouteMachine< F >::acknowledge( const Vrf & vrf, U64 sequence ) {
   if ( vrf.status && F::sequence( *vrf.status ) < sequence ) F::sequenceIs( *vrf.status, sequence );
}

// ---- FECs and their routes

template < typename F >
U32 RouteMachine< F >::fecNumber( U64 fecId ) {
   const auto [at, added] = fecById_.try_emplace( fecId, 0 );
   if ( !added ) return at->second;
   const auto number = fecs_.take();
   at->second = number;
   fecs_[number].fecId = fecId;
   fecs_[number].inLine = { inLineRing( number ), inLineRing( number ) };
   fecs_[number].moving = { movingRing( number ), movingRing( number ) };
   return number;
}

template < typename F >
void RouteMachine< F >::fecMaybeDelete( U32 number ) {
   const auto & fec = fecs_[number];
   const bool routes = fec.inLine.next != inLineRing( number ) || fec.moving.next != movingRing( number );
   if ( fec.adj != AdjSm::none || routes || fec.queued ) return;
   fecById_.erase( fec.fecId );
   fecs_.give( number );
}

template < typename F >
typename RouteMachine< F >::Links & RouteMachine< F >::links( U32 place ) {
   if ( ( place & ringBit ) == 0 ) return told_[place].links;
   auto & fec = fecs_[( place & ~ringBit ) >> 1];
   return ( place & 1 ) == 0 ? fec.inLine : fec.moving;
}

template < typename F >
void RouteMachine< F >::link( U32 place, U32 ring ) {
   auto & own = links( place );
   auto & head = links( ring );
   own = { head.next, ring };
   links( head.next ).prev = place;
   head.next = place;
}

template < typename F >
void RouteMachine< F >::unlink( U32 place ) {
   const auto own = links( place );
   links( own.prev ).next = own.next;
   links( own.next ).prev = own.prev;
}

// Into the ring of the routes that are in line: whoever places a route tells it next.
template < typename F >
void RouteMachine< F >::place( U32 slot, U64 fecId ) {
   auto & told = told_[slot];
   const auto old = told.fec;
   if ( old != noFec && fecs_[old].fecId == fecId ) {
      if ( fecs_[old].moving.next == movingRing( old ) ) return;
      unlink( slot );
      link( slot, inLineRing( old ) );
      return;
   }
   const auto fec = fecNumber( fecId );
   told.fec = fec;
   if ( old != noFec ) unlink( slot );
   link( slot, inLineRing( fec ) );
   if ( old == noFec ) return;
   if ( told.routeType != 0 ) {
      --fecs_[old].told;
      ++fecs_[fec].told;
   }
   fecMaybeDelete( old );
}

template < typename F >
void RouteMachine< F >::move( U32 number ) {
   auto & fec = fecs_[number];
   if ( fec.inLine.next != inLineRing( number ) ) {
      const auto all = fec.inLine;
      links( fec.moving.prev ).next = all.next;
      links( all.next ).prev = fec.moving.prev;
      links( all.prev ).next = movingRing( number );
      fec.moving.prev = all.prev;
      fec.inLine = { inLineRing( number ), inLineRing( number ) };
   }
   if ( fec.queued || fec.moving.next == movingRing( number ) ) return;
   fec.queued = true;
   moves_.push_back( number );
   turns_.post();
}

// ---- many routes

template < typename F >
const typename RouteMachine< F >::Vrf & RouteMachine< F >::vrf( U32 vrfId ) const {
   static const Vrf none;
   if ( lastVrf_.second != nullptr && lastVrf_.first == vrfId ) return *lastVrf_.second;
   const auto at = vrfs_.find( vrfId );
   return at == vrfs_.end() ? none : at->second;
}

template < typename F >
typename RouteMachine< F >::Vrf & RouteMachine< F >::vrf( U32 vrfId ) {
   if ( lastVrf_.second == nullptr || lastVrf_.first != vrfId ) lastVrf_ = { vrfId, &vrfs_[vrfId] };
   return *lastVrf_.second;
}

template < typename F >
void RouteMachine< F >::sweep() {
   // From where the last one is, once around.
   told_.grow( args_.table->slots() );
   sweeping_ = true;
   sweepLeft_ = told_.size();
   turns_.post();
}

template < typename F >
void RouteMachine< F >::turn() {
   if ( zombie() || !hasNotificationActive() ) return;
   sweepSome( moveSome( routesPerTurn ) );
   if ( sweeping_ && sweepLeft_ == 0 ) swept();
   if ( std::exchange( uncommitted_, false ) ) F::commit( *args_.helper );
   if ( busy() ) turns_.post();
}

template < typename F >
size_t RouteMachine< F >::moveSome( size_t routes ) {
   while ( !moves_.empty() ) {
      const auto number = moves_.front();
      const auto ring = movingRing( number );
      for ( ; links( ring ).next != ring; --routes ) {
         if ( routes == 0 ) return 0;
         review( links( ring ).next, 0, true );
      }
      moves_.pop_front();
      fecs_[number].queued = false;
      fecMaybeDelete( number );
   }
   return routes;
}

template < typename F >
size_t RouteMachine< F >::sweepSome( size_t slots ) {
   for ( ; slots != 0 && sweepLeft_ != 0; --slots ) {
      if ( sweepAt_ >= told_.size() ) sweepAt_ = 0;
      // Counted first: what a review leads to may begin the sweep anew, and that one is to come here once more.
      --sweepLeft_;
      review( sweepAt_++, 0, false );
   }
   return slots;
}

template < typename F >
void RouteMachine< F >::swept() {
   sweeping_ = false;
   for ( const auto & [vrfId, vrf] : vrfs_ ) acknowledge( vrf, args_.table->sequence( vrfId ) );
   if ( std::exchange( sweptOnce_, true ) ) return;
   args_.helper->endOfSyncOnInit();
}

// ---- inspection

template < typename F >
void RouteMachine< F >::verify() {
   args_.helper->prepareForVerifyRoute();
   for ( U32 slot = 0; slot < told_.size(); ++slot ) {
      const auto & told = told_[slot];
      if ( told.routeType == 0 ) continue;
      args_.helper->verifyRoute( Prefix( told.address, told.len ), VrfId( told.vrfId ),
                                 info( { told.routeType, told.adj } ) );
   }
   args_.helper->verifyNumberOfRouteEntries();
   args_.helper->cleanupForVerifyRoute();
}

template < typename F >
void RouteMachine< F >::pending( Pendings & out, size_t most ) const {
   size_t listed = 0;
   for ( U32 slot = 0; slot < told_.size() && listed < most; ++slot ) {
      const auto & told = told_[slot];
      if ( !told.here || told.routeType != 0 || !args_.table->slotHas( slot ) ) continue;
      Gant::String reason;
      if ( told.unprogrammed == Mirel::UnprogrammedReason::familyNotSupported_ )
         reason = "refused: the data plane takes no routes of this family";
      else if ( told.unprogrammed == Mirel::UnprogrammedReason::refused_ )
         reason = "the data plane refused it";
      else
         wanted( told, args_.table->routeAt( slot ).routeType(), &reason );
      if ( reason.empty() ) reason = "its turn has not come";
      const Prefix prefix( told.address, told.len );
      out.push_back( { "route " + prefix.stringValue() + Gant::format( " in VRF %u", told.vrfId ), reason } );
      ++listed;
   }
}

template class RouteMachine< Ip4Routes >;
template class RouteMachine< Ip6Routes >;

} // namespace Hul
