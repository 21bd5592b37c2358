#include "GantAssert.h"
#include "GantTrace.h"
#include "VexL3Sm.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexL3Sm" );

FecUpdateReturnCode VexL3Sm::addFecForLpm( const Gant::Ptr< Fec > & fec ) {
   const auto ret = programLpmFec( fec );
   routeDb()->fecForLpmIs( fec->key(), fec->version() );
   return ret;
}

void VexL3Sm::removeFecForLpm( const Gant::Ptr< Fec > & fec ) {
   if ( !routeDb()->fecForLpmHas( fec->key() ) ) {
      GANT_TRACE( 4, "VexL3Sm::removeFecForLpm", " fec is already removed from lpm nh table ", fec );
      return;
   }
   GANT_ASSERT( !fec->lpmRoutes(), " fecKey ", fec->key() );
   deleteLpmFec( fec );
   routeDb()->fecForLpmDel( fec->key() );
}

bool VexL3Sm::createLpmRoute( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Gant::Ptr< Fec > & fec ) {
   if ( !routeDb()->fecForLpmHas( fec->key() ) ) {
      GANT_TRACE( 1, "VexL3Sm::createLpmRoute", " fec not present ", fec, " vrfprefix ", vrfPrefix );
      return false;
   }
   const auto & prefix = vrfPrefix.prefix();
   const bool programmed = prefix.af() == Kynet::AddressFamily::ipv4_
                                ? programLpmRoute4( Hul::VrfAndPrefix( vrfPrefix.vrfId(), prefix.v4Prefix() ), fec )
                                : programLpmRoute6( Hul::VrfAndIp6Prefix( vrfPrefix.vrfId(), prefix.v6Prefix() ), fec );
   if ( !programmed ) GANT_TRACE( 1, "VexL3Sm::createLpmRoute", " programming failed ", " vrfprefix ", vrfPrefix );
   return programmed;
}

bool VexL3Sm::programLpmRoute4( const Hul::VrfAndPrefix & vrfPrefix, const Gant::Ptr< Fec > & fec ) {
   const auto & prefix = vrfPrefix.prefix();
   getFibModule()->addRoute( vrfPrefix.vrfId(), prefix.address().value(), prefix.len(), fec->key() );
   return true;
}

// The data plane has no IPv6 FIB, and the failure keeps the database truthful about that.
bool VexL3Sm::programLpmRoute6( const Hul::VrfAndIp6Prefix &, const Gant::Ptr< Fec > & ) { return false; }

void VexL3Sm::deleteLpmRoute( const Hul::VrfAndIpGenPrefix & vrfPrefix ) {
   const auto & prefix = vrfPrefix.prefix();
   if ( prefix.af() == Kynet::AddressFamily::ipv4_ )
      deleteLpmRoute4( Hul::VrfAndPrefix( vrfPrefix.vrfId(), prefix.v4Prefix() ) );
   else
      deleteLpmRoute6( Hul::VrfAndIp6Prefix( vrfPrefix.vrfId(), prefix.v6Prefix() ) );
}

void VexL3Sm::deleteLpmRoute4( const Hul::VrfAndPrefix & vrfPrefix ) {
   const auto & prefix = vrfPrefix.prefix();
   getFibModule()->delRoute( vrfPrefix.vrfId(), prefix.address().value(), prefix.len() );
}

void VexL3Sm::deleteLpmRoute6( const Hul::VrfAndIp6Prefix & vrfPrefix ) {
   GANT_TRACE( 8, "VexL3Sm::deleteLpmRoute6 ", vrfPrefix );
}

void VexL3Sm::prepareForVerifyLpmRoute( Kynet::AddressFamily ) {}

void VexL3Sm::cleanupForVerifyLpmRoute() {}

void VexL3Sm::verifyV4LpmRoute( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Gant::Ptr< Fec > & fec ) {
   GANT_ASSERT( fec, " vrfprefix ", vrfPrefix );
   GANT_TRACE( 8, "VexL3Sm::verifyV4LpmRoute ", vrfPrefix, " fec ", fec );
}

void VexL3Sm::verifyV6LpmRoute( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Gant::Ptr< Fec > & fec ) {
   GANT_ASSERT( fec, " vrfprefix ", vrfPrefix );
   GANT_TRACE( 8, "VexL3Sm::verifyV6LpmRoute ", vrfPrefix, " fec ", fec );
}

} // namespace VexL3Unicast
