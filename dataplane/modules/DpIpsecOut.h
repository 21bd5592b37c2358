// The IPsec modules on the way out. They find the associations at the graph's IpsecManagement.
#pragma once

#include "DpIpsecManagement.h"
#include "DpModule.h"

#include "bess/control.pb.h"

namespace Vexdp {

// IpsecTunnelEgress: the end of a tunnel interface, where its packets are protected by the newest outbound association
// of its connection.
//
//   in     any gate     IPv4 packets
//   out    0            on, protected
//   drops  while the connection has no outbound association: nothing leaves in the clear. What is not IPv4, what its
//          association can't take
//
// What has its TTL end here is handed to the router.
//
// On the transit path the packet loses this router's hop here, if it hasn't before, so that it isn't taken from the
// outer header later.
class IpsecTunnelEgress : public Module {
 public:
   static const ModuleClass & moduleClass();
   static Outcome check( const vex::pb::IpsecTunnelEgressArg & init );
   IpsecTunnelEgress( Identity identity, const vex::pb::IpsecTunnelEgressArg & init );

   Fate process( Packet & packet, Context & context ) override;
   bool punts( const Packet & packet ) const override;
   std::string desc() const override;

 private:
   const std::uint32_t vrf_;
   const std::uint32_t encapId_;
   const bool localOut_; // its packets are the router's own
};

// IpsecEncrypt: protects the packets that an outbound association in transport mode is for, by their addresses.
//
//   in     any gate     IPv4 packets
//   out    0            on, protected, or as they are where there is no association for them
//   drops  what its association can't take, what is not IPv4
class IpsecEncrypt : public Module {
 public:
   static const ModuleClass & moduleClass();
   static Outcome check( const bess::pb::EmptyArg & ) { return {}; }
   IpsecEncrypt( Identity identity, const bess::pb::EmptyArg & ) : Module( std::move( identity ) ) {}

   Fate process( Packet & packet, Context & context ) override;
};

} // namespace Vexdp
