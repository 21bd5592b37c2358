// Overlay tunnels of a data plane with a tunnel table. Tunnel interfaces are none of its business: they are interfaces
// (HulL3IntfSm.h), and ways out (HulAdjSm.h).
#pragma once

#include "GantActivity.h"
#include "GantEntity.h"

namespace Interface {
class DelayRestartMonitorSm;
}
namespace Vxlan {
class BootStatus;
}

namespace Hul {

class AdjReviewEvent;
class HulCommonSmData;
class L2AdjHelper;
class L3Status;
class RouteReactorConfig;

class HulTunnelConfigDir : public Gant::Entity {
 public:
   using Entity::Entity;
};

class HulTunnelStatusDir : public Gant::Entity {
 public:
   using Entity::Entity;
};

class HulTunnelSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< HulCommonSmData > vexcsd{};
      Gant::Ptr< RouteReactorConfig > hulRouteReactorConfig{};
      Gant::Ptr< L3Status > hulL3Status{};
      Gant::Ptr< Gant::Clock > clock{};
      Gant::Ptr< HulTunnelConfigDir > hulTunnelConfigDir{};
      Gant::Ptr< HulTunnelStatusDir > hulTunnelStatusDir{};
      Gant::Ptr< AdjReviewEvent > adjReviewEvent{};
      Gant::Ptr< L2AdjHelper > l2AdjHelper{};
      Gant::Ptr< const Vxlan::BootStatus > vxlanBootStatus{};
      Gant::Ptr< Interface::DelayRestartMonitorSm > delayRestartMonitorSm{};
   };
   explicit HulTunnelSm( Args args ) : args_( std::move( args ) ) {}
   const Args & args() const { return args_; }

 private:
   Args args_;
};

} // namespace Hul
