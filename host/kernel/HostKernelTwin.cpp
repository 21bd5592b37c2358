#include "HostKernelTwin.h"

#include <algorithm>
#include <system_error>

namespace Host {

// What the namespace tells goes first to its devices, then to its routes: these ask whether those carry.
struct KernelTwin::Place : KernelNamespace::Watcher {
   Place( KernelTwin & twin, const std::string & netns ) :
        twin( twin ), space( netns, *this, twin.tell_ ),
        devices( space, twin.wants_,
                 { [ &twin ]( auto intfId, auto & addr, auto & mac ) { twin.neighborIs( intfId, addr, mac ); },
                   [ &twin ]( auto intfId, auto & addr ) { twin.neighborGone( intfId, addr ); },
                   [ this ]( U32 lost ) {
                      if ( routes ) routes->handleCarrying( lost );
                      readAgain();
                   },
                   [ this, &twin ] {
                      readAgain();
                      if ( twin.indexWatcher_ ) twin.indexWatcher_();
                   },
                   [ &twin ]( auto intfId, auto & facts ) { twin.said( intfId, facts ); } },
                 twin.tell_ ) {}
   void onStands() override {
      twin.readRoutes( *this );
      devices.handleStands();
      if ( routes ) routes->handleStands();
   }
   void onLost() override {
      reader = nullptr;
      if ( routes ) routes->handleLost();
      devices.handleLost();
   }
   void onLink( U32 index ) override { devices.handleLink( index ); }
   void onAddress( U32 index ) override {
      devices.handleAddress( index );
      if ( devices.intfAt( index ) ) readAgain();
   }
   void onNeighbor( U32 index, const Kynet::IpGenAddr & addr ) override { devices.handleNeighbor( index, addr ); }
   void onNextHopGone( U32 id ) override {
      if ( routes ) routes->handleNextHopGone( id );
   }

   // The kernel may have taken routes away, unsaid.
   void readAgain() {
      if ( reader ) twin.source_.readSoon();
   }

