// The way in for tunnels: from the trap, where all comes that is for the router itself, to each tunnel interface.
#pragma once

#include "VexL3Intf.h"

namespace Vex {

// Finds the tunnel that a packet has come in by, and takes the tunnel's headers off.
class TunnelIngressModule : public Module {
 public:
   explicit TunnelIngressModule( Gant::Ptr< ModuleConfigStatusPair > pair );
   const char * fwkType() const override { return "Vex::TunnelIngressModule"; }

   // What comes in for the end of the tunnel leaves by the gate.
   void addTunnel( GateId gate, const L2Intf & tunnel );
   void delTunnel( GateId gate );
};

// Reads a tunnel's ends once, as the modules on its way out do. While there is any end:
//
//    Trap ──1──> tunnelIngress ──> PortRx of the tunnel ─> EtherClassify ─> its ingress chain
//      └──2──> IpsecTunnelIngress ──^
//
// An end of IPsec is opened to what an association of the tunnel's connection has protected, and to nothing else.
class TunnelEnds {
 public:
   // `trapModule` outlives this, and so do the modules of each end.
   TunnelEnds( const ModuleGlobalCmdConfig & groups, Gant::Ptr< Module > trapModule );
   ~TunnelEnds();

   // Nothing for an interface that is no tunnel, or waits for its connection.
   void endIs( const L3Intf & l3Intf );
   void endDel( Kynet::IntfId intfId );

 private:
   Module * moduleOf( VexModule::ModuleClass moduleClass ) const;
   void lead();

   const ModuleGlobalCmdConfig & groups_;
   const Gant::Ptr< Module > trapModule_;
   Gant::Ptr< TunnelIngressModule > ingress_; // null while there is no end
   std::map< Kynet::IntfId, GateId > gates_;
};

} // namespace Vex
