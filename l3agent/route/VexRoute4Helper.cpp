#include "VexRoute4Helper.h"

#include "GantTrace.h"
#include "VexL3Sm.h"
#include "VexRouteUpdate.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexRoute4Helper" );

Route4Helper::Route4Helper( const Gant::Name & name, const Gant::Ptr< RouteDb > & routeDb,
                            const Gant::Ptr< VexL3Sm > & l3Writer, const Gant::Ptr< Hul::L3Status > & hulL3Status ) :
     RouteSmHelper( name ),
     routeDb_( routeDb ), l3Writer_( l3Writer ), hulL3Status_( hulL3Status ) {}

Route4Helper::~Route4Helper() = default;

void Route4Helper::handleRouting( bool enable ) { GANT_TRACE( 2, "Route4Helper::handleRouting ", enable ); }

void Route4Helper::verifyRouting( bool enabled ) { GANT_TRACE( 2, "Route4Helper::verifyRouting ", enabled ); }

bool Route4Helper::updateRoute( const Kynet::Prefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & oldRouteInfo,
                                const Hul::RouteInfo & newRouteInfo, const U64 & sequence ) {
   return updateRouteOf( *this, prefix, vrfId, oldRouteInfo, newRouteInfo, sequence, true );
}

void Route4Helper::prepareForVerifyRoute() {
   l3Writer()->prepareForVerifyLpmRoute( Kynet::AddressFamily::ipv4_ );
   readyForVerifyRouteIs( true );
}

void Route4Helper::cleanupForVerifyRoute() {
   l3Writer()->cleanupForVerifyLpmRoute();
   readyForVerifyRouteIs( false );
}

void Route4Helper::verifyRoute( const Kynet::Prefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & routeInfo ) {
   verifyRouteOf( *this, prefix, vrfId, routeInfo );
}

void Route4Helper::showSoftwareSummary( unsigned fd ) const {
   showRouteSoftwareSummary( fd, routeDb(), Kynet::AddressFamily::ipv4_ );
}

} // namespace VexL3Unicast
