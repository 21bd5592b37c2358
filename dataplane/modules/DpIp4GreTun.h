// Ip4GreTun: puts GRE (RFC 2784, with a key RFC 2890) and an outer IPv4 header on a packet.
//
//   in     0            IPv4 packets
//   out    0            to the trap: the TTL ends here
//          1            on, with the outer header in front
//   drops  a tunnel without a destination, what is not IPv4 or grows too long
//
// On the transit path the inner TTL loses this router's hop here, so that it isn't taken from the outer one later. On
// the control-plane path the packets are the router's own, and keep it. The outer header never has DF: the interface
// under the tunnel may fragment it.
#pragma once

#include "DpModule.h"
#include "DpOuterIds.h"

#include "vex/ip.pb.h"

#include <optional>

namespace Vexdp {

class Ip4GreTun : public Module {
 public:
   static const ModuleClass & moduleClass();
   static Outcome check( const vex::pb::Ip4GreTunArg & init );
   Ip4GreTun( Identity identity, const vex::pb::Ip4GreTunArg & init );

   // True, as at first: the outer TOS is the configured one. False: it is 0.
   Outcome setIp4TunTos( const vex::pb::TunTosArg & arg );
   // True: the outer TTL is the inner one, as it also is when the configured one is 0.
   Outcome setIp4TunTtl( const vex::pb::TunTtlArg & arg );

   Fate process( Packet & packet, Context & context ) override;
   void processAll( Packets packets, Context & context ) override;
   bool punts( const Packet & packet ) const override;
   CommandSource commands() const override;
   std::string desc() const override;

 private:
   std::uint8_t outerTtl( std::uint8_t inner ) const;
   bool encapsulate( Packet & packet, std::uint8_t ttl, const Context & context );

   const vex::pb::Ip4GreTunArg init_;
   std::optional< bool > copyTos_;
   std::optional< bool > innerTtl_;
   const OuterIds::Counter nextId_;
};

} // namespace Vexdp
