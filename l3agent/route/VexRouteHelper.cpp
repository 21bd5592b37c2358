#include "VexRouteHelper.h"

#include "GantActivity.h"
#include "GantAssert.h"
#include "GantTrace.h"
#include "VexL3Sm.h"

#include <cstdio>

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexRouteHelper" );

bool routeInsert( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Hul::RouteInfo & routeInfo, const U64 & sequence,
                  const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< VexL3Sm > & l3Sm ) {
   GANT_TRACE( 8, "routeInsert", " vrfprefix ", vrfPrefix, " routeInfo ", routeInfo, " sequence ", sequence );
   const auto af = vrfPrefix.prefix().af();
   routeDb->lastRouteUpdateTimeIs( af, Gant::activityManager()->now() );
   routeDb->numRouteInsertsInc( af );
   const auto fecKey = routeDb->adjIdxToFec( Hul::L2AdjKey( routeInfo.adjIndex() ) );
   GANT_ASSERT( fecKey != FecKey::null(), " routeInfo ", routeInfo, " vrfprefix ", vrfPrefix );
   const auto & fec = routeDb->fec( fecKey );
   GANT_ASSERT( fec, " fecKey ", fecKey, " vrfprefix ", vrfPrefix );
   auto vexRouteInfo = routeDb->route( vrfPrefix );
   GANT_ASSERT( !vexRouteInfo, " vrfprefix ", vrfPrefix );
   vexRouteInfo = routeInfoFactory();
   return createLpm( vrfPrefix, fec, vexRouteInfo, routeDb, l3Sm );
}

bool routeModify( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Hul::RouteInfo & oldRouteInfo,
                  const Hul::RouteInfo & newRouteInfo, const U64 & sequence,
                  const Gant::Ptr< RouteInfo > & vexRouteInfo, const Gant::Ptr< RouteDb > & routeDb,
                  const Gant::Ptr< VexL3Sm > & l3Sm ) {
   GANT_TRACE( 8, "routeModify", " vrfprefix ", vrfPrefix, " old ", oldRouteInfo, " new ", newRouteInfo, " sequence ",
               sequence );
   const auto af = vrfPrefix.prefix().af();
   routeDb->lastRouteUpdateTimeIs( af, Gant::activityManager()->now() );
   routeDb->numRouteUpdatesInc( af );
   GANT_ASSERT( vexRouteInfo, " vrfprefix ", vrfPrefix );
   const auto oldFecKey = routeDb->adjIdxToFec( Hul::L2AdjKey( oldRouteInfo.adjIndex() ) );
   GANT_ASSERT( oldFecKey != FecKey::null(), " routeInfo ", oldRouteInfo, " vrfprefix ", vrfPrefix );
   const auto & oldFec = routeDb->fec( oldFecKey );
   GANT_ASSERT( oldFec, " fecKey ", oldFecKey, " vrfprefix ", vrfPrefix );
   const auto newFecKey = routeDb->adjIdxToFec( Hul::L2AdjKey( newRouteInfo.adjIndex() ) );
   GANT_ASSERT( newFecKey != FecKey::null(), " routeInfo ", newRouteInfo, " vrfprefix ", vrfPrefix );
   const auto & newFec = routeDb->fec( newFecKey );
   GANT_ASSERT( newFec, " fecKey ", newFecKey, " vrfprefix ", vrfPrefix );
   if ( oldFec != newFec )
      routeDb->numRouteUpdatesFecChgInc( af );
   else
      routeDb->numRouteUpdatesFecUpdInc( af );
   return updateLpm( vrfPrefix, oldFec, newFec, vexRouteInfo, routeDb, l3Sm );
}

bool routeDelete( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Hul::RouteInfo & routeInfo, const U64 & sequence,
                  RouteTableType tableType, const Gant::Ptr< RouteInfo > & vexRouteInfo,
                  const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< VexL3Sm > & l3Sm ) {
   GANT_TRACE( 8, "routeDelete", " vrfprefix ", vrfPrefix, " routeInfo ", routeInfo, " sequence ", sequence );
   const auto af = vrfPrefix.prefix().af();
   routeDb->lastRouteUpdateTimeIs( af, Gant::activityManager()->now() );
   routeDb->numRouteDeletesInc( af );
   if ( tableType == RouteTableType::noneTableType_ ) {
      GANT_TRACE( 1, "routeDelete", " route info not found ", " vrfprefix ", vrfPrefix );
      return true;
   }
   const auto fecKey = routeDb->adjIdxToFec( Hul::L2AdjKey( routeInfo.adjIndex() ) );
   GANT_ASSERT( fecKey != FecKey::null(), " routeInfo ", routeInfo, " vrfprefix ", vrfPrefix );
   const auto & fec = routeDb->fec( fecKey );
   GANT_ASSERT( fec, " fecKey ", fecKey, " vrfprefix ", vrfPrefix );
   GANT_ASSERT( vexRouteInfo, " vrfprefix ", vrfPrefix );
   switch ( tableType ) {
   case RouteTableType::lpmTableType_: deleteLpm( vrfPrefix, fec, vexRouteInfo, routeDb, l3Sm ); break;
   case RouteTableType::noneTableType_: GANT_ASSERT( false, " vrfprefix ", vrfPrefix ); break;
   }
   return true;
}

