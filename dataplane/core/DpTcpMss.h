// TCP MSS clamping (RFC 879, RFC 4459): lowers the maximum segment size that a SYN announces.
#pragma once

#include "DpIpv4.h"
#include "DpModule.h"

#include "vex/ip.pb.h"

#include <optional>

namespace Vexdp {

class Context;

// The clamp of one direction of an interface.
struct TcpMssClamp {
   std::uint32_t mss = 0;   // bytes; 0: no clamp
   bool doChecksum = false; // keep the TCP checksum right

   friend bool operator==( const TcpMssClamp &, const TcpMssClamp & ) = default;

   // Absent fields stay as they were. ERANGE: more than 16 bits.
   template < class Arg >
   Outcome set( const Arg & arg ) {
      if ( auto out = requireAtMost( "mss", arg.mss(), 0xffff ); !out.ok() ) return out;
      if ( arg.has_mss() ) mss = arg.mss();
      if ( arg.has_do_mss_checksum() ) doChecksum = arg.do_mss_checksum();
      return {};
   }
   // The "setTcpMssAdjust" that brings `before` to this, if it takes one.
   std::optional< vex::pb::TcpMssAdjustArg > changeFrom( const TcpMssClamp & before ) const;

   // REQUIRES: the header is the packet's
   void apply( const Ipv4Header & header, Packet & packet, Context & context ) const;
};

} // namespace Vexdp
