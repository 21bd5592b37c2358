// The routing entities that go to VrfRootSm in one piece.
#pragma once

#include "GantPtr.h"

namespace Mirel::Fib {
class RouteStatus;
class UnprogrammedRouteStatus;
} // namespace Mirel::Fib
namespace Mirel::Fib6 {
class RouteStatus;
class UnprogrammedRouteStatus;
} // namespace Mirel::Fib6
namespace Routing::Hardware {
class Config;
class DlbConfig;
class NexthopGroupStatus;
class Status;
} // namespace Routing::Hardware
namespace Routing6::Hardware {
class Config;
class Status;
} // namespace Routing6::Hardware
namespace Routing::Multicast::Fib {
class VrfConfig;
namespace Hardware {
class Status;
}
} // namespace Routing::Multicast::Fib
namespace Urpf {
class Status;
}

namespace Hul {

// Any of them may be empty.
struct PackedArgs : public Gant::PtrInterface {
   struct Args {
      Gant::Ptr< const Mirel::Fib::RouteStatus > routeStatus{};
      Gant::Ptr< const Mirel::Fib6::RouteStatus > route6Status{};
      Gant::Ptr< Mirel::Fib::UnprogrammedRouteStatus > unprogrammedRouteStatus{};
      Gant::Ptr< Mirel::Fib6::UnprogrammedRouteStatus > unprogrammedRoute6Status{};
      Gant::Ptr< Routing::Hardware::Config > routingHwConfig{};
      Gant::Ptr< Routing::Hardware::Status > routingHwStatus{};
      Gant::Ptr< const Routing6::Hardware::Config > routing6HwConfig{};
      Gant::Ptr< Routing6::Hardware::Status > routing6HwStatus{};
      Gant::Ptr< Routing::Hardware::DlbConfig > routingHwDlbConfig{};
      Gant::Ptr< const Routing::Multicast::Fib::VrfConfig > mfibVrfConfig{};
      Gant::Ptr< Routing::Multicast::Fib::Hardware::Status > mfibHwStatus{};
      Gant::Ptr< Urpf::Status > urpfStatus{};
      Gant::Ptr< Urpf::Status > urpf6Status{};
      Gant::Ptr< Routing::Hardware::NexthopGroupStatus > routingHwNexthopGroupStatus{};
   };
   explicit PackedArgs( Args args ) : args( std::move( args ) ) {}
   const Args args;
};

inline Gant::Ptr< PackedArgs > packedArgsFactory( PackedArgs::Args args ) {
   return Gant::make< PackedArgs >( std::move( args ) );
}

} // namespace Hul
