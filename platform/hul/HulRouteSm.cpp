#include "HulRouteSm.h"

#include "GantAssert.h"
#include "GantTrace.h"
#include "HulCommonSmData.h"
#include "HulRouteReactors.h"

#include <cerrno>

namespace Hul {

static Gant::TraceHandle traceHandle( "HulRouteSm" );

namespace {

// Routes that one turn of the loop looks at.
constexpr size_t routesPerTurn = 2048;

} // namespace

template < typename F >
RouteMachine< F >::RouteMachine( Args args ) :
     args_( std::move( args ) ), tableReactor_( std::make_unique< GantTable >( this ) ),
     vrfReactor_( std::make_unique< GantVrfDir >( this ) ), adjReactor_( std::make_unique< GantAdjSm >( this ) ),
     l3Reactor_( std::make_unique< GantL3Status >( this ) ),
     progressReactor_( std::make_unique< GantProgress >( this ) ) {
   handleAll();
}

template < typename F >
RouteMachine< F >::~RouteMachine() = default;

template < typename F >
void RouteMachine< F >::hasNotificationActiveIs( bool active ) {
   StateMachine::hasNotificationActiveIs( active );
   if ( !active ) return;
   // One look at everything, however many reactors missed something.
   if ( std::exchange( missed_, false ) ) handleAll();
   if ( busy() || uncommitted_ || room_ != 0 ) turns_.post();
}

template < typename F >
void RouteMachine< F >::handleRoute( const Ref & ref ) {
   // One that goes is told at once: its slot, and its prefix, may soon be others'.
   if ( ( !late_.empty() || args_.common->progress()->full() ) && args_.table->slotHas( ref.slot ) )
      return postpone( ref.slot );
   const U64 sequence = allInLine() ? args_.table->sequence( ref.vrfId ) : 0;
   review( ref.slot, sequence, true );
   acknowledge( vrf( ref.vrfId ), sequence );
}

template < typename F >
void RouteMachine< F >::reachAll() {
   const auto slots = told_.size();
   told_.grow( args_.table->slots() );
   // A sweep that is under way goes around all that there is: it would end short of where it began.
   if ( sweepLeft_ != 0 ) sweepLeft_ += told_.size() - slots;
}

template < typename F >
void RouteMachine< F >::postpone( U32 slot ) {
   reachAll();
   auto & told = told_[ slot ];
   if ( told.routeType != 0 && !overtaken( told ) ) {
      if ( taken( told ) ) args_.adjSm->takenDec( told.adj );
      unask( told );
      told.underWay = true;
      told.asked = 0;
      underWayInc( told, 1 );
   }
   if ( told.late ) return;
   told.late = true;
   late_.push_back( slot );
}

template < typename F >
void RouteMachine< F >::handleFec( U64 fecId ) {
   const auto * const vias = suspended_ ? nullptr : args_.table->fec( fecId );
   if ( vias == nullptr && !fecById_.contains( fecId ) ) return;
   const auto number = fecNumber( fecId );
   auto & fec = fecs_[ number ];
   const auto old = fec.adj;
   if ( vias == nullptr ) {
      if ( old == AdjSm::none ) return;
      fec.adj = AdjSm::none;
   } else if ( old == AdjSm::none ) {
      fec.adj = args_.adjSm->use( F::af, fecId, *vias );
   } else if ( args_.adjSm->vias( old ) == *vias ) {
      return;
   } else if ( args_.adjSm->fecs( old ) == 1 && args_.adjSm->routes( old ) == fec.told && fec.moving.empty() &&
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
   if ( vrf.told != 0 || args_.table->routes( vrfId ) != 0 )
      sweep();
   else if ( allInLine() )
      acknowledge( vrf, args_.table->sequence( vrfId ) );
}

template < typename F >
void RouteMachine< F >::handleCreated( const Gant::Ptr< L2Adjacency > & l2Adj ) {
   for ( const auto & [ fecId, entry ] : l2Adj->adjEntryIterator() ) {
      const auto at = fecById_.find( fecId );
      if ( at == fecById_.end() ) continue;
      const auto adj = fecs_[ at->second ].adj;
      if ( adj != AdjSm::none && args_.adjSm->adjIndex( adj ) == l2Adj->key().index() ) move( at->second );
   }
}

template < typename F >
void RouteMachine< F >::handleSuspend() {
   if ( F::suspended( *args_.hulL3Status ) != suspended_ ) handleAll();
}

template < typename F >
void RouteMachine< F >::handleAll() {
   suspended_ = F::suspended( *args_.hulL3Status );
   // Routes that went while nobody listened go first: their slots, and their prefixes, may be others' by now.
   for ( U32 slot = 0; slot < told_.size(); ++slot )
      if ( told_[ slot ].here && !same( told_[ slot ], slot ) ) forget( slot, 0 );
   std::vector< U64 > fecIds;
   for ( const auto & [ fecId, number ] : fecById_ ) fecIds.push_back( fecId );
   for ( const auto & [ fecId, vias ] : args_.table->fecIterator() ) fecIds.push_back( fecId );
   std::ranges::sort( fecIds );
   for ( const auto fecId : fecIds ) handleFec( fecId );
   for ( const auto & [ vrfId, vrf ] : vrfs_ ) handleVrf( VrfId( vrfId ) );
   for ( const auto & vrfId : args_.vrfSm->vrfDir()->vrfPhaseKeys() ) handleVrf( vrfId );
   sweep();
}

template < typename F >
void RouteMachine< F >::review( U32 slot, U64 sequence, bool retry ) {
   reachAll();
   auto & told = told_[ slot ];
   if ( !args_.table->slotHas( slot ) ) {
      if ( told.here ) forget( slot, sequence );
      return;
   }
   if ( !told.here ) adopt( slot );
   const auto route = args_.table->routeAt( slot );
   join( slot, route.fecId() );
   if ( suspended_ ) {
      tell( slot, What(), sequence );
      unprogrammedIs( told, Mirel::UnprogrammedReason::familyNotSupported_ );
      return;
   }
   const auto what = wanted( told, route.routeType() );
   if ( told.unprogrammed == Mirel::UnprogrammedReason::refused_ && what.routeType != 0 && !retry ) return;
   tell( slot, what, sequence, overtaken( told ) );
   if ( what.routeType == 0 ) unprogrammedIs( told, waitsForRoom( told ) ? Mirel::UnprogrammedReason::noRoom_ : 0 );
}

template < typename F >
bool RouteMachine< F >::waitsForRoom( const Told & told ) const {
   const auto adj = fecs_[ told.fec ].adj;
   return adj != AdjSm::none && vrf( told.vrfId ).active && args_.adjSm->waitsForRoom( adj );
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
   auto & told = told_[ slot ];
   told.here = true;
   told.address = ref.prefix.address();
   told.len = ref.prefix.len();
   told.vrfId = ref.vrfId;
}

template < typename F >
typename RouteMachine< F >::What RouteMachine< F >::wanted( const Told & told, Mirel::RouteType routeType,
                                                            Gant::String * missing ) const {
   const auto lacks = [ missing ]( const auto & why ) {
      if ( missing != nullptr ) *missing = why();
      return What();
   };
   const auto & fec = fecs_[ told.fec ];
   if ( !vrf( told.vrfId ).active )
      return lacks( [ & ] { return Gant::format( "VRF %u does not exist", told.vrfId ); } );
   if ( fec.adj == AdjSm::none )
      return lacks( [ & ] { return "FEC " + std::to_string( fec.fecId ) + " does not exist"; } );
   if ( waitsForRoom( told ) ) return lacks( [ & ] { return args_.adjSm->lacksRoom( fec.adj ); } );
   if ( !args_.adjSm->created( fec.adj ) )
      return lacks( [ & ] { return "the data plane refused the adjacency of FEC " + std::to_string( fec.fecId ); } );
   return { routeType.value(), fec.adj };
}

template < typename F >
RouteInfo RouteMachine< F >::info( const What & what ) const {
   return what.routeType == 0 ? RouteInfo() : RouteInfo( what.routeType, args_.adjSm->adjIndex( what.adj ) );
}

template < typename F >
void RouteMachine< F >::tell( U32 slot, const What & what, U64 sequence, bool again ) {
   auto & told = told_[ slot ];
   const What old{ told.routeType, told.adj };
   const bool same = what.routeType == old.routeType && ( what.routeType == 0 || what.adj == old.adj );
   if ( same && !again ) return;
   const Prefix prefix( told.address, told.len );
   if ( taken( told ) ) args_.adjSm->takenDec( told.adj );
   unask( told );
   const auto before = args_.common->progress()->told();
   const bool done =
        F::done( args_.helper->updateRoute( prefix, VrfId( told.vrfId ), info( old ), info( what ), sequence ) );
   GANT_TRACE( 8, "RouteMachine::tell ", prefix, " vrf ", told.vrfId, done ? "" : " refused" );
   unprogrammedIs( told, done || what.routeType == 0 ? 0 : Mirel::UnprogrammedReason::refused_ );
   toldIs( told, done ? what : What() );
   askedIs( told, before, slot );
   if ( taken( told ) ) args_.adjSm->takenInc( told.adj );
   uncommitted_ = true;
   turns_.post();
}

template < typename F >
void RouteMachine< F >::askedIs( Told & told, U64 before, U32 slot ) {
   const auto last = args_.common->progress()->told();
   const bool gone = told.routeType == 0;
   if ( !underWay_.add( before, last, { slot, gone } ) || gone ) return;
   told.asked = static_cast< U32 >( last );
   told.underWay = true;
   underWayInc( told, 1 );
}

// What the data plane said of the route before concerns it no more.
template < typename F >
void RouteMachine< F >::unask( Told & told ) {
   if ( told.underWay ) underWayInc( told, -1 );
   if ( told.error != 0 ) refusedInc( told, -1 );
   if ( noRoom( told ) ) --noRoomRoutes_;
   told.underWay = false;
   told.error = 0;
}

template < typename F >
bool RouteMachine< F >::noRoom( const Told & told ) const {
   return told.error == ENOSPC;
}

template < typename F >
void RouteMachine< F >::handleRefused( const RefusedCommand & command ) {
   underWay_.refused( command, [ this ]( const auto & entry ) { answered( entry ); } );
}

template < typename F >
void RouteMachine< F >::handleAcknowledged() {
   underWay_.acknowledged( args_.common->progress()->acknowledged(),
                           [ this ]( const auto & entry ) { answered( entry ); } );
   const auto counts = this->counts();
   fill_.update( { counts.taken(), args_.common->routesMost(), counts.noRoom, counts.underWay } );
   if ( busy() || ( room_ != 0 && !waiting_.empty() ) ) turns_.post();
   giveBack();
}

template < typename F >
void RouteMachine< F >::giveBack() {
   const auto slots = args_.table->slots();
   if ( told_.size() / 2 < std::max( slots, told_.chunkSize ) ) return;
   // What is under way, or waits, names slots.
   if ( missed_ || busy() || !underWay_.empty() || !waiting_.empty() ) return;
   told_.shrink( slots );
   for ( const auto & [ fecId, number ] : fecById_ ) {
      auto & listed = fecs_[ number ].inLine;
      // Of routes that went.
      std::erase_if( listed, [ this ]( U32 slot ) { return slot >= told_.size(); } );
      if ( listed.capacity() > 4 * listed.size() ) listed.shrink_to_fit();
   }
}

template < typename F >
void RouteMachine< F >::answered( const typename UnderWay< Asked >::Entry & entry ) {
   if ( entry.object.gone != 0 ) {
      if ( entry.code == 0 && noRoomRoutes_ > room_ ) ++room_;
      return;
   }
   auto & told = told_[ entry.object.slot ];
   if ( !told.underWay || told.asked != entry.last ) return; // it was told again since
   told.underWay = false;
   underWayInc( told, -1 );
   if ( entry.code == 0 ) {
      args_.adjSm->takenInc( told.adj );
      return;
   }
   told.asked = entry.refused;
   told.error = static_cast< U8 >( std::clamp( entry.code, 1, 0xff ) );
   refusedInc( told, 1 );
   if ( !noRoom( told ) ) return;
   ++noRoomRoutes_;
   waiting_.push_back( entry.object.slot );
}

// Routes that had no room, oldest refusal first, as many as have room.
template < typename F >
size_t RouteMachine< F >::tellAgain( size_t routes ) {
   for ( ; routes != 0 && room_ != 0 && !waiting_.empty(); --routes ) {
      const auto slot = waiting_.front();
      waiting_.pop_front();
      auto & told = told_[ slot ];
      if ( !told.here || !noRoom( told ) ) continue;
      --room_;
      tell( slot, { told.routeType, told.adj }, 0, true );
   }
   if ( waiting_.empty() ) room_ = 0;
   return routes;
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
   fecs_[ told.fec ].told += static_cast< U32 >( more );
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
   auto & told = told_[ slot ];
   tell( slot, What(), sequence );
   unprogrammedIs( told, 0 );
   leave( told );
   const bool late = told.late;
   told = Told();
   told.late = late;
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

template < typename F >
void RouteMachine< F >::acknowledgeAll() {
   if ( !allInLine() ) return;
   for ( const auto & [ vrfId, vrf ] : vrfs_ ) acknowledge( vrf, args_.table->sequence( vrfId ) );
}

template < typename F >
U32 RouteMachine< F >::fecNumber( U64 fecId ) {
   const auto [ at, added ] = fecById_.try_emplace( fecId, 0 );
   if ( !added ) return at->second;
   const auto number = fecs_.take();
   at->second = number;
   fecs_[ number ].fecId = fecId;
   return number;
}

template < typename F >
void RouteMachine< F >::fecMaybeDelete( U32 number ) {
   const auto & fec = fecs_[ number ];
   if ( fec.adj != AdjSm::none || fec.routes != 0 || fec.queued ) return;
   fecById_.erase( fec.fecId );
   fecs_.give( number );
}

template < typename F >
void RouteMachine< F >::join( U32 slot, U64 fecId ) {
   auto & told = told_[ slot ];
   if ( told.fec != noFec && fecs_[ told.fec ].fecId == fecId ) return;
   // Taken before the old one is left, whose number might come back at once.
   const auto number = fecNumber( fecId );
   auto & fec = fecs_[ number ];
   ++fec.routes;
   if ( told.routeType != 0 ) ++fec.told;
   if ( told.fec != noFec ) leave( told );
   told.fec = number;
   list( fec, number, slot );
}

template < typename F >
void RouteMachine< F >::leave( Told & told ) {
   auto & fec = fecs_[ told.fec ];
   --fec.routes;
   if ( told.routeType != 0 ) --fec.told;
   fecMaybeDelete( told.fec );
}

template < typename F >
void RouteMachine< F >::list( Fec & fec, U32 number, U32 slot ) {
   auto & slots = fec.inLine;
   if ( slots.size() == slots.capacity() && slots.size() > 2 * size_t( fec.routes ) ) {
      // A slot may be here twice, when its route left and came again.
      std::erase_if( slots, [ & ]( U32 at ) { return told_[ at ].fec != number; } );
      std::ranges::sort( slots );
      slots.erase( std::unique( slots.begin(), slots.end() ), slots.end() );
   }
   slots.push_back( slot );
}

template < typename F >
void RouteMachine< F >::move( U32 number ) {
   auto & fec = fecs_[ number ];
   if ( fec.moving.empty() )
      fec.moving.swap( fec.inLine );
   else
      fec.moving.insert( fec.moving.end(), fec.inLine.begin(), fec.inLine.end() );
   fec.inLine.clear();
   if ( fec.queued || fec.moving.empty() ) return;
   fec.queued = true;
   moves_.push_back( number );
   turns_.post();
}

template < typename F >
const typename RouteMachine< F >::Vrf & RouteMachine< F >::vrf( U32 vrfId ) const {
   static const Vrf none;
   if ( lastVrf_.second != nullptr && lastVrf_.first == vrfId ) return *lastVrf_.second;
   const auto at = vrfs_.find( vrfId );
   return at == vrfs_.end() ? none : at->second;
}

template < typename F >
typename RouteMachine< F >::Vrf & RouteMachine< F >::vrf( U32 vrfId ) {
   if ( lastVrf_.second == nullptr || lastVrf_.first != vrfId ) lastVrf_ = { vrfId, &vrfs_[ vrfId ] };
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
   const bool held = args_.common->progress()->congested();
   if ( !held ) sweepSome( moveSome( tellLate( tellAgain( routesPerTurn ) ) ) );
   if ( sweeping_ && sweepLeft_ == 0 ) swept();
   if ( std::exchange( uncommitted_, false ) ) F::commit( *args_.helper );
   if ( !held && ( busy() || ( room_ != 0 && !waiting_.empty() ) ) ) turns_.post();
}

template < typename F >
size_t RouteMachine< F >::tellLate( size_t routes ) {
   if ( late_.empty() ) return routes;
   for ( ; routes != 0 && !late_.empty(); --routes ) {
      const auto slot = late_.front();
      late_.pop_front();
      told_[ slot ].late = false;
      review( slot, 0, true );
   }
   acknowledgeAll();
   return routes;
}

template < typename F >
size_t RouteMachine< F >::moveSome( size_t routes ) {
   while ( !moves_.empty() ) {
      const auto number = moves_.front();
      auto & fec = fecs_[ number ];
      for ( ; !fec.moving.empty(); --routes ) {
         if ( routes == 0 ) return 0;
         const auto slot = fec.moving.back();
         fec.moving.pop_back();
         if ( told_[ slot ].fec != number ) continue;
         list( fec, number, slot );
         review( slot, 0, true );
      }
      moves_.pop_front();
      fec.queued = false;
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
   acknowledgeAll();
   if ( std::exchange( sweptOnce_, true ) ) return;
   args_.helper->endOfSyncOnInit();
}

template class RouteMachine< Ip4Routes >;
template class RouteMachine< Ip6Routes >;

} // namespace Hul