void routeVerify( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Hul::RouteInfo & routeInfo,
                  const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< VexL3Sm > & l3Sm ) {
   const auto fecKey = routeDb->adjIdxToFec( Hul::L2AdjKey( routeInfo.adjIndex() ) );
   GANT_ASSERT( fecKey != FecKey::null(), " routeInfo ", routeInfo, " vrfprefix ", vrfPrefix );
   const auto & fec = routeDb->fec( fecKey );
   GANT_ASSERT( fec, " fecKey ", fecKey, " vrfprefix ", vrfPrefix );
   const auto & vexRouteInfo = routeDb->route( vrfPrefix );
   GANT_ASSERT( vexRouteInfo, " vrfprefix ", vrfPrefix );
   const auto tableType = vexRouteInfo->tableType();
   if ( tableType == RouteTableType::noneTableType_ ) GANT_ASSERT( false, " vrfprefix ", vrfPrefix );
   if ( tableType != RouteTableType::lpmTableType_ ) return;
   GANT_ASSERT( fecKey == vexRouteInfo->fecKey(), " vrfprefix ", vrfPrefix, " fecKey ", fecKey );
   GANT_ASSERT( fec->lpmRouteHas( vrfPrefix ), " vrfprefix ", vrfPrefix, " fecKey ", fecKey );
   if ( vrfPrefix.prefix().af() == Kynet::AddressFamily::ipv4_ )
      l3Sm->verifyV4LpmRoute( vrfPrefix, fec );
   else
      l3Sm->verifyV6LpmRoute( vrfPrefix, fec );
}

void updateSequence( const U64 & sequence, Hul::VrfId vrfId, const Gant::Ptr< Hul::L3Status > & hulL3Status,
                     bool isV4 ) {
   const auto & status = hulL3Status->vrfL3Status( hulL3Status->vrfName( vrfId ) );
   if ( !status ) return;
   if ( sequence <= ( isV4 ? status->sequenceProgrammed() : status->sequence6Programmed() ) ) return;
   if ( isV4 )
      status->sequenceProgrammedIs( sequence );
   else
      status->sequence6ProgrammedIs( sequence );
}

void showRouteSoftwareSummary( unsigned fd, const Gant::Ptr< RouteDb > & routeDb, Kynet::AddressFamily af ) {
   const auto socket = static_cast< int >( fd );
   const auto line = [ socket ]( const char * name, U64 value ) {
      dprintf( socket, "'%s':%llu,\n", name, static_cast< unsigned long long >( value ) );
   };
   dprintf( socket, "\n" );
   dprintf( socket, "'ipVersion':'%s',\n", af == Kynet::AddressFamily::ipv4_ ? "IPV4" : "IPV6" );
   line( "routeInserts", routeDb->numRouteInserts( af ) );
   line( "routeDeletes", routeDb->numRouteDeletes( af ) );
   line( "routeUpdates", routeDb->numRouteUpdates( af ) );
   line( "routeUpdatesIgnored", routeDb->numRouteUpdatesIgnored( af ) );
   line( "routeUpdatesFecChanged", routeDb->numRouteUpdatesFecChg( af ) );
   line( "routeUpdatesFecUpdated", routeDb->numRouteUpdatesFecUpd( af ) );
   line( "lpmCreates", routeDb->numLpmCreate( af ) );
   line( "lpmDeletes", routeDb->numLpmDelete( af ) );
   line( "lpmUpdates", routeDb->numLpmUpdate( af ) );
   line( "lpmUpdatesFecChanged", routeDb->numLpmUpdateFecChg( af ) );
   line( "lpmUpdatesFecUpdated", routeDb->numLpmUpdateFecUpd( af ) );
}

void updateVexRouteInfo( const Hul::VrfAndIpGenPrefix &, const Gant::Ptr< RouteInfo > & vexRouteInfo,
                         const Gant::Ptr< Fec > & fec, RouteTableType tableType ) {
   vexRouteInfo->tableTypeIs( tableType );
   vexRouteInfo->fecKeyIs( fec->key() );
}

namespace {

void takeOffFec( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Gant::Ptr< Fec > & fec ) {
   fec->numLpmRoutesDec( vrfPrefix.prefix().af(), 1 );
   fec->lpmRouteDel( vrfPrefix );
}

void forget( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Gant::Ptr< RouteDb > & routeDb ) {
   routeDb->numLpmRoutesDec( vrfPrefix.prefix().af(), 1 );
   routeDb->routeDel( vrfPrefix );
}

} // namespace

