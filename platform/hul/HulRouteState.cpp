// What has become of the routes.
#include "HulCommonSmData.h"
#include "HulRouteSm.h"

#include <cerrno>

namespace Hul {

template < typename F >
RouteCounts RouteMachine< F >::counts() const {
   const auto & over = args_.adjSm->takenOver( F::af );
   return { underWayRoutes_,
            toldRoutes_ - underWayRoutes_ - refusedRoutes_ - over.refused - over.disabled,
            refusedRoutes_ + over.refused + static_cast< U32 >( args_.unprogrammed->routes() ),
            noRoomRoutes_,
            over.refused,
            over.disabled };
}

template < typename F >
RouteCounts RouteMachine< F >::counts( U32 vrfId ) const {
   const auto & vrf = this->vrf( vrfId );
   return { vrf.underWay, vrf.told - vrf.underWay - vrf.refused, vrf.refused };
}

template < typename F >
RouteState RouteMachine< F >::state( U32 vrfId, const Prefix & prefix ) const {
   const auto slot = args_.table->slot( vrfId, prefix );
   if ( !slot ) return { RouteProgress::pending(), "there is no such route" };
   if ( *slot >= told_.size() || !told_[ *slot ].here ) return { RouteProgress::pending(), "its turn has not come" };
   const auto & told = told_[ *slot ];
   auto state = stateOf( told, *slot );
   if ( told.routeType != 0 && !overtaken( told ) ) state.command = told.asked;
   return state;
}

template < typename F >
RouteProgress RouteMachine< F >::progress( U32 slot ) const {
   if ( slot >= told_.size() || !told_[ slot ].here ) return RouteProgress::pending();
   return progressOf( told_[ slot ] );
}

template < typename F >
RouteProgress RouteMachine< F >::progressOf( const Told & told ) const {
   if ( taken( told ) ) {
      if ( !args_.adjSm->refusal( told.adj ).empty() ) return RouteProgress::refused();
      return args_.adjSm->disabled( told.adj ).empty() ? RouteProgress::programmed() : RouteProgress::pending();
   }
   return told.error != 0 || told.unprogrammed != 0 ? RouteProgress::refused() : RouteProgress::pending();
}

template < typename F >
RouteState RouteMachine< F >::stateOf( const Told & told, U32 slot ) const {
   const auto progress = progressOf( told );
   if ( !taken( told ) ) return { progress, reasonOf( told, slot ) };
   const auto refusal = args_.adjSm->refusal( told.adj );
   if ( !refusal.empty() ) return { progress, "the data plane refused its next hops: " + refusal };
   return { progress, args_.adjSm->disabled( told.adj ) };
}

template < typename F >
void RouteMachine< F >::verify() {
   args_.helper->prepareForVerifyRoute();
   for ( U32 slot = 0; slot < told_.size(); ++slot ) {
      const auto & told = told_[ slot ];
      if ( told.routeType == 0 ) continue;
      args_.helper->verifyRoute( Prefix( told.address, told.len ), VrfId( told.vrfId ),
                                 info( { told.routeType, told.adj } ) );
   }
   args_.helper->verifyNumberOfRouteEntries();
   args_.helper->cleanupForVerifyRoute();
}

// Of one that is not programmed.
template < typename F >
Gant::String RouteMachine< F >::reasonOf( const Told & told, U32 slot ) const {
   if ( told.unprogrammed == Mirel::UnprogrammedReason::familyNotSupported_ )
      return "refused: the data plane takes no routes of this family";
   if ( told.unprogrammed == Mirel::UnprogrammedReason::refused_ ) return "the data plane refused it";
   if ( told.unprogrammed == Mirel::UnprogrammedReason::noRoom_ )
      return args_.adjSm->lacksRoom( fecs_[ told.fec ].adj );
   if ( told.underWay ) return "the data plane has not answered";
   if ( told.error != 0 )
      return "the data plane refused it: " + args_.common->progress()->reason( told.asked, told.error );
   Gant::String reason;
   wanted( told, args_.table->routeAt( slot ).routeType(), &reason );
   return reason.empty() ? "its turn has not come" : reason;
}

template < typename F >
void RouteMachine< F >::pending( Pendings & out, size_t most ) const {
   size_t listed = 0;
   for ( U32 slot = 0; slot < told_.size() && listed < most; ++slot ) {
      const auto & told = told_[ slot ];
      if ( !told.here || !args_.table->slotHas( slot ) ) continue;
      if ( taken( told ) && !args_.adjSm->refused( told.adj ) ) continue;
      const Prefix prefix( told.address, told.len );
      out.push_back( { "route " + prefix.stringValue() + Gant::format( " in VRF %u", told.vrfId ),
                       stateOf( told, slot ).reason } );
      ++listed;
   }
}

template RouteCounts RouteMachine< Ip4Routes >::counts() const;
template RouteCounts RouteMachine< Ip4Routes >::counts( U32 ) const;
template RouteState RouteMachine< Ip4Routes >::state( U32, const Prefix & ) const;
template RouteProgress RouteMachine< Ip4Routes >::progress( U32 ) const;
template RouteProgress RouteMachine< Ip4Routes >::progressOf( const Told & ) const;
template RouteState RouteMachine< Ip4Routes >::stateOf( const Told &, U32 ) const;
template Gant::String RouteMachine< Ip4Routes >::reasonOf( const Told &, U32 ) const;
template void RouteMachine< Ip4Routes >::verify();
template void RouteMachine< Ip4Routes >::pending( Pendings &, size_t ) const;
template RouteCounts RouteMachine< Ip6Routes >::counts() const;
template RouteCounts RouteMachine< Ip6Routes >::counts( U32 ) const;
template RouteState RouteMachine< Ip6Routes >::state( U32, const Prefix & ) const;
template RouteProgress RouteMachine< Ip6Routes >::progress( U32 ) const;
template RouteProgress RouteMachine< Ip6Routes >::progressOf( const Told & ) const;
template RouteState RouteMachine< Ip6Routes >::stateOf( const Told &, U32 ) const;
template Gant::String RouteMachine< Ip6Routes >::reasonOf( const Told &, U32 ) const;
template void RouteMachine< Ip6Routes >::verify();
template void RouteMachine< Ip6Routes >::pending( Pendings &, size_t ) const;

} // namespace Hul
