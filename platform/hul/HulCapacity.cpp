#include "HulCapacity.h"

namespace Hardware::Capacity {

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is that of the slot
void CapacityHelperSm::updateCapacityEntry( TableKey key, U32 used, U32 free, U32 committed, U32 maxLimit ) {
   if ( capacityStatus() ) capacityStatus()->entryIs( key, HulCapacity::TableEntry( used, free, committed, maxLimit ) );
}

void CapacityHelperSm::initCapacityTableFeature( Gant::String table, Gant::String feature, Gant::String chip ) {
   updateCapacityEntry( TableKey( std::move( table ), std::move( feature ), std::move( chip ) ), 0, 0, 0, 0 );
}

void CapacityHelperSm::handleInitialized() {
   initCapacityTableFeatureMaps();
   updateCapacityTable();
}

} // namespace Hardware::Capacity