bool createLpm( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Gant::Ptr< Fec > & fec,
                const Gant::Ptr< RouteInfo > & vexRouteInfo, const Gant::Ptr< RouteDb > & routeDb,
                const Gant::Ptr< VexL3Sm > & l3Sm ) {
   const auto af = vrfPrefix.prefix().af();
   routeDb->numLpmCreateInc( af );
   GANT_ASSERT( !routeDb->routeHas( vrfPrefix ), " vrfprefix ", vrfPrefix );
   GANT_ASSERT( !fec->lpmRouteHas( vrfPrefix ), " vrfprefix ", vrfPrefix, " fecKey ", fec->key() );
   updateVexRouteInfo( vrfPrefix, vexRouteInfo, fec, RouteTableType::lpmTableType_ );
   // The database before the data plane: what is programmed sees the route as present.
   routeDb->routeIs( vrfPrefix, vexRouteInfo );
   routeDb->numLpmRoutesInc( af );
   fec->lpmRouteIs( vrfPrefix, true );
   fec->numLpmRoutesInc( af );
   const bool ok = l3Sm->createLpmRoute( vrfPrefix, fec );
   if ( !ok ) {
      takeOffFec( vrfPrefix, fec );
      forget( vrfPrefix, routeDb );
      GANT_TRACE( 1, "createLpm", " failure of createLpmRoute, Decr LpmRoutes ", " vrfprefix ", vrfPrefix );
   }
   return ok;
}

bool updateLpm( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Gant::Ptr< Fec > & oldFec,
                const Gant::Ptr< Fec > & newFec, const Gant::Ptr< RouteInfo > & vexRouteInfo,
                const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< VexL3Sm > & l3Sm ) {
   const auto af = vrfPrefix.prefix().af();
   routeDb->numLpmUpdateInc( af );
   GANT_ASSERT( oldFec->lpmRouteHas( vrfPrefix ), " vrfprefix ", vrfPrefix, " fecKey ", oldFec->key() );
   GANT_ASSERT( oldFec->numLpmRoutes( af ) > 0, " vrfprefix ", vrfPrefix, " fecKey ", oldFec->key() );
   GANT_ASSERT( vexRouteInfo->tableType() == RouteTableType::lpmTableType_, " vrfprefix ", vrfPrefix );
   const bool moves = oldFec != newFec;
   if ( moves ) {
      routeDb->numLpmUpdateFecChgInc( af );
      GANT_ASSERT( !newFec->lpmRouteHas( vrfPrefix ), " vrfprefix ", vrfPrefix, " fecKey ", newFec->key() );
   } else {
      routeDb->numLpmUpdateFecUpdInc( af );
   }
   GANT_ASSERT( routeDb->routeHas( vrfPrefix ), " vrfprefix ", vrfPrefix );
   GANT_ASSERT( routeDb->numLpmRoutes( af ) > 0, " vrfprefix ", vrfPrefix );
   if ( moves ) {
      newFec->lpmRouteIs( vrfPrefix, true );
      newFec->numLpmRoutesInc( af );
   }
   updateVexRouteInfo( vrfPrefix, vexRouteInfo, newFec, RouteTableType::lpmTableType_ );
   const bool ok = l3Sm->createLpmRoute( vrfPrefix, newFec );
   // Only after the new one was written, whatever came of it.
   if ( moves ) takeOffFec( vrfPrefix, oldFec );
   if ( ok ) return true;
   takeOffFec( vrfPrefix, moves ? newFec : oldFec );
   forget( vrfPrefix, routeDb );
   return false;
}

void deleteLpm( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Gant::Ptr< Fec > & fec, const Gant::Ptr< RouteInfo > &,
                const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< VexL3Sm > & l3Sm ) {
   const auto af = vrfPrefix.prefix().af();
   routeDb->numLpmDeleteInc( af );
   GANT_ASSERT( fec->lpmRouteHas( vrfPrefix ), " vrfprefix ", vrfPrefix, " fecKey ", fec->key() );
   GANT_ASSERT( fec->numLpmRoutes( af ) > 0, " vrfprefix ", vrfPrefix, " fecKey ", fec->key() );
   GANT_ASSERT( routeDb->routeHas( vrfPrefix ), " vrfprefix ", vrfPrefix );
   GANT_ASSERT( routeDb->numLpmRoutes( af ) > 0, " vrfprefix ", vrfPrefix );
   // The data plane first, the opposite of createLpm.
   l3Sm->deleteLpmRoute( vrfPrefix );
   takeOffFec( vrfPrefix, fec );
   forget( vrfPrefix, routeDb );
}

} // namespace VexL3Unicast
