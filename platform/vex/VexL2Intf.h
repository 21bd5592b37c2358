// A layer-2 interface: a port or a tunnel, with the modules at its two ends.
#pragma once

#include "HulTypes.h"
#include "VexChain.h"
#include "VexPortModules.h"

namespace Vex {

// What a layer-2 interface wraps its packets in.
GANT_ENUM( EncapType, U8, ( ethernet, 0 ), ( gre, 1 ), ( greIpsec, 2 ), ( vtiIpsec, 3 ) )

class L2Intf : public Gant::PtrInterface {
 public:
   class Notifiee : public Gant::NotifieeOf< L2Intf > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onMacAddr() {}
      virtual void onVirtualMacAddr( const Kynet::EthAddr & ) {}
      virtual void onTunnel() {}
      virtual void onMaxMss() {}
   };
   GANT_NOTIFIER( Notifiee )
   using VirtualMacAddrs = Gant::OrderedSet< Kynet::EthAddr >;

   // The modules go with `pair`; frames of a type that nobody takes go to `trapModule`. An Ethernet interface gets its
   // port, a tunnel the entrance for what comes out of it, and the one for the router's own packets.
   L2Intf( Kynet::IntfId intfId, EncapType encapType, const Kynet::EthAddr & macAddr,
           const Gant::Ptr< ModuleConfigStatusPair > & pair, const Gant::Ptr< Module > & trapModule );
   ~L2Intf() override;
   const char * fwkType() const override { return "Vex::L2Intf"; }

   // The VRF of what comes in.
   virtual void vrfIdIs( Hul::VrfId vrfId );
   // A disabled interface takes in nothing. At first it is enabled.
   void enabledIs( bool enabled );
   // Frames to this address are the router's own too, or not any more.
   virtual void addVirtualMac( const Kynet::EthAddr & macAddr );
   virtual void removeVirtualMac( const Kynet::EthAddr & macAddr );

   GANT_CONST( Kynet::IntfId, intfId )
   const Kynet::EthAddr & macAddr() const { return macAddr_; }
   void macAddrIs( const Kynet::EthAddr & macAddr );
   GANT_WATCHED_SET( VirtualMacAddrs, virtualMacAddr, onVirtualMacAddr )
   GANT_CONST( EncapType, encapType )
   GANT_WATCHED( Kynet::IpAddr, srcIp, onTunnel )
   GANT_WATCHED( Kynet::IpAddr, dstIp, onTunnel )
   GANT_WATCHED( U8, tos, onTunnel, 0 )
   GANT_WATCHED( U8, ttl, onTunnel, 64 )
   // Where the tunnel's own packets are looked up, once they are wrapped.
   const Hul::VrfId & underlayVrfId() const { return underlayVrfId_; }
   void underlayVrfIdIs( Hul::VrfId vrfId );
   GANT_WATCHED( Hul::VrfId, overlayVrfId, onTunnel )
   GANT_WATCHED( U32, greKey, onTunnel, 0 ) // 0: no key
   GANT_WATCHED( U32, ipsecEncapId, onTunnel, 0 )
   GANT_WATCHED( U16, maxMssEgress, onMaxMss, 0 ) // bytes, 0: no clamp
   GANT_WATCHED( U16, maxMssIngress, onMaxMss, 0 )
   GANT_CONST( Gant::Ptr< Module >, rxModule )
   GANT_CONST( Gant::Ptr< Module >, txModule )
   GANT_CONST( Gant::Ptr< PortModule >, rxCpModule )
   GANT_CONST( Gant::Ptr< EtherClassifyModule >, ingressClassify )

   bool isTunnelType() const { return encapType() != EncapType::ethernet_; }
   bool isGreTunnelType() const { return encapType() == EncapType::gre_ || encapType() == EncapType::greIpsec_; }
   bool isIpsecTunnelType() const { return encapType() == EncapType::greIpsec_ || encapType() == EncapType::vtiIpsec_; }

   // Port type 1 is the control-plane ingress chain: packets of the router's own.
   void connectIngressModule( const Gant::Ptr< Module > & module, U32 portType, U32 priority );
   void disconnectIngressModule( const Gant::Ptr< Module > & module, U32 portType, U32 priority );
   const ModuleChain & ingressModuleChain( U32 portType ) const;

 private:
   ModuleChain & chain( U32 portType );

   Kynet::EthAddr macAddr_;
   Hul::VrfId underlayVrfId_;
   bool enabled_ = true;
   std::map< U32, ModuleChain > ingressModuleChain_;
};

} // namespace Vex
