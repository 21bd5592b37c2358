// Brings the virtual router MACs of first-hop redundancy (RFC 5798) to the layer-2 interfaces, and announces what this
// data plane can do about them.
//
//   watches   VirtualRouterMacStatus::vrrpVirtualMac     (interface, MAC) to whether this router answers to it
//   calls     Vex::L2Intf::addVirtualMac, removeVirtualMac
//   writes    Routing::Fhrp::Hardware::Status            once, at start
//
// A MAC on an interface that does not exist, or that is not of Ethernet, is only traced and not remembered: the next
// change of its entry applies it.
#pragma once

#include "StateFhrp.h"
#include "VexCommonSmData.h"
#include "VexL3Export.h"

#include <memory>

namespace VexL3Unicast {

class VexVrrpSm : public Gant::StateMachine {
 public:
   VexVrrpSm( const Gant::Ptr< Vex::VexCommonSmData > & vexcsd,
              const Gant::Ptr< const Routing::Fhrp::VirtualRouterMacStatus > & virtualRouterMacStatus,
              const Gant::Ptr< Routing::Fhrp::Hardware::Status > & fhrpHwStatus );
   ~VexVrrpSm() override;
   const char * fwkType() const override { return "VexL3Unicast::VexVrrpSm"; }

   GANT_CONST( Gant::Ptr< Vex::VexCommonSmData >, vexcsd )
   // Null: no MACs.
   GANT_CONST( Gant::Ptr< const Routing::Fhrp::VirtualRouterMacStatus >, virtualRouterMacStatus )
   // Null: nobody wants to know.
   GANT_CONST( Gant::Ptr< Routing::Fhrp::Hardware::Status >, fhrpHwStatus )
   GANT_ATTR( bool, initialized, false )

   void handleInitialized();
   // Every entry, in the table's order.
   void handleVrrpMac();
   void handleVrrpMac( const Routing::Fhrp::VirtualRouterMac & key );

 private:
   class GantVirtualRouterMacStatus;
   std::unique_ptr< GantVirtualRouterMacStatus > gantVirtualRouterMacStatus_;
};

Gant::Ptr< VexVrrpSm > VexVrrpSmIs(
     const Gant::Ptr< Vex::VexCommonSmData > & vexcsd,
     const Gant::Ptr< const Routing::Fhrp::VirtualRouterMacStatus > & virtualRouterMacStatus,
     const Gant::Ptr< Routing::Fhrp::Hardware::Status > & fhrpHwStatus );

} // namespace VexL3Unicast
