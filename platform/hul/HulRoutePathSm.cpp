#include "HulRoutePathSm.h"

#include "GantAssert.h"

#include <algorithm>

namespace Hul {

struct RoutePathSm::GantRouteStatus : Mirel::Fib::RouteStatus::Notifiee {
   explicit GantRouteStatus( RoutePathSm * owner ) : Notifiee( owner, owner->routeStatus_ ), owner( owner ) {}
   void onRoute( const Mirel::RouteRef< Kynet::Prefix > & route ) override {
      if ( !owner->targets_.empty() ) owner->handleRoute( route );
   }
   void onFec( const U64 & fecId ) override { owner->handleFec( fecId ); }
   void onRenotify() override { owner->reviewAll(); }
   RoutePathSm * owner;
};

RoutePathSm::RoutePathSm( Gant::Ptr< const Mirel::Fib::RouteStatus > routeStatus ) :
     routeStatus_( std::move( routeStatus ) ), reactor_( std::make_unique< GantRouteStatus >( this ) ) {}

RoutePathSm::~RoutePathSm() = default;

void RoutePathSm::follow( const VrfAndIpAddr & address ) {
   if ( targets_[ address ].followers++ == 0 ) review( address );
}

void RoutePathSm::unfollow( const VrfAndIpAddr & address ) {
   const auto at = targets_.find( address );
   GANT_ASSERT( at != targets_.end(), " address ", address );
   if ( --at->second.followers != 0 ) return;
   indexIs( address, at->second, false );
   targets_.erase( at );
}

const Paths & RoutePathSm::paths( const VrfAndIpAddr & address ) const {
   static const Paths none;
   const auto at = targets_.find( address );
   return at == targets_.end() ? none : at->second.paths;
}

void RoutePathSm::handleRoute( const Mirel::RouteRef< Kynet::Prefix > & route ) {
   Targets touched;
   const VrfId vrfId( route.vrfId );
   for ( auto at = byLookedUp_.lower_bound( VrfAndIpAddr( vrfId, route.prefix.address() ) );
         at != byLookedUp_.end() && at->first.vrfId() == vrfId && route.prefix.contains( at->first.ipAddr() ); ++at )
      touched.insert( at->second.begin(), at->second.end() );
   for ( const auto & address : touched ) review( address );
}

void RoutePathSm::handleFec( U64 fecId ) {
   const auto at = byFec_.find( fecId );
   if ( at == byFec_.end() ) return;
   const auto touched = at->second;
   for ( const auto & address : touched ) review( address );
}

void RoutePathSm::reviewAll() {
   for ( const auto & address : Gant::keysOf( targets_ ) ) review( address );
}

void RoutePathSm::review( const VrfAndIpAddr & address ) {
   const auto at = targets_.find( address );
   if ( at == targets_.end() ) return;
   auto & target = at->second;
   indexIs( address, target, false );
   target.lookedUp.clear();
   target.fecs.clear();
   Paths paths;
   find( address, 0, target, paths );
   indexIs( address, target, true );
   if ( paths == target.paths ) return;
   target.paths = std::move( paths );
   notifiees_.tell( &Notifiee::onPaths, address );
}

void RoutePathSm::find( const VrfAndIpAddr & address, U32 depth, Target & target, Paths & out ) const {
   if ( depth == depthMax || target.lookedUp.size() == lookUpsMax ) return;
   target.lookedUp.push_back( address );
   const auto match = routeStatus_->match( address.vrfId(), address.ipAddr() );
   if ( !match ) return;
   const auto fecId = routeStatus_->routeAt( match->slot ).fecId();
   target.fecs.push_back( fecId );
   const auto * const vias = routeStatus_->fec( fecId );
   if ( vias == nullptr ) return;
   std::vector< ShareGroup > groups;
   const auto first = out.size();
   for ( const auto & via : *vias ) {
      const auto before = out.size();
      findBy( via, address, depth, target, out );
      const auto members = static_cast< U32 >( out.size() - before );
      if ( members != 0 ) groups.push_back( { members, std::max< U32 >( 1, via.weight() ) } );
   }
   std::vector< U32 > shares;
   for ( auto at = first; at < out.size(); ++at ) shares.push_back( out[ at ].weight );
   spread( groups, shares );
   for ( auto at = first; at < out.size(); ++at ) out[ at ].weight = shares[ at - first ];
}

void RoutePathSm::findBy( const Mirel::Via & via, const VrfAndIpAddr & address, U32 depth, Target & target,
                          Paths & out ) const {
   if ( Kynet::TunnelIntfId::isTunnelIntfId( via.intfId() ) ) return;
   const Kynet::IpGenAddr self( address.ipAddr() );
   if ( via.kind() == Mirel::RouteType::attached_ )
      out.push_back( { via.intfId(), self, 1 } );
   else if ( via.kind() == Mirel::RouteType::forward_ && !!via.intfId() )
      out.push_back( { via.intfId(), via.hopHas() ? via.hop() : self, 1 } );
   else if ( via.kind() == Mirel::RouteType::forward_ && via.hopHas() )
      find( VrfAndIpAddr( address.vrfId(), via.hop().v4Addr() ), depth + 1, target, out );
}

void RoutePathSm::indexIs( const VrfAndIpAddr & address, const Target & target, bool present ) {
   const auto put = [ & ]( auto & index, const auto & key ) {
      if ( present ) {
         index[ key ].insert( address );
         return;
      }
      const auto at = index.find( key );
      if ( at == index.end() ) return;
      at->second.erase( address );
      if ( at->second.empty() ) index.erase( at );
   };
   for ( const auto & lookedUp : target.lookedUp ) put( byLookedUp_, lookedUp );
   for ( const auto fecId : target.fecs ) put( byFec_, fecId );
}

} // namespace Hul
