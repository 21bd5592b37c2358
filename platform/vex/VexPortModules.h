// The engine's own modules around the layer-3 graph.
#pragma once

#include "KynetAddr.h"
#include "KynetIntfId.h"
#include "VexModule.h"

namespace Vex {

// Where packets go that are for the router's own software. What a tunnel has brought leaves by gate 1 (GRE) or 2 (ESP).
class TrapModule : public Module {
 public:
   explicit TrapModule( Gant::Ptr< ModuleConfigStatusPair > pair );
   const char * fwkType() const override { return "Vex::TrapModule"; }
};

// Where an interface's packets come in or go out: a network port, or the kernel's side of it.
class PortModule : public Module {
 public:
   PortModule( VexModule::ModuleClass moduleClass, Kynet::IntfId intfId, Gant::Ptr< ModuleConfigStatusPair > pair );
   const char * fwkType() const override { return "Vex::PortModule"; }
   // The VRF of the packets that come from the kernel's side, at first 0.
   void setVrf( U32 vrf );
   // Of a PortRx: what comes in by a disabled one is dropped.
   void setEnabled( bool enabled );
   // At first it is.
   bool enabled() const { return enabled_; }

 private:
   bool enabled_ = true;
};

// Frames that come in: those that are for the router go on by EtherType, the rest of the router's own to gate 0.
class EtherClassifyModule : public Module {
 public:
   EtherClassifyModule( Kynet::IntfId intfId, const Kynet::EthAddr & macAddr,
                        Gant::Ptr< ModuleConfigStatusPair > pair );
   const char * fwkType() const override { return "Vex::EtherClassifyModule"; }

   // The VRF of the packets that come in.
   void setVrf( U32 vrf );
   // The interface's own address.
   void setMacAddr( const Kynet::EthAddr & macAddr );
   // Frames to this address are the router's own too.
   void addVirtualMac( const Kynet::EthAddr & macAddr );
   void removeVirtualMac( const Kynet::EthAddr & macAddr );
   // Frames of the type leave by the gate.
   void setEtherTypeGate( U16 etherType, GateId gate );
   void clearEtherTypeGate( U16 etherType );

 private:
   void sendMac( const char * action, const Kynet::EthAddr & macAddr );
};

} // namespace Vex
