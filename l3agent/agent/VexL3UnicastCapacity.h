// Declares the layer-3 agent's table in the platform's table of capacities. It reports no numbers: the data plane's
// tables grow with their contents.
#pragma once

#include "HulCapacity.h"

namespace VexL3Unicast {
class AgentSm;
}

namespace Hardware::Capacity::VexL3Unicast {

class CapacitySm : public CapacityHelperSm {
 public:
   // `agentSm` owns this.
   CapacitySm( const Gant::Ptr< HulCapacity::TableCapacity > & capacityStatus,
               const Gant::Ptr< const Gant::Clock > & clock, ::VexL3Unicast::AgentSm * agentSm );
   ~CapacitySm() override;
   const char * fwkType() const override { return "Hardware::Capacity::VexL3Unicast::CapacitySm"; }
   GANT_CONST( ::VexL3Unicast::AgentSm *, agentSm )

   void initCapacityTableFeatureMaps() override;
   void updateCapacityTable() override {}
};

} // namespace Hardware::Capacity::VexL3Unicast
