// How adjacencies live, and reach the helper.
#include "HulAdjImpl.h"

#include "GantAssert.h"
#include "GantTrace.h"
#include "HulCommonSmData.h"

#include <algorithm>

namespace Hul {

static Gant::TraceHandle traceHandle( "HulAdjSm" );

namespace {

// Adjacencies that an update in one turn of the loop does not make wait for others.
constexpr size_t walksPerTurn = 256;

} // namespace

template < typename Call >
auto AdjSm::Impl::asked( Number number, const Call & call ) {
   const auto & progress = *args.common->progress();
   const auto before = progress.told();
   auto answer = call();
   auto & adj = adjs[ number ];
   errorIs( adj, 0 );
   adj.underWay = underWay.add( before, progress.told(), number );
   adj.asked = static_cast< U32 >( progress.told() );
   return answer;
}

void AdjSm::Impl::tell( Number number ) {
   adjs[ number ].walkGranted = false;
   update( number );
}

void AdjSm::Impl::settled( const UnderWay< Number >::Entry & entry ) {
   auto & adj = adjs[ entry.object ];
   if ( !adj.l2Adj || !adj.underWay || adj.asked != entry.last ) return; // it was told again since
   adj.underWay = false;
   errorIs( adj, entry.code );
   if ( entry.code != 0 ) adj.asked = entry.refused;
}

void AdjSm::Impl::errorIs( Adj & adj, S32 error ) {
   if ( auto * const count = over( adj ) ) *count -= adj.taken;
   adj.error = error;
   if ( auto * const count = over( adj ) ) *count += adj.taken;
}

void AdjSm::Impl::disabledIs( Adj & adj, bool disabled ) {
   if ( auto * const count = over( adj ) ) *count -= adj.taken;
   adj.disabled = disabled;
   if ( auto * const count = over( adj ) ) *count += adj.taken;
}

U32 * AdjSm::Impl::over( const Adj & adj ) {
   auto & counts = takenOver( adj.af );
   return adj.error != 0 ? &counts.refused : adj.disabled ? &counts.disabled : nullptr;
}

void AdjSm::Impl::update( Number number ) {
   auto & adj = adjs[ number ];
   // This update does what a walk in the queue would do. One that is asked for while it runs comes after it.
   adj.walk = WalkState::idle();
   // The helper has no next hops of one that waits.
   if ( adj.lacking ) resolve( number );
   const bool had = created( number );
   if ( !adj.created ) {
      if ( !offer( number ) ) return;
   } else if ( makeRoom( number ) ) {
      answered( number, asked( number, [ & ] { return args.hulL2AdjHelper->update( adj.l2Adj ); } ) );
   }
   if ( had == created( number ) ) return;
   const auto l2Adj = adj.l2Adj;
   sm.notifiees_.tell( &Notifiee::onCreated, l2Adj );
}

bool AdjSm::Impl::offer( Number number ) {
   auto & adj = adjs[ number ];
   NextHopRoom::placesOf( adj.l2Adj->via(), wanted );
   if ( const auto table = room.lacking( wanted ) ) {
      waitFor( number, *table );
      return false;
   }
   waitNoMore( number );
   adj.places = wanted;
   room.take( adj.places );
   adj.created = asked( number, [ & ] { return bool( args.hulL2AdjHelper->create( adj.l2Adj ) ); } );
   if ( !adj.created ) {
      room.give( adj.places );
      adj.places.clear();
      if ( room.freed() ) fills.post();
   }
   return adj.created;
}

bool AdjSm::Impl::makeRoom( Number number ) {
   auto & adj = adjs[ number ];
   const auto exchange = [ & ] {
      room.take( wanted );
      room.give( adj.places );
      adj.places.swap( wanted );
      waitNoMore( number );
      if ( room.freed() ) fills.post();
   };
   NextHopRoom::placesOf( adj.l2Adj->via(), wanted );
   if ( !room.lacking( wanted ) ) {
      exchange();
      return true;
   }
   NextHopCollection meant;
   adj.l2Adj->viaSwap( meant );
   if ( !adj.places.empty() ) {
      asked( number, [ & ] { return args.hulL2AdjHelper->update( adj.l2Adj ); } );
      room.give( adj.places );
      adj.places.clear();
   }
   NextHopRoom::placesOf( meant, wanted );
   if ( const auto table = room.lacking( wanted ) ) {
      waitFor( number, *table );
      if ( room.freed() ) fills.post();
      return false;
   }
   adj.l2Adj->viaSwap( meant );
   exchange();
   return true;
}

void AdjSm::Impl::waitFor( Number number, const NextHopRoom::Table & table ) {
   auto & adj = adjs[ number ];
   if ( adj.lacking == table ) return;
   waitNoMore( number );
   adj.lacking = table;
   adj.ticket = room.wait( table, number );
   GANT_TRACE( 4, "AdjSm: adjacency ", adj.l2Adj->key().index(), ": ", room.reason( table ) );
}

void AdjSm::Impl::waitNoMore( Number number ) {
   auto & adj = adjs[ number ];
   if ( adj.lacking ) room.unwait( *adj.lacking, adj.ticket );
   adj.lacking.reset();
}

void AdjSm::Impl::fill() {
   if ( sm.zombie() || !sm.hasNotificationActive() ) return;
   auto most = walksPerTurn;
   while ( most != 0 ) {
      const auto table = room.nextFreed();
      if ( !table ) return;
      most = fillSome( *table, most );
   }
   fills.post();
}

// What is left of `most`. With nothing left, the table comes again.
size_t AdjSm::Impl::fillSome( const NextHopRoom::Table & table, size_t most ) {
   for ( auto number = room.first( table ); number; number = room.first( table ) ) {
      if ( most == 0 ) {
         room.freedIs( table );
         return 0;
      }
      --most;
      tell( *number );
      if ( adjs[ *number ].lacking == table ) break;
   }
   return most;
}

void AdjSm::Impl::answered( Number number, const AdjUpdateReturnType & answer ) {
   auto & adj = adjs[ number ];
   if ( !answer.prefixWalkRequired() || adj.walk == WalkState::scheduled_ ) return;
   // What is of no interface has no table to be written to, which no walk changes.
   if ( std::ranges::none_of( adj.ways, []( const auto & way ) { return !!way.intfId; } ) ) return;
   if ( adj.walkGranted ) {
      GANT_TRACE( 4, "AdjSm: adjacency ", adj.l2Adj->key().index(), " wants a walk after its walk, and waits" );
      adj.walk = WalkState::waiting();
      return;
   }
   adj.walkGranted = true;
   schedule( number );
}

void AdjSm::Impl::schedule( Number number ) {
   if ( adjs[ number ].walk == WalkState::scheduled_ ) return;
   adjs[ number ].walk = WalkState::scheduled();
   queue.push_back( number );
   walks.post();
}

void AdjSm::Impl::walk() {
   if ( sm.zombie() || !sm.hasNotificationActive() ) return;
   const auto turn = std::min( queue.size(), walksPerTurn );
   const std::vector< Number > numbers( queue.begin(), queue.begin() + static_cast< std::ptrdiff_t >( turn ) );
   queue.erase( queue.begin(), queue.begin() + static_cast< std::ptrdiff_t >( turn ) );
   for ( const auto number : numbers )
      if ( adjs[ number ].l2Adj && adjs[ number ].walk == WalkState::scheduled_ ) update( number );
   if ( !queue.empty() ) walks.post();
}

AdjSm::Number AdjSm::Impl::make( Kynet::AddressFamily af, const Mirel::Vias & vias ) {
   const auto number = adjs.take();
   auto & adj = adjs[ number ];
   adj.af = af;
   adj.vias = vias;
   adj.l2Adj = args.hulL2AdjHelper->newAdj();
   byVias.insert( number );
   byIndex[ adj.l2Adj->key().index() ] = number;
   bind( number );
   resolve( number );
   return number;
}

void AdjSm::Impl::maybeDelete( Number number ) {
   auto & adj = adjs[ number ];
   if ( adj.routes != 0 || adj.l2Adj->adjEntrys() != 0 ) return;
   args.hulL2AdjHelper->del( adj.l2Adj, adj.created );
   waitNoMore( number );
   room.give( adj.places );
   if ( room.freed() ) fills.post();
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
   if ( !active ) return;
   // One look at everything, however many reactors missed something.
   const bool missed = std::exchange( impl_->missed, false );
   if ( std::exchange( impl_->missedReview, false ) )
      impl_->handleReview();
   else if ( missed )
      impl_->handleAll();
   if ( !impl_->queue.empty() ) impl_->walks.post();
   if ( impl_->room.freed() ) impl_->fills.post();
}

void AdjSm::schedulePrefixWalk( const Gant::Ptr< AdjEntry > & adjEntry ) {
   if ( zombie() || !adjEntry ) return;
   const auto at = impl_->byIndex.find( adjEntry->adjIndex() );
   if ( at == impl_->byIndex.end() ) return;
   impl_->adjs[ at->second ].walkGranted = false;
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
   auto & adj = impl_->adjs[ number ];
   const auto & l2Adj = adj.l2Adj;
   // While only routes that leave it were on it, nobody could ask for a walk in its name.
   const bool left = !made && l2Adj->adjEntrys() == 0;
   const U8 routeType = vias.empty() ? Mirel::RouteType::none_ : vias.front().kind().value();
   l2Adj->adjEntryIs( fecId, Gant::make< AdjEntry >( l2Adj->key().index(), routeType, fecId ) );
   if ( made ) impl_->offer( number );
   if ( left ) {
      adj.walkGranted = false;
      impl_->schedule( number );
   }
   return number;
}

void AdjSm::unuse( Number number, U64 fecId ) {
   impl_->adjs[ number ].l2Adj->adjEntryDel( fecId );
   impl_->maybeDelete( number );
}

void AdjSm::viasIs( Number number, const Mirel::Vias & vias ) {
   auto & adj = impl_->adjs[ number ];
   impl_->indexIs( number, false );
   impl_->byVias.erase( number );
   adj.ways.clear();
   adj.vias = vias;
   impl_->byVias.insert( number );
   impl_->bind( number );
   if ( impl_->resolve( number ) || adj.lacking ) impl_->tell( number );
}

const Mirel::Vias & AdjSm::vias( Number number ) const { return impl_->adjs[ number ].vias; }

size_t AdjSm::fecs( Number number ) const { return impl_->adjs[ number ].l2Adj->adjEntrys(); }

void AdjSm::routesInc( Number number ) { ++impl_->adjs[ number ].routes; }

void AdjSm::routesDec( Number number ) {
   auto & adj = impl_->adjs[ number ];
   GANT_ASSERT( adj.routes != 0, " adjacency ", adj.l2Adj->key().index() );
   if ( --adj.routes == 0 ) impl_->maybeDelete( number );
}

U32 AdjSm::routes( Number number ) const { return impl_->adjs[ number ].routes; }

void AdjSm::takenInc( Number number ) {
   auto & adj = impl_->adjs[ number ];
   ++adj.taken;
   if ( auto * const count = impl_->over( adj ) ) ++*count;
}

void AdjSm::takenDec( Number number ) {
   auto & adj = impl_->adjs[ number ];
   GANT_ASSERT( adj.taken != 0, " adjacency ", adj.l2Adj->key().index() );
   --adj.taken;
   if ( auto * const count = impl_->over( adj ) ) --*count;
}

const AdjSm::TakenOver & AdjSm::takenOver( Kynet::AddressFamily af ) const { return impl_->takenOver( af ); }

bool AdjSm::Impl::created( Number number ) const { return adjs[ number ].created && !adjs[ number ].lacking; }

bool AdjSm::created( Number number ) const { return impl_->created( number ); }

Gant::String AdjSm::lacksRoom( Number number ) const {
   const auto & lacking = impl_->adjs[ number ].lacking;
   return lacking ? impl_->room.reason( *lacking ) : "";
}

bool AdjSm::waitsForRoom( Number number ) const { return impl_->adjs[ number ].lacking.has_value(); }

void AdjSm::nextHopLimitsIs( const NextHopLimits & limits ) { impl_->room.limitsIs( limits ); }

bool AdjSm::refused( Number number ) const { return impl_->adjs[ number ].error != 0; }

Gant::String AdjSm::refusal( Number number ) const {
   const auto & adj = impl_->adjs[ number ];
   return adj.error == 0 ? Gant::String() : impl_->args.common->progress()->reason( adj.asked, adj.error );
}

Kynet::IntfId AdjSm::disabledIntf( Number number ) const {
   const auto & intfs = *impl_->args.allIntfStatusDir;
   Kynet::IntfId first;
   for ( const auto & via : vias( number ) ) {
      if ( !via.intfId() || !intfs.intfStatusHas( via.intfId() ) || intfs.intfStatus( via.intfId() ).operUp() )
         return {};
      if ( !first ) first = via.intfId();
   }
   return first;
}

Gant::String AdjSm::disabled( Number number ) const {
   const auto intfId = disabledIntf( number );
   if ( !intfId ) return {};
   const bool enabled = impl_->args.allIntfStatusDir->intfStatus( intfId ).adminUp();
   return "interface " + intfId.stringValue() + ( enabled ? " is down" : " is disabled" );
}

RouteState AdjSm::state( U64 adjIndex ) const {
   const auto at = impl_->byIndex.find( adjIndex );
   if ( at == impl_->byIndex.end() ) return { RouteProgress::pending(), "there is no such adjacency" };
   const auto & adj = impl_->adjs[ at->second ];
   if ( adj.lacking ) return { RouteProgress::pending(), impl_->room.reason( *adj.lacking ) };
   if ( !adj.created ) return { RouteProgress::refused(), "the data plane's helper refused it" };
   if ( adj.underWay ) return { RouteProgress::pending(), "the data plane has not answered" };
   if ( adj.error != 0 ) return { RouteProgress::refused(), refusal( at->second ) };
   return { RouteProgress::programmed(), {} };
}

U64 AdjSm::adjIndex( Number number ) const { return impl_->adjs[ number ].l2Adj->key().index(); }

size_t AdjSm::adjs() const { return impl_->adjs.taken(); }

std::vector< AdjSm::NextHopUse > AdjSm::nextHopUses() const { return impl_->room.uses(); }

void AdjSm::verify() {
   auto & adjs = impl_->adjs;
   for ( Number number = 0; number < adjs.size(); ++number )
      if ( adjs[ number ].l2Adj && adjs[ number ].created ) impl_->args.hulL2AdjHelper->verify( adjs[ number ].l2Adj );
}

void AdjSm::pending( Pendings & out ) const {
   const auto & adjs = impl_->adjs;
   for ( Number number = 0; number < adjs.size(); ++number ) {
      const auto & adj = adjs[ number ];
      if ( !adj.l2Adj ) continue;
      const auto object = "adjacency " + std::to_string( adj.l2Adj->key().index() );
      if ( adj.lacking )
         out.push_back( { object, impl_->room.reason( *adj.lacking ) } );
      else if ( !adj.created )
         out.push_back( { object, "the data plane refused it" } );
      else if ( adj.error != 0 )
         out.push_back( { object, "the data plane refused it: " + refusal( number ) } );
      else if ( adj.underWay )
         out.push_back( { object, "the data plane has not answered" } );
      else if ( auto lacking = impl_->lacks( adj ); !lacking.empty() )
         out.push_back( { object, std::move( lacking ) } );
      else if ( adj.walk == WalkState::waiting_ )
         out.push_back( { object, "the data plane took it in part" } );
   }
}

} // namespace Hul
