// IpOutput: fits an IPv4 packet to the interface that it leaves by: MTU, fragments, TCP MSS.
//
//   in     any gate     IPv4 packets
//   out    0            to the trap: bigger than the MTU, and not to be fragmented
//          1            on; what a module behind it hands to the router itself goes there whole and unchanged
//   drops  what cannot be fragmented (under its counter), what is not IPv4
#pragma once

#include "DpCounterIds.h"
#include "DpModule.h"
#include "DpTcpMss.h"

#include <optional>

namespace Vexdp {

class IpOutput : public Module {
 public:
   // Every module must be able to forward so many bytes without a fragment (RFC 791).
   static constexpr std::uint32_t kMinMtu = 68;

   static const ModuleClass & moduleClass();
   static Outcome check( const vex::pb::IpOutputArg & init );
   IpOutput( Identity identity, const vex::pb::IpOutputArg & init );

   // Sets `ip_mtu` alone, whatever else the message says. 0: no limit.
   Outcome setMtu( const vex::pb::IpOutputArg & arg );
   // Absent fields stay as they were.
   Outcome setTcpMssAdjust( const vex::pb::TcpMssAdjustArg & arg ) { return clamp_.set( arg ); }
   // Kept and told; checksums are made in software here, whatever it says.
   Outcome setHwOffload( const vex::pb::IpOutputHwOffload & arg );
   Outcome setCounterIds( const vex::pb::IpOutputCounterIdArg & arg ) { return counters_.set( arg ); }

   Fate process( Packet & packet, Context & context ) override;
   void processAll( Packets packets, Context & context ) override;
   CommandSource commands() const override;
   std::string desc() const override;

 private:
   std::uint32_t initMtu_ = 0;
   std::uint32_t mtu_ = 0;
   TcpMssClamp initClamp_;
   TcpMssClamp clamp_;
   std::optional< bool > hwOffload_;
   CounterIds counters_;
};

} // namespace Vexdp
