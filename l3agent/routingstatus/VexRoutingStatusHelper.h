// Routing facts of the layer, into the model and, where they have a direct effect, into the data plane: layer-3
// interfaces come and go, MTU and TCP MSS reach the IP modules.
#pragma once

#include "HulHelper.h"
#include "VexCommonSmData.h"
#include "VexL3Export.h"
#include "VexL3Modules.h"
#include "VexRoutingStatusTypes.h"

namespace VexL3Unicast {

class RoutingStatusHelper : public HulHelper::RoutingStatusSmHelper {
 public:
   RoutingStatusHelper( const Gant::Name & name, const Gant::Ptr< RoutingStatus > & routingStatus,
                        const Gant::Ptr< Vex::VexCommonSmData > & vexcsd, const Gant::Ptr< L3Modules > & l3Modules );
   ~RoutingStatusHelper() override;
   const char * fwkType() const override { return "VexL3Unicast::RoutingStatusHelper"; }

   GANT_CONST( Gant::Ptr< RoutingStatus >, routingStatus )
   GANT_CONST( Gant::Ptr< Vex::VexCommonSmData >, vexcsd )
   GANT_CONST( Gant::Ptr< L3Modules >, l3Modules )

   void handleRouting( bool enable, bool enable6 ) override;
   void handleRouterMac( const Kynet::EthAddr & address, bool add ) override;
   // The mask has no effect.
   void handleVirtualRouterMac( const Kynet::EthAddrWithMask & address, bool add ) override;
   // A change of the VRF in an update goes only into the model.
   void handleL3Intf( Kynet::IntfId intfId, U32 vlanId, U32 mtu, bool create, bool update, Hul::VrfId vrfId ) override;
   // Dropped for a VLAN that handleL3Intf has not made.
   void enableVlanRouting( Kynet::IntfId intfId, U32 vlanId, Hul::RoutingState state ) override;
   // Remembered on the layer-2 interface while there is no layer-3 interface.
   void handleTcpMssEgress( Kynet::IntfId intfId, U16 mss ) override;
   void handleTcpMssIngress( Kynet::IntfId intfId, U16 mss ) override;
};

VEXL3_EXPORT Gant::Ptr< RoutingStatusHelper > routingStatusHelperFactory(
     const Gant::Name & name, const Gant::Ptr< RoutingStatus > & routingStatus,
     const Gant::Ptr< Vex::VexCommonSmData > & vexcsd, const Gant::Ptr< L3Modules > & l3Modules );

} // namespace VexL3Unicast
