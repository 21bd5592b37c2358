#include "VexL3Utils.h"

#include "GantAssert.h"
#include "GantTrace.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexL3Utils" );

const Gant::Ptr< NhLocalIndexIntf > & NhIndexManager::nhLocalIndexIntfIs( Kynet::IntfId intf ) {
   auto & pool = nhLocalIndexIntf_[ intf ];
   if ( !pool ) pool = Gant::make< NhLocalIndexIntf >( intf );
   return pool;
}

U16 NhIndexManager::allocNhLocalIndex( Kynet::IntfId intf ) {
   auto pool = nhLocalIndexIntf( intf );
   if ( !pool ) {
      GANT_TRACE( 2, "NhIndexManager::allocNhLocalIndex", " allocating localIds for ", intf );
      pool = nhLocalIndexIntfIs( intf );
      pool->freeNextHopIdFill( 1, indexMax );
   }
   return pool->freeNextHopIdPop();
}

void NhIndexManager::freeNhLocalIndex( Kynet::IntfId intf, U16 nhLocalIndex ) {
   if ( nhLocalIndex == 0 ) return;
   const auto & pool = nhLocalIndexIntf( intf );
   if ( !pool ) GANT_ASSERT( 1 == 0, " No local indexes allocated for intf ", intf );
   pool->freeNextHopIdPush( nhLocalIndex );
}

} // namespace VexL3Unicast
