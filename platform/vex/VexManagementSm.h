// The engine's management of flows that are not routed: which packets of the device's own go where.
#pragma once

#include "GantAttr.h"
#include "GantValue.h"
#include "KynetAddr.h"

namespace Vex {

// A flow of packets to the device itself.
class FlowKey {
   GANT_VALUE( "Vex::FlowKey", FlowKey, ( U8, protocol ), ( Kynet::IpAddr, srcAddr ), ( Kynet::IpAddr, dstAddr ),
               ( Kynet::Port, srcPort ), ( Kynet::Port, dstPort ), ( U32, spi ) )
   bool operator!() const { return *this == FlowKey(); }
   // "17 192.0.2.1:4500 -> 198.51.100.9:4500 spi 0x00001000"
   Gant::String stringValue() const;
};

class ManagementSm : public Gant::PtrInterface {
 public:
   using FlowEntries = Gant::OrderedMap< FlowKey, U32 >;
   const char * fwkType() const override { return "Vex::ManagementSm"; }

   // How many have asked for each flow; a flow stays until as many have given it back.
   GANT_MAP( FlowEntries, flowEntry )

   void createFlowEntry( const FlowKey & flowKey );
   // A flow that there is not is left alone.
   void deleteFlowEntry( const FlowKey & flowKey );
};

} // namespace Vex
