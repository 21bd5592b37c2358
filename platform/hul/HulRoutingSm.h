// Routing facts of the router as a whole: whether it routes, and under which MACs.
#pragma once

#include "GantNotify.h"
#include "KynetAddr.h"

#include <memory>

namespace Bridging {
class Config;
}
namespace L3 {
class Config;
}
namespace Routing::Fhrp {
class VirtualRouterMacStatus;
}
namespace HulHelper {
class RoutingStatusSmHelper;
class RouteSmHelper;
class Route6SmHelper;
} // namespace HulHelper

namespace Hul {

//   watches  L3::Config::routing, routing6
//            Bridging::Config::bridgeMacAddr              which is the router's MAC
//            VirtualRouterMacStatus::anygwMac
//   calls    RoutingStatusSmHelper::l3Init                once, first
//            handleRouting                                of all three helpers
//            RoutingStatusSmHelper::handleRouterMac, handleVirtualRouterMac
//
// A MAC that changes is taken away before the new one is given.
class RoutingSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< const L3::Config > l3Config{};
      Gant::Ptr< const Bridging::Config > bridgingConfig{};
      Gant::Ptr< const Routing::Fhrp::VirtualRouterMacStatus > virtualMacStatusIn{};
      Gant::Ptr< HulHelper::RoutingStatusSmHelper > routingStatusHelper{};
      Gant::Ptr< HulHelper::RouteSmHelper > routeHelper{};
      Gant::Ptr< HulHelper::Route6SmHelper > route6Helper{};
   };
   explicit RoutingSm( Args args );
   ~RoutingSm() override;

   void verify();

 private:
   struct GantL3Config;
   struct GantBridgingConfig;
   struct GantVirtualMacStatus;
   void handleRouting();
   void handleRouterMac();
   void handleVirtualRouterMac();

   Args args_;
   bool routing_ = false;
   bool routing6_ = false;
   Kynet::EthAddr routerMac_;
   Kynet::EthAddrWithMask virtualRouterMac_;
   std::unique_ptr< GantL3Config > l3Reactor_;
   std::unique_ptr< GantBridgingConfig > bridgingReactor_;
   std::unique_ptr< GantVirtualMacStatus > virtualMacReactor_;
};

} // namespace Hul
