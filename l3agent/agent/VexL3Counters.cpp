#include "VexL3Counters.h"

#include "GantAssert.h"
#include "GantTrace.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexL3Sm" );

namespace {

using VexcsdPtr = Gant::Ptr< Vex::VexCommonSmData >;

void needCounterInfo( const VexcsdPtr & vexcsd ) {
   if ( !vexcsd->bessCounterInfo() ) GANT_TRACE( 0, "bessCounterInfo not initialized" );
   GANT_ASSERT( vexcsd->bessCounterInfo() );
}

} // namespace

Vex::CounterId allocModuleCounter( const Gant::Ptr< Vex::Module > & module, const VexcsdPtr & vexcsd,
                                   const char * name ) {
   needCounterInfo( vexcsd );
   Vex::CounterId id( -1 );
   const auto fullName = Gant::format( "%s-%s", module->name().c_str(), name );
   id = vexcsd->bessCounterInfo()->allocCounterId( module, fullName, Vex::CounterType::packets,
                                                   Vex::CounterUnit::count );
   module->inUseCounterIs( id, true );
   return id;
}

void freeModuleCounters( const Gant::Ptr< Vex::Module > & module, const VexcsdPtr & vexcsd ) {
   needCounterInfo( vexcsd );
   GANT_TRACE( 4, "freeModuleCounters ", module->name(), " ", module->inUseCounters() );
   for ( const auto id : module->inUseCounterKeys() ) {
      vexcsd->bessCounterInfo()->freeCounterId( id );
      module->inUseCounterDel( id );
   }
}

void addIpInputCounters( const Gant::Ptr< IpInputMod > & module, const VexcsdPtr & vexcsd ) {
   const auto badChecksum = allocModuleCounter( module, vexcsd, "Bad_Checksum_Pkts" );
   const auto badLen = allocModuleCounter( module, vexcsd, "Bad_Len_Pkts" );
   module->setCounterIds( badChecksum, badLen );
}

void addIpOutputCounters( const Gant::Ptr< IpOutputMod > & module, const VexcsdPtr & vexcsd ) {
   const auto failedFrag = allocModuleCounter( module, vexcsd, "Failed_to_Frag_Pkts" );
   const auto failedLinearize = allocModuleCounter( module, vexcsd, "Failed_linearize_Pkts" );
   module->setCounterIds( failedFrag, failedLinearize );
}

void addForUsClassifyIpv4Counters( const Gant::Ptr< ForUsClassifyIpv4 > & module, const VexcsdPtr & vexcsd ) {
   const auto fail = allocModuleCounter( module, vexcsd, "fail_Pkts" );
   const auto unknown = allocModuleCounter( module, vexcsd, "unknown_Pkts" );
   module->setCounterIds( fail, unknown );
}

void addNextHopCounters( const Gant::Ptr< NextHopMod > & module, const VexcsdPtr & vexcsd ) {
   const auto badRouterMac = allocModuleCounter( module, vexcsd, "Bad_Router_Mac_pkts" );
   const auto badCmd = allocModuleCounter( module, vexcsd, "Bad_Cmd_pkts" );
   const auto badNextHop = allocModuleCounter( module, vexcsd, "Bad_NextHop_pkts" );
   const auto prependFail = allocModuleCounter( module, vexcsd, "Prepend_Fail_pkts" );
   module->setCounterIds( badRouterMac, badCmd, badNextHop, prependFail );
}

void addFibCounters( const Gant::Ptr< FibIpv4 > & module, const VexcsdPtr & vexcsd ) {
   const auto noRoute = allocModuleCounter( module, vexcsd, "No_Route_Pkts" );
   const auto noFec = allocModuleCounter( module, vexcsd, "No_Fec_Pkts" );
   module->setCounterIds( noRoute, noFec );
}

} // namespace VexL3Unicast
