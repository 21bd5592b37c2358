// The IPv6 routes of the layer. The data plane has no IPv6 FIB: the helper asks the layer to tell none, and refuses
// those that come all the same.
#pragma once

#include "HulHelper.h"
#include "HulL3Status.h"
#include "VexL3Types.h"

namespace VexL3Unicast {

class VexL3Sm;

class Route6Helper : public HulHelper::Route6SmHelper {
 public:
   Route6Helper( const Gant::Name & name, const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< VexL3Sm > & l3Writer,
                 const Gant::Ptr< Hul::L3Status > & hulL3Status );
   ~Route6Helper() override;
   const char * fwkType() const override { return "VexL3Unicast::Route6Helper"; }

   GANT_CONST( Gant::Ptr< RouteDb >, routeDb )
   GANT_CONST( Gant::Ptr< VexL3Sm >, l3Writer )
   GANT_CONST( Gant::Ptr< Hul::L3Status >, hulL3Status )
   GANT_ATTR( bool, readyForVerifyRoute, false )

   // Suspends IPv6 route updates, whatever `enable` says.
   void handleRouting( bool enable ) override;
   void verifyRouting( bool enabled ) override;
   Hul::HulRouteUpdateStatus updateRoute( const Kynet::Ip6Prefix & prefix, Hul::VrfId vrfId,
                                          const Hul::RouteInfo & oldRouteInfo, const Hul::RouteInfo & newRouteInfo,
                                          const U64 & sequence ) override;
   void prepareForVerifyRoute() override;
   void cleanupForVerifyRoute() override;
   void verifyRoute( const Kynet::Ip6Prefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & routeInfo ) override;

   void showSoftwareSummary( unsigned fd ) const;
};

} // namespace VexL3Unicast
