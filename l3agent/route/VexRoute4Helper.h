// The IPv4 routes of the layer: each update reaches the FIB, and its sequence number is acknowledged.
#pragma once

#include "HulHelper.h"
#include "HulL3Status.h"
#include "VexL3Types.h"

namespace VexL3Unicast {

class VexL3Sm;

class Route4Helper : public HulHelper::RouteSmHelper {
 public:
   Route4Helper( const Gant::Name & name, const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< VexL3Sm > & l3Writer,
                 const Gant::Ptr< Hul::L3Status > & hulL3Status );
   ~Route4Helper() override;
   const char * fwkType() const override { return "VexL3Unicast::Route4Helper"; }

   GANT_CONST( Gant::Ptr< RouteDb >, routeDb )
   GANT_CONST( Gant::Ptr< VexL3Sm >, l3Writer )
   GANT_CONST( Gant::Ptr< Hul::L3Status >, hulL3Status )
   // Between prepareForVerifyRoute and cleanupForVerifyRoute.
   GANT_ATTR( bool, readyForVerifyRoute, false )

   void handleRouting( bool enable ) override;
   void verifyRouting( bool enabled ) override;
   // A sequence that is not 0 is acknowledged whatever comes of the update.
   bool updateRoute( const Kynet::Prefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & oldRouteInfo,
                     const Hul::RouteInfo & newRouteInfo, const U64 & sequence ) override;
   void prepareForVerifyRoute() override;
   void cleanupForVerifyRoute() override;
   void verifyRoute( const Kynet::Prefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & routeInfo ) override;

   void showSoftwareSummary( unsigned fd ) const;
};

} // namespace VexL3Unicast
