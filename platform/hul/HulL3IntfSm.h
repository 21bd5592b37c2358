// The layer-3 interfaces: from what the host says of each to the helper.
#pragma once

#include "HulPending.h"
#include "HulTypes.h"

#include <memory>
#include <optional>

namespace Interface {
class AllIntfStatusDir;
}
namespace Ip {
class Status;
}
namespace Ip6 {
class Status;
}
namespace HulHelper {
class RoutingStatusSmHelper;
}
namespace HulL3Intf {
class Table;
}

namespace Hul {

class L3Status;
class VrfSm;

//   watches  Ip::Status::intfStatus, Ip6::Status::intfStatus   what is to be routed
//            AllIntfStatusDir::intfStatus                      which interfaces exist
//            HulL3Intf::Table::intfL3Index                     the interfaces' VLANs
//            VrfDir::vrfPhase
//            L3::Config::routing, routing6
//   calls    RoutingStatusSmHelper::handleL3Intf, enableVlanRouting, handleTcpMssIngress, handleTcpMssEgress
//   writes   HulL3Intf::Table::routedIntf
//            L3Status::intfRoutingState                        after the interface is created, before it is deleted
//
// An interface is told while it exists, is routed, its VRF is active and it has a VLAN. Its MSS is told first, so that
// the helper creates it with the right one. One whose VRF or VLAN changes is deleted and created.
class L3IntfSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< const L3::Config > l3Config{};
      Gant::Ptr< const Ip::Status > ipStatus{};
      Gant::Ptr< const Ip6::Status > ip6Status{};
      Gant::Ptr< const Interface::AllIntfStatusDir > allIntfStatusDir{};
      Gant::Ptr< HulL3Intf::Table > hulL3IntfTable{};
      Gant::Ptr< L3Status > hulL3Status{};
      Gant::Ptr< VrfSm > vrfSm{};
      Gant::Ptr< HulHelper::RoutingStatusSmHelper > routingStatusHelper{};
   };
   explicit L3IntfSm( Args args );
   ~L3IntfSm() override;

   void verify();
   void pending( Pendings & out ) const;

 private:
   struct Facts {
      VrfId vrfId;
      U32 vlanId = 0;
      U32 mtu = 0;
      RoutingState state;
   };
   struct Mss {
      U16 ingress = 0;
      U16 egress = 0;
   };
   struct GantIpStatus;
   struct GantIp6Status;
   struct GantAllIntfStatusDir;
   struct GantTable;
   struct GantVrfDir;
   struct GantL3Config;

   void reviewAll();
   void review( Kynet::IntfId intfId );
   void bring( Kynet::IntfId intfId );
   // Whether what was told can stay, changed as it may be.
   bool stays( Kynet::IntfId intfId, const std::optional< Facts > & wanted ) const;
   void create( Kynet::IntfId intfId, const Facts & wanted );
   void update( Kynet::IntfId intfId, const Facts & wanted );
   void remove( Kynet::IntfId intfId );
   void tellMss( Kynet::IntfId intfId );
   bool routed( Kynet::IntfId intfId ) const;
   RoutingState state( Kynet::IntfId intfId ) const;
   // Nothing while something is missing, which `missing` then says.
   std::optional< Facts > wanted( Kynet::IntfId intfId, Gant::String * missing = nullptr ) const;

   Args args_;
   Gant::OrderedMap< Kynet::IntfId, Facts > told_;
   Gant::OrderedMap< Kynet::IntfId, Mss > toldMss_; // outlives the layer-3 interface, as the interface below it does
   std::unique_ptr< GantIpStatus > ipReactor_;
   std::unique_ptr< GantIp6Status > ip6Reactor_;
   std::unique_ptr< GantAllIntfStatusDir > intfReactor_;
   std::unique_ptr< GantTable > tableReactor_;
   std::unique_ptr< GantVrfDir > vrfReactor_;
   std::unique_ptr< GantL3Config > l3Reactor_;
};

} // namespace Hul