   KernelTwin & twin;
   KernelNamespace space;
   KernelDevices devices;
   std::unique_ptr< KernelRoutes > routes;      // of the VRF whose namespace it is
   std::unique_ptr< KernelRouteReader > reader; // the same
   std::optional< U32 > vrfId{};
   bool routesWanted = false;
   L3::VrfName refusedVrf{};
};

struct KernelTwin::GantPorts : PortDir::Notifiee {
   explicit GantPorts( KernelTwin * owner ) : Notifiee( owner, owner->state_.tree().portDir ), owner( owner ) {}
   void onPort( const Kynet::IntfId & intfId ) override { owner->reviewLater( intfId ); }
   KernelTwin * owner;
};

struct KernelTwin::GantIp : Ip::Status::Notifiee {
   explicit GantIp( KernelTwin * owner ) : Notifiee( owner, owner->state_.tree().ipStatus ), owner( owner ) {}
   void onIntfStatus( const Kynet::IntfId & intfId ) override { owner->reviewLater( intfId ); }
   void onIntfAddr( const Ip::IntfAddr & address ) override { owner->reviewLater( address.intfId() ); }
   KernelTwin * owner;
};

struct KernelTwin::GantArp : Arp::Table::Status::Notifiee {
   explicit GantArp( KernelTwin * owner ) : Notifiee( owner, owner->state_.tree().arp ), owner( owner ) {}
   void onNeighbor( const Arp::NeighborKey & key ) override { owner->reviewFixed( key ); }
   KernelTwin * owner;
};

template < typename P >
struct KernelTwin::GantFib : Mirel::RouteTable< P >::Notifiee {
   GantFib( KernelTwin * owner, Gant::Ptr< const Mirel::RouteTable< P > > fib, Uses & uses ) :
        Mirel::RouteTable< P >::Notifiee( owner, fib ), owner( owner ), uses( uses ) {
      for ( const auto & [ fecId, vias ] : fib->fecIterator() ) owner->reviewFec( *fib, uses, fecId );
   }
   void onFec( const U64 & fecId ) override { owner->reviewFec( *this->notifier(), uses, fecId ); }
   KernelTwin * owner;
   Uses & uses;
};

KernelTwin::KernelTwin( RouterState & state, KernelTell tell ) :
     state_( state ), tell_( std::move( tell ) ), source_( state, tell_ ) {
   const auto & tree = state_.tree();
   portReactor_ = std::make_unique< GantPorts >( this );
   ipReactor_ = std::make_unique< GantIp >( this );
   arpReactor_ = std::make_unique< GantArp >( this );
   fibReactor_ = std::make_unique< GantFib< Kynet::Prefix > >( this, tree.fib, uses4_ );
   fib6Reactor_ = std::make_unique< GantFib< Kynet::Ip6Prefix > >( this, tree.fib6, uses6_ );
   for ( const auto & [ key, told ] : state_.intfBook().neighbors() )
      reviewFixed( Arp::NeighborKey( key.first, key.second ) );
}

KernelTwin::~KernelTwin() { *alive_ = false; }

// -- Devices

void KernelTwin::deviceIs( Kynet::IntfId intfId, const KernelDeviceAt & device ) {
   const auto at = devices_.find( intfId );
   if ( at != devices_.end() && at->second == device ) return;
   deviceDel( intfId );
   devices_[ intfId ] = device;
   place( device.netns ).space.start();
   reviewLater( intfId );
}

void KernelTwin::deviceDel( Kynet::IntfId intfId ) {
   refusedFacts_.erase( intfId );
   vrfs_.erase( intfId );
   if ( devices_.erase( intfId ) != 0 ) reviewLater( intfId );
}

void KernelTwin::routesWrittenIs( bool written ) {
   if ( std::exchange( routesWritten_, written ) != written ) reviewVrfs();
}

void KernelTwin::outcomesAre( OutcomeOf outcomeOf ) {
   if ( !outcomeOf == !outcomeOf_ ) return;
   outcomeOf_ = std::move( outcomeOf );
   for ( auto & [ netns, place ] : places_ ) place->reader = nullptr;
   reviewVrfs();
}

std::optional< Kynet::IntfId > KernelTwin::intfAt( const std::string & netns, U32 index ) const {
   const auto place = places_.find( netns );
   return place == places_.end() ? std::nullopt : place->second->devices.intfAt( index );
}

std::optional< U32 > KernelTwin::indexOf( Kynet::IntfId intfId ) const {
   const auto * const place = placeOf( intfId );
   return place == nullptr ? std::nullopt : place->devices.carrying( intfId );
}

std::string KernelTwin::error( Kynet::IntfId intfId ) const {
   const auto * const place = placeOf( intfId );
   return place == nullptr ? std::string() : place->devices.error( intfId );
}

bool KernelTwin::read() const {
   const auto stands = []( const auto & entry ) {
      return entry.second->space.stands() && entry.second->devices.inLine();
   };
   return !posted_ && source_.read() && std::ranges::all_of( places_, stands );
}

void KernelTwin::leftoversHeldIs( bool held ) {
   leftoversHeld_ = held;
   for ( const auto & [ netns, place ] : places_ )
      if ( place->routes ) place->routes->leftoversHeldIs( held );
}

bool KernelTwin::settled() const {
   for ( const auto & [ netns, place ] : places_ )
      if ( !place->space.stands() || ( place->routes && !place->routes->settled() ) ) return false;
   return !posted_;
}

KernelTwin::Place & KernelTwin::place( const std::string & netns ) {
   auto & place = places_[ netns ];
   if ( !place ) place = std::make_unique< Place >( *this, netns );
   return *place;
}

KernelTwin::Place * KernelTwin::placeOf( Kynet::IntfId intfId ) const {
   const auto device = devices_.find( intfId );
   if ( device == devices_.end() ) return nullptr;
   return places_.at( device->second.netns ).get();
}

// In a turn of its own: an interface's facts change one after the other.
void KernelTwin::reviewLater( Kynet::IntfId intfId ) {
   pending_.insert( intfId );
   if ( std::exchange( posted_, true ) ) return;
   Gant::activityManager()->post( [ this, alive = alive_ ] {
      if ( *alive ) review();
   } );
}

void KernelTwin::review() {
   posted_ = false;
   for ( const auto intfId : std::exchange( pending_, {} ) ) reviewDevice( intfId );
   reviewVrfs();
   for ( const auto & key : std::exchange( pendingNeighbors_, {} ) )
      if ( auto * const place = placeOf( key.first ) ) place->devices.neighborAsKnown( key.first, key.second );
}

void KernelTwin::reviewDevice( Kynet::IntfId intfId ) {
   const auto & intfs = state_.intfBook().intfs();
   const auto intf = intfs.find( intfId );
   auto * const wanted = intf == intfs.end() ? nullptr : placeOf( intfId );
   for ( const auto & [ netns, place ] : places_ )
      if ( place.get() != wanted && place->devices.deviceHas( intfId ) ) {
         place->devices.deviceDel( intfId );
         if ( place->routes ) place->routes->handleDevices();
      }
   if ( wanted == nullptr ) return;
   const auto & fact = intf->second.fact;
   const bool added = !wanted->devices.deviceHas( intfId );
   wanted->devices.deviceIs( intfId, { devices_.at( intfId ).name, state_.tree().portDir->port( intfId ).macAddr(),
                                       state_.intfBook().mtu( fact ), fact.addresses, fact.enabled, fact.open } );
   if ( added && wanted->routes ) wanted->routes->handleDevices();
   // What leads there leads into another VRF.
   if ( std::exchange( vrfs_[ intfId ], fact.vrf ) == fact.vrf ) return;
   wanted->readAgain();
   if ( indexWatcher_ ) indexWatcher_();
}

// A namespace without devices is let go. What the kernel has of it goes when it has some again.
void KernelTwin::reviewVrfs() {
   for ( auto at = places_.begin(); at != places_.end(); ) {
      const bool used =
           std::ranges::any_of( devices_, [ & ]( const auto & entry ) { return entry.second.netns == at->first; } );
      if ( used ) reviewVrf( *at->second );
      at = used ? std::next( at ) : places_.erase( at );
   }
}

void KernelTwin::reviewVrf( Place & place ) {
   const auto & intfs = state_.intfBook().intfs();
   std::optional< L3::VrfName > vrf;
   L3::VrfName other;
   for ( const auto & [ intfId, device ] : devices_ ) {
      const auto intf = intfs.find( intfId );
      if ( device.netns != place.space.netns() || intf == intfs.end() ) continue;
      if ( !vrf ) vrf = intf->second.fact.vrf;
      if ( intf->second.fact.vrf != *vrf ) other = intf->second.fact.vrf;
   }
   if ( std::exchange( place.refusedVrf, other ) != other && other != L3::VrfName() )
      tell_( textOf( other ) + ": its routes are not written to the kernel: " + place.space.text() + " is that of " +
             textOf( *vrf ) );
   const auto vrfId = state_.vrfBook().id( vrf.value_or( L3::VrfName() ) );
   if ( place.routes && ( !vrfId || place.routes->vrfId() != *vrfId || place.routesWanted != routesWritten_ ) )
      place.routes = nullptr;
   place.vrfId = vrfId;
   readRoutes( place );
   if ( place.routes || !vrfId ) return;
   place.routesWanted = routesWritten_;
   auto & devices = place.devices;
   place.routes = std::make_unique< KernelRoutes >(
        place.space,
        KernelRoutes::Args{ state_.tree().fib, state_.tree().fib6, *vrfId, routesWritten_, leftoversHeld_,
                            [ &devices ]( Kynet::IntfId intfId ) { return devices.carrying( intfId ); },
                            [ &devices ]( Kynet::IntfId intfId ) { return devices.deviceHas( intfId ); } },
        tell_ );
}

// Of a namespace that is not there nothing is read, until it stands.
void KernelTwin::readRoutes( Place & place ) {
   if ( place.reader && place.reader->vrfId() != place.vrfId ) place.reader = nullptr;
   if ( place.reader || !place.vrfId || !place.space.stands() ) return;
   auto & devices = place.devices;
   try {
      place.reader = std::make_unique< KernelRouteReader >(
           source_,
           KernelRouteReader::Args{ state_, place.space.netns(), *place.vrfId,
                                    [ &devices ]( U32 index ) { return devices.intfAt( index ); }, outcomeOf_ } );
   } catch ( const std::system_error & error ) {
      tell_( place.space.text() + ": its routes are not read: " + error.what() );
   }
}

// An address that the router cannot have stays the kernel's own; anything else is put right.
void KernelTwin::said( Kynet::IntfId intfId, const KernelFacts & facts ) {
   const auto result = state_.kernelFactsAre( intfId, facts );
   if ( isDone( result ) ) {
      refusedFacts_.erase( intfId );
   } else if ( std::exchange( refusedFacts_[ intfId ], facts ) != facts ) {
      tell_( std::string( result.message ) + ", as the kernel has it" );
      reviewLater( intfId );
   }
}

// -- Neighbours and next hops

const Told< NeighborFact > * KernelTwin::toldNeighbor( const NeighborWants::key_type & key ) const {
   const auto & neighbors = state_.intfBook().neighbors();
   const auto at = neighbors.find( key );
   return at == neighbors.end() ? nullptr : &at->second;
}

// In a reaction to the state: it only notes what is to be done.
void KernelTwin::reviewFixed( const Arp::NeighborKey & neighbor ) {
   const NeighborWants::key_type key( neighbor.intfId(), neighbor.addr() );
   const auto * const told = toldNeighbor( key );
   const bool fixed = told != nullptr && told->teller != Teller::kernel_;
   auto & want = wants_[ key ];
   const auto former = std::exchange( want.fixed, fixed ? told->fact.mac : Kynet::EthAddr() );
   const bool changed = former != want.fixed;
   if ( want.users == 0 && !want.fixed ) wants_.erase( key );
   if ( !changed ) return;
   if ( auto * const place = placeOf( key.first ) ) place->devices.wantChanged( key.first, key.second );
   // What the kernel knows of the address holds again.
   if ( !fixed ) {
      pendingNeighbors_.insert( key );
      reviewLater( key.first );
   }
}

template < typename P >
void KernelTwin::reviewFec( const Mirel::RouteTable< P > & fib, Uses & uses, U64 fecId ) {
   std::vector< NeighborWants::key_type > hops;
   if ( const auto * const vias = fib.fec( fecId ) )
      for ( const auto & via : *vias )
         if ( via.kind() == Mirel::RouteType::forward_ && via.hopHas() ) hops.emplace_back( via.intfId(), via.hop() );
   const auto at = uses.find( fecId );
   const auto former = at == uses.end() ? std::vector< NeighborWants::key_type >() : at->second;
   // What stays in use is never out of it.
   for ( const auto & key : hops ) usersAre( key, 1 );
   for ( const auto & key : former ) usersAre( key, -1 );
   if ( hops.empty() )
      uses.erase( fecId );
   else
      uses[ fecId ] = std::move( hops );
}

void KernelTwin::usersAre( const NeighborWants::key_type & key, int more ) {
   const auto at = wants_.try_emplace( key ).first;
   const bool used = at->second.users != 0;
   at->second.users += static_cast< U32 >( more );
   const bool changed = used != ( at->second.users != 0 );
   if ( at->second.users == 0 && !at->second.fixed ) wants_.erase( at );
   if ( !changed ) return;
   if ( auto * const place = placeOf( key.first ) ) place->devices.wantChanged( key.first, key.second );
}

// What the router cannot have as a neighbour (a tunnel's, say) is the kernel's own.
void KernelTwin::neighborIs( Kynet::IntfId intfId, const Kynet::IpGenAddr & addr, const Kynet::EthAddr & mac ) {
   const auto * const told = toldNeighbor( { intfId, addr } );
   if ( told != nullptr && ( told->teller != Teller::kernel_ || told->fact.mac == mac ) ) return;
   state_.neighborIs( { intfId, addr, mac }, Teller::kernel() );
}

void KernelTwin::neighborGone( Kynet::IntfId intfId, const Kynet::IpGenAddr & addr ) {
   std::vector< Kynet::IpGenAddr > gone;
   const auto & neighbors = state_.intfBook().neighbors();
   const bool all = addr == Kynet::IpGenAddr();
   for ( auto at = neighbors.lower_bound( { intfId, addr } ); at != neighbors.end() && at->first.first == intfId;
         ++at ) {
      if ( !all && at->first.second != addr ) break;
      if ( at->second.teller == Teller::kernel_ ) gone.push_back( at->first.second );
   }
   for ( const auto & one : gone ) state_.neighborDel( intfId, one );
}

} // namespace Host
