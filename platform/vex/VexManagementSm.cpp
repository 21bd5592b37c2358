#include "VexManagementSm.h"

#include "GantTrace.h"

namespace Vex {

static Gant::TraceHandle traceHandle( "VexManagementSm" );

Gant::String FlowKey::stringValue() const {
   return Gant::textsOf( protocol(), " ", srcAddr(), ":", srcPort(), " -> ", dstAddr(), ":", dstPort(),
                         Gant::format( " spi 0x%08x", spi() ) );
}

void ManagementSm::createFlowEntry( const FlowKey & flowKey ) {
   GANT_TRACE( 2, "ManagementSm::createFlowEntry ", flowKey );
   flowEntryIs( flowKey, flowEntry( flowKey ) + 1 );
}

void ManagementSm::deleteFlowEntry( const FlowKey & flowKey ) {
   GANT_TRACE( 2, "ManagementSm::deleteFlowEntry ", flowKey );
   const auto users = flowEntry( flowKey );
   if ( users > 1 )
      flowEntryIs( flowKey, users - 1 );
   else
      flowEntryDel( flowKey );
}

} // namespace Vex
