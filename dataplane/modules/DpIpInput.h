// IpInput: checks an IPv4 packet that comes in on an interface, and clamps the MSS of TCP.
//
//   in     any gate     packets that begin with an IPv4 header; link-layer padding behind it is cut off
//   out    0            to the trap, reserved: nothing is punted here
//          1            on
//   drops  a bad version, header length or total length; a bad header checksum (each under its counter)
#pragma once

#include "DpCounterIds.h"
#include "DpModule.h"
#include "DpTcpMss.h"

namespace Vexdp {

class IpInput : public Module {
 public:
   static const ModuleClass & moduleClass();
   static Outcome check( const vex::pb::IpInputArg & init ) { return TcpMssClamp().set( init ); }
   IpInput( Identity identity, const vex::pb::IpInputArg & init );

   // Absent fields stay as they were.
   Outcome setTcpMssAdjust( const vex::pb::TcpMssAdjustArg & arg ) { return clamp_.set( arg ); }
   Outcome setCounterIds( const vex::pb::IpInputCounterIdArg & arg ) { return counters_.set( arg ); }

   Fate process( Packet & packet, Context & context ) override;
   void processAll( Packets packets, Context & context ) override;
   CommandSource commands() const override;

 private:
   TcpMssClamp initClamp_;
   TcpMssClamp clamp_;
   CounterIds counters_;
};

} // namespace Vexdp
