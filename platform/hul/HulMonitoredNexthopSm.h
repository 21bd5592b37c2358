// Asks the neighbour tables to keep the data plane's next hops resolved. This data plane asks for none.
#pragma once

#include "GantNotify.h"

namespace Arp::MonitoredNexthop::Input {
class Status;
class VrfStatusDir;
} // namespace Arp::MonitoredNexthop::Input
namespace Vrf::VrfIdMap {
class Status;
}

namespace Hul {

class L3Status;

class MonitoredNexthopSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< L3Status > hulL3Status{};
      Gant::Ptr< Arp::MonitoredNexthop::Input::Status > monitoredNHStatus{};
      Gant::Ptr< Arp::MonitoredNexthop::Input::VrfStatusDir > monitoredNHVrfStatusDir{};
      Gant::Ptr< const Vrf::VrfIdMap::Status > arpMirelVrfIdMap{};
   };
   explicit MonitoredNexthopSm( Args args ) : args_( std::move( args ) ) {}
   const Args & args() const { return args_; }

 private:
   Args args_;
};

} // namespace Hul
