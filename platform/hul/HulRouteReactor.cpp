#include "HulRouteReactor.h"

#include "HulNeighbors.h"

#include <algorithm>

namespace Hul {

struct AddrResolverSm::GantConfig : RouteReactorConfig::Notifiee {
   explicit GantConfig( AddrResolverSm * owner ) :
        Notifiee( owner, owner->args_.hulRouteReactorConfig ), owner( owner ) {}
   void onAddr( const VrfAndIpAddr & addr ) override { owner->review( addr ); }
   void onRenotify() override { owner->reviewAll(); }
   AddrResolverSm * owner;
};

struct AddrResolverSm::GantPaths : RoutePathSm::Notifiee {
   explicit GantPaths( AddrResolverSm * owner ) : Notifiee( owner, owner->args_.routePathSm ), owner( owner ) {}
   void onPaths( const VrfAndIpAddr & addr ) override { owner->review( addr ); }
   void onRenotify() override { owner->reviewAll(); }
   AddrResolverSm * owner;
};

struct AddrResolverSm::GantArp : Arp::Table::Status::Notifiee {
   explicit GantArp( AddrResolverSm * owner ) : Notifiee( owner, owner->args_.neighborTable ), owner( owner ) {}
   void onNeighbor( const Arp::NeighborKey & key ) override { owner->reviewOver( key.intfId() ); }
   void onRenotify() override { owner->reviewAll(); }
   AddrResolverSm * owner;
};

struct AddrResolverSm::GantL3Status : L3Status::Notifiee {
   explicit GantL3Status( AddrResolverSm * owner ) : Notifiee( owner, owner->args_.hulL3Status ), owner( owner ) {}
   void onIntfRoutingState( const Kynet::IntfId & intfId ) override { owner->reviewOver( intfId ); }
   void onRenotify() override { owner->reviewAll(); }
   AddrResolverSm * owner;
};

struct AddrResolverSm::GantIntfs : Interface::AllIntfStatusDir::Notifiee {
   explicit GantIntfs( AddrResolverSm * owner ) : Notifiee( owner, owner->args_.allIntfStatusDir ), owner( owner ) {}
   void onIntfStatus( const Kynet::IntfId & intfId ) override { owner->reviewOver( intfId ); }
   void onRenotify() override { owner->reviewAll(); }
   AddrResolverSm * owner;
};

AddrResolverSm::AddrResolverSm( Args args ) :
     args_( std::move( args ) ), configReactor_( std::make_unique< GantConfig >( this ) ),
     pathReactor_( std::make_unique< GantPaths >( this ) ), arpReactor_( std::make_unique< GantArp >( this ) ),
     l3Reactor_( std::make_unique< GantL3Status >( this ) ), intfReactor_( std::make_unique< GantIntfs >( this ) ) {
   reviewAll();
}

AddrResolverSm::~AddrResolverSm() {
   for ( const auto & addr : followed_ ) args_.routePathSm->unfollow( addr );
}

void AddrResolverSm::reviewAll() {
   for ( const auto & addr : Gant::keysOf( followed_ ) ) review( addr );
   for ( const auto & addr : args_.hulRouteReactorConfig->addrKeys() ) review( addr );
}

void AddrResolverSm::reviewOver( Kynet::IntfId intfId ) {
   if ( followed_.empty() ) return;
   for ( const auto & addr : Gant::keysOf( followed_ ) ) {
      const auto & paths = args_.routePathSm->paths( addr );
      if ( std::ranges::any_of( paths, [ & ]( const Path & path ) { return path.intfId == intfId; } ) ) review( addr );
   }
}

void AddrResolverSm::review( const VrfAndIpAddr & addr ) {
   auto & config = *args_.hulRouteReactorConfig;
   // Paths of others' addresses are told here too.
   if ( !config.addrHas( addr ) ) {
      if ( followed_.erase( addr ) == 0 ) return;
      args_.routePathSm->unfollow( addr );
      config.resolutionDel( addr );
      return;
   }
   if ( followed_.insert( addr ).second ) args_.routePathSm->follow( addr );
   const Neighbors neighbors{ args_.hulL3Status, args_.neighborTable, args_.allIntfStatusDir };
   for ( const auto & path : args_.routePathSm->paths( addr ) ) {
      const auto mac = neighbors.mac( path.intfId, path.hop, Kynet::AddressFamily::ipv4() );
      if ( !mac ) continue;
      config.resolutionIs( addr, ResolvedAddr( path.intfId, mac ) );
      return;
   }
   config.resolutionDel( addr );
}

struct RouteResolverSm::GantConfig : RouteReactorConfig::Notifiee {
   explicit GantConfig( RouteResolverSm * owner ) :
        Notifiee( owner, owner->args_.hulRouteReactorConfig ), owner( owner ) {}
   void onAddr( const VrfAndIpAddr & addr ) override { owner->review( addr ); }
   void onResolution( const VrfAndIpAddr & addr ) override { owner->review( addr ); }
   void onRenotify() override { owner->reviewAll(); }
   RouteResolverSm * owner;
};

RouteResolverSm::RouteResolverSm( Args args ) :
     args_( std::move( args ) ), reactor_( std::make_unique< GantConfig >( this ) ) {
   reviewAll();
}

RouteResolverSm::~RouteResolverSm() = default;

void RouteResolverSm::reviewAll() {
   if ( !args_.hulRouteReactorConfig ) return;
   for ( const auto & addr : args_.hulL3Status->resolvedAddrKeys() ) review( addr );
   for ( const auto & addr : args_.hulRouteReactorConfig->addrKeys() ) review( addr );
}

void RouteResolverSm::review( const VrfAndIpAddr & addr ) {
   if ( args_.hulRouteReactorConfig->addrHas( addr ) )
      args_.hulL3Status->resolvedAddrIs( addr, args_.hulRouteReactorConfig->resolution( addr ) );
   else
      args_.hulL3Status->resolvedAddrDel( addr );
}

} // namespace Hul
