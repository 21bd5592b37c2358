// The steps of an update and of a verification, which the two route helpers share. For their sources only.
#pragma once

#include "VexRouteHelper.h"

namespace VexL3Unicast {

template < typename Helper, typename Prefix >
bool updateRouteOf( const Helper & helper, const Prefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & oldRouteInfo,
                    const Hul::RouteInfo & newRouteInfo, const U64 & sequence, bool isV4 ) {
   const auto & routeDb = helper.routeDb();
   const Hul::VrfAndIpGenPrefix vrfPrefix( vrfId, Kynet::IpGenPrefix( prefix ) );
   const auto vexRouteInfo = routeDb->route( vrfPrefix );
   const auto tableType = vexRouteInfo ? vexRouteInfo->tableType() : RouteTableType( RouteTableType::noneTableType_ );
   bool ok = true;
   if ( newRouteInfo.routeType() == 0 ) {
      if ( vexRouteInfo )
         ok = routeDelete( vrfPrefix, oldRouteInfo, sequence, tableType, vexRouteInfo, routeDb, helper.l3Writer() );
   } else if ( tableType != RouteTableType::noneTableType_ ) {
      ok = routeModify( vrfPrefix, oldRouteInfo, newRouteInfo, sequence, vexRouteInfo, routeDb, helper.l3Writer() );
   } else {
      ok = routeInsert( vrfPrefix, newRouteInfo, sequence, routeDb, helper.l3Writer() );
   }
   // Also for an update that failed: it has been dealt with.
   if ( sequence != 0 ) updateSequence( sequence, vrfId, helper.hulL3Status(), isV4 );
   return ok;
}

template < typename Helper, typename Prefix >
void verifyRouteOf( Helper & helper, const Prefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & routeInfo ) {
   const Hul::VrfAndIpGenPrefix vrfPrefix( vrfId, Kynet::IpGenPrefix( prefix ) );
   const bool prepares = !helper.readyForVerifyRoute();
   if ( prepares ) helper.prepareForVerifyRoute();
   routeVerify( vrfPrefix, routeInfo, helper.routeDb(), helper.l3Writer() );
   if ( prepares ) helper.cleanupForVerifyRoute();
}

} // namespace VexL3Unicast
