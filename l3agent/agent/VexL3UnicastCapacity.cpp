#include "VexL3UnicastCapacity.h"

namespace Hardware::Capacity::VexL3Unicast {

CapacitySm::CapacitySm( const Gant::Ptr< HulCapacity::TableCapacity > & capacityStatus,
                        const Gant::Ptr< const Gant::Clock > & clock, ::VexL3Unicast::AgentSm * agentSm ) :
     CapacityHelperSm( capacityStatus, clock ),
     agentSm_( agentSm ) {
   handleInitialized();
}

CapacitySm::~CapacitySm() = default;

void CapacitySm::initCapacityTableFeatureMaps() { initCapacityTableFeature( "NextHop", "VexL3UnicastCapacity", "" ); }

} // namespace Hardware::Capacity::VexL3Unicast
