// Address translation: the machine that tells the data plane's helper, and the next hops that translations want.
#pragma once

#include "GantEntity.h"
#include "HulTypes.h"

namespace HulHelper {
class HulHelperNat;
}
namespace Ip::Nat {
class HwCapabilities;
class HwStatus;
class Status;
} // namespace Ip::Nat
namespace MrouteLib {
class StaticNatInfo;
}

namespace Hul {

class HulCommonSmData;

class NextHopMapConfig : public Gant::Entity {
 public:
   using Requests = Gant::OrderedSet< Kynet::IpAddr >;
   class Notifiee : public Gant::NotifieeOf< NextHopMapConfig > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onRouteResolverRequest( const Kynet::IpAddr & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_SET( Requests, routeResolverRequest, onRouteResolverRequest )
};

class NextHopMapStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

class NatSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< HulCommonSmData > vexcsd{};
      Gant::Ptr< Ip::Nat::Status > natStatus{};
      Gant::Ptr< Ip::Nat::HwStatus > natHwStatus{};
      Gant::Ptr< Ip::Nat::HwCapabilities > natHwCapabilities{};
      Gant::Ptr< NextHopMapConfig > nhMapConfig{};
      Gant::Ptr< NextHopMapStatus > nhMapStatus{};
      Gant::Ptr< HulHelper::HulHelperNat > natHelper{};
      Gant::Ptr< MrouteLib::StaticNatInfo > staticNatInfo{};
   };
   explicit NatSm( Args args ) : args_( std::move( args ) ) {}
   const Args & args() const { return args_; }

   // Called right after construction, with true: from now on it may call its helper.
   virtual void startIs( bool start ) { start_ = start; }
   bool start() const { return start_; }

 private:
   Args args_;
   bool start_ = false;
};

} // namespace Hul
