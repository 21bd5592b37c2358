#include "VexRoute6Helper.h"

#include "GantTrace.h"
#include "VexL3Sm.h"
#include "VexRouteUpdate.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexRoute6Helper" );

Route6Helper::Route6Helper( const Gant::Name & name, const Gant::Ptr< RouteDb > & routeDb,
                            const Gant::Ptr< VexL3Sm > & l3Writer, const Gant::Ptr< Hul::L3Status > & hulL3Status ) :
     Route6SmHelper( name ),
     routeDb_( routeDb ), l3Writer_( l3Writer ), hulL3Status_( hulL3Status ) {}

Route6Helper::~Route6Helper() = default;

void Route6Helper::handleRouting( bool enable ) {
   GANT_TRACE( 2, "Route6Helper::handleRouting ", enable );
   hulL3Status()->suspendIp6RouteUpdatesIs( true );
}

void Route6Helper::verifyRouting( bool enabled ) { GANT_TRACE( 2, "Route6Helper::verifyRouting ", enabled ); }

Hul::HulRouteUpdateStatus Route6Helper::updateRoute( const Kynet::Ip6Prefix & prefix, Hul::VrfId vrfId,
                                                     const Hul::RouteInfo & oldRouteInfo,
                                                     const Hul::RouteInfo & newRouteInfo, const U64 & sequence ) {
   return updateRouteOf( *this, prefix, vrfId, oldRouteInfo, newRouteInfo, sequence, false )
               ? Hul::HulRouteUpdateStatus::routeUpdateSucceeded_
               : Hul::HulRouteUpdateStatus::routeUpdateFailed_;
}

void Route6Helper::prepareForVerifyRoute() {
   l3Writer()->prepareForVerifyLpmRoute( Kynet::AddressFamily::ipv6_ );
   readyForVerifyRouteIs( true );
}

void Route6Helper::cleanupForVerifyRoute() {
   l3Writer()->cleanupForVerifyLpmRoute();
   readyForVerifyRouteIs( false );
}

void Route6Helper::verifyRoute( const Kynet::Ip6Prefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & routeInfo ) {
   verifyRouteOf( *this, prefix, vrfId, routeInfo );
}

void Route6Helper::showSoftwareSummary( unsigned fd ) const {
   showRouteSoftwareSummary( fd, routeDb(), Kynet::AddressFamily::ipv6_ );
}

} // namespace VexL3Unicast
