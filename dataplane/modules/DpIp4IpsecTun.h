// Ip4IpsecTun: the place of an IPsec tunnel interface on its chain. Packets pass as they are; what protects them are
// the IPsec modules behind it.
//
//   in     0            IPv4 packets
//   out    1            on
#pragma once

#include "DpModule.h"

#include "vex/ip.pb.h"

namespace Vexdp {

class Ip4IpsecTun : public Module {
 public:
   static const ModuleClass & moduleClass();
   static Outcome check( const vex::pb::Ip4IpsecTunArg & ) { return {}; }
   Ip4IpsecTun( Identity identity, const vex::pb::Ip4IpsecTunArg & init );

   Fate process( Packet & packet, Context & context ) override;
   std::optional< GateId > passGate() const override;
   std::string desc() const override;

 private:
   const std::uint32_t tunId_;
   const bool cpIngress_; // its packets are the router's own
};

} // namespace Vexdp
