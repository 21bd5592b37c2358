// Brings interface and BFD events to adjacencies that a data plane protects by itself. This one has no such: the
// adjacencies follow the interfaces through AdjSm.
#pragma once

#include "GantNotify.h"

namespace Bfd {
class AppStatus;
class StatusPeer;
} // namespace Bfd
namespace Interface {
class AllIntfStatusDir;
class AllIntfStatusLocalDir;
class EthIntfStatusDir;
} // namespace Interface
namespace Mlag {
class Status;
}
namespace Routing::Hardware {
class Config;
class RouteStatus;
} // namespace Routing::Hardware

namespace Hul {

class HulCommonSmData;
class L2AdjHelper;
class L3Status;

class IntfStatusSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< HulCommonSmData > vexcsd{};
      Gant::Ptr< L3Status > hulL3Status{};
      Gant::Ptr< L2AdjHelper > hulL2AdjHelper{};
      Gant::Ptr< const Interface::EthIntfStatusDir > ethIntfStatusDir{};
      Gant::Ptr< const Bfd::StatusPeer > bfdAllPeerStatusDir{};
      Gant::Ptr< Bfd::AppStatus > bfdAllPeerStatus{};
      Gant::Ptr< const Interface::AllIntfStatusDir > allIntfStatusDir{};
      Gant::Ptr< const Interface::AllIntfStatusLocalDir > allIntfStatusLocalDir{};
      Gant::Ptr< Routing::Hardware::Config > routingHwConfig{};
      Gant::Ptr< Routing::Hardware::RouteStatus > routingHwRouteStatus{};
      Gant::Ptr< const Mlag::Status > mlagStatus{};
   };
   explicit IntfStatusSm( Args args ) : args_( std::move( args ) ) {}
   const Args & args() const { return args_; }

 private:
   Args args_;
};

} // namespace Hul
