// Addresses whose neighbours others want to know.
//
// Who wants one puts it into RouteReactorConfig::addr, and watches L3Status::resolvedAddr. AddrResolverSm, which knows
// the FIB and the neighbours, answers in RouteReactorConfig::resolution; RouteResolverSm publishes.
#pragma once

#include "HulL3Status.h"
#include "HulRoutePathSm.h"

#include <memory>

namespace Arp::Table {
class Status;
}
namespace Interface {
class AllIntfStatusDir;
}
namespace Ip {
class Status;
}
namespace Routing::Hardware {
class Status;
}

namespace Hul {

class HulCommonSmData;
class MonitoredNexthopSm;

class RouteReactorConfig : public Gant::Entity {
 public:
   using Addrs = Gant::OrderedSet< VrfAndIpAddr >;
   using Resolutions = Gant::OrderedMap< VrfAndIpAddr, ResolvedAddr >;
   class Notifiee : public Gant::NotifieeOf< RouteReactorConfig > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onAddr( const VrfAndIpAddr & ) {}
      virtual void onResolution( const VrfAndIpAddr & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   // One entry for all who want the address; whoever takes it out speaks for all of them.
   GANT_WATCHED_SET( Addrs, addr, onAddr )
   // Of the resolved ones among them.
   GANT_WATCHED_MAP( Resolutions, resolution, onResolution )
};

class Route6ReactorConfig : public Gant::Entity {
 public:
   using Entity::Entity;
};

//   watches  RouteReactorConfig::addr
//            RoutePathSm                                the routes of the addresses
//            Arp::Table::Status::neighbor, L3Status::intfRoutingState, AllIntfStatusDir::intfStatus
//   writes   RouteReactorConfig::resolution             the first of the address's paths whose neighbour is known
class AddrResolverSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< RouteReactorConfig > hulRouteReactorConfig{};
      Gant::Ptr< const L3Status > hulL3Status{};
      Gant::Ptr< const Arp::Table::Status > neighborTable{};
      Gant::Ptr< const Interface::AllIntfStatusDir > allIntfStatusDir{};
      Gant::Ptr< RoutePathSm > routePathSm{};
   };
   explicit AddrResolverSm( Args args );
   ~AddrResolverSm() override;

 private:
   struct GantConfig;
   struct GantPaths;
   struct GantArp;
   struct GantL3Status;
   struct GantIntfs;
   void reviewAll();
   void reviewOver( Kynet::IntfId intfId );
   void review( const VrfAndIpAddr & addr );

   Args args_;
   Gant::OrderedSet< VrfAndIpAddr > followed_;
   std::unique_ptr< GantConfig > configReactor_;
   std::unique_ptr< GantPaths > pathReactor_;
   std::unique_ptr< GantArp > arpReactor_;
   std::unique_ptr< GantL3Status > l3Reactor_;
   std::unique_ptr< GantIntfs > intfReactor_;
};

//   watches  RouteReactorConfig::addr, resolution
//   writes   L3Status::resolvedAddr                     one for each address; empty while it is not resolved
class RouteResolverSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< RouteReactorConfig > hulRouteReactorConfig{};
      Gant::Ptr< L3Status > hulL3Status{};
      Gant::Ptr< HulCommonSmData > vexcsd{};
      Gant::Ptr< const Ip::Status > ipStatus{};
      Gant::Ptr< MonitoredNexthopSm > monitoredNexthopSm{};
      Gant::Ptr< Routing::Hardware::Status > routingHwStatus{};
   };
   explicit RouteResolverSm( Args args );
   ~RouteResolverSm() override;

 private:
   struct GantConfig;
   void reviewAll();
   void review( const VrfAndIpAddr & addr );

   Args args_;
   std::unique_ptr< GantConfig > reactor_;
};

} // namespace Hul
