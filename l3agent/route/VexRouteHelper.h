// The family-neutral work of the two route helpers: an update becomes an insert, a modify or a delete of a route, is
// counted, and moves the route between FECs in the database and in the FIB.
#pragma once

#include "HulL3Status.h"
#include "VexL3Types.h"

namespace VexL3Unicast {

class VexL3Sm;

// Routes to adjacencies. Every adjacency that a RouteInfo names has a FEC, and the old RouteInfo is the one in force.
// `sequence` is for traces. False: the route could not be programmed, and the database does not hold it.
bool routeInsert( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Hul::RouteInfo & routeInfo, const U64 & sequence,
                  const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< VexL3Sm > & l3Sm );
bool routeModify( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Hul::RouteInfo & oldRouteInfo,
                  const Hul::RouteInfo & newRouteInfo, const U64 & sequence,
                  const Gant::Ptr< RouteInfo > & vexRouteInfo, const Gant::Ptr< RouteDb > & routeDb,
                  const Gant::Ptr< VexL3Sm > & l3Sm );
// Never false.
bool routeDelete( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Hul::RouteInfo & routeInfo, const U64 & sequence,
                  RouteTableType tableType, const Gant::Ptr< RouteInfo > & vexRouteInfo,
                  const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< VexL3Sm > & l3Sm );
// Asserts that the database agrees with `routeInfo`.
void routeVerify( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Hul::RouteInfo & routeInfo,
                  const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< VexL3Sm > & l3Sm );
// Records the sequence number as programmed. It never goes back.
void updateSequence( const U64 & sequence, Hul::VrfId vrfId, const Gant::Ptr< Hul::L3Status > & hulL3Status,
                     bool isV4 );
// A fragment of a dictionary literal, which the caller wraps.
void showRouteSoftwareSummary( unsigned fd, const Gant::Ptr< RouteDb > & routeDb, Kynet::AddressFamily af );

// Routes on FECs.
// On failure everything is as before.
bool createLpm( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Gant::Ptr< Fec > & fec,
                const Gant::Ptr< RouteInfo > & vexRouteInfo, const Gant::Ptr< RouteDb > & routeDb,
                const Gant::Ptr< VexL3Sm > & l3Sm );
// On failure the route is forgotten, while the FIB keeps its entry with the old FEC.
bool updateLpm( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Gant::Ptr< Fec > & oldFec,
                const Gant::Ptr< Fec > & newFec, const Gant::Ptr< RouteInfo > & vexRouteInfo,
                const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< VexL3Sm > & l3Sm );
// The FEC stays, also without a route: its life follows its adjacency.
void deleteLpm( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Gant::Ptr< Fec > & fec,
                const Gant::Ptr< RouteInfo > & vexRouteInfo, const Gant::Ptr< RouteDb > & routeDb,
                const Gant::Ptr< VexL3Sm > & l3Sm );
void updateVexRouteInfo( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Gant::Ptr< RouteInfo > & vexRouteInfo,
                         const Gant::Ptr< Fec > & fec, RouteTableType tableType );

} // namespace VexL3Unicast
