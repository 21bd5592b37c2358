// The IPsec modules on the way in. They find the associations at the graph's IpsecManagement.
#pragma once

#include "DpIpsecManagement.h"
#include "DpModule.h"

#include "bess/control.pb.h"

namespace Vexdp {

// IpsecTunnelIngress: opens what comes in for the tunnels.
//
//   in     any gate     IPv4 packets that hold ESP, bare or in UDP
//   out    0            on, what they held, with the connection that it came by
//   drops  no association of a peer that has one, not authentic, come before
//
// What holds no ESP, or is from nobody who has an association, is handed to the router.
class IpsecTunnelIngress : public Module {
 public:
   static const ModuleClass & moduleClass();
   static Outcome check( const bess::pb::EmptyArg & ) { return {}; }
   IpsecTunnelIngress( Identity identity, const bess::pb::EmptyArg & ) : Module( std::move( identity ) ) {}

   Fate process( Packet & packet, Context & context ) override;
};

// IpsecDecrypt: the same among other packets, which pass as they are.
class IpsecDecrypt : public Module {
 public:
   static const ModuleClass & moduleClass();
   static Outcome check( const bess::pb::EmptyArg & ) { return {}; }
   IpsecDecrypt( Identity identity, const bess::pb::EmptyArg & ) : Module( std::move( identity ) ) {}

   Fate process( Packet & packet, Context & context ) override;
};

} // namespace Vexdp
