// The ends of the graph. Packets come in at a PortRx from an interface and at a PortRxCp from the router itself, and go
// out at a PortTx to an interface and at a PortTxCp to the router's kernel. What is behind an interface need only hand
// packets to a source and take them from a sink.
#pragma once

#include "DpModule.h"
#include "DpWire.h"

#include "vex/port.pb.h"

namespace Vexdp {

class Port : public Module {
 public:
   // EINVAL: no `intfname`.
   static Outcome check( const vex::pb::PortArg & init );
   Port( Identity identity, const vex::pb::PortArg & init );

   std::string_view intfname() const final { return intfname_; }
   std::uint64_t intfId() const { return intfId_; }

   std::string desc() const override { return intfname_; }

 protected:
   Wire & wire() const { return *wire_; }
   Wire::Ends & ends() const { return wire_->ends[ side_ ]; }

 private:
   const std::string intfname_;
   const std::uint64_t intfId_;
   const std::shared_ptr< Wire > wire_;
   const Side side_;
};

// Frames from the interface leave by gate 0, and so do the bare IP packets that come to a tunnel interface by any input
// gate. Those of a disabled interface are dropped.
class PortRx : public Port {
 public:
   static const ModuleClass & moduleClass();
   PortRx( Identity identity, const vex::pb::PortArg & init );
   ~PortRx() override;
   // At first it is enabled.
   Outcome setEnabled( const vex::pb::PortEnabledArg & arg );
   Fate process( Packet & packet, Context & context ) override;
   void processAll( Packets packets, Context & context ) override;
   CommandSource commands() const override;

 private:
   std::optional< bool > enabled_;
};

// IP packets of the router's own leave by gate 0, with the VRF that "setVrf" names, at first 0.
class PortRxCp : public Port {
 public:
   static const ModuleClass & moduleClass();
   PortRxCp( Identity identity, const vex::pb::PortArg & init );
   ~PortRxCp() override;
   Outcome setVrf( const vex::pb::VrfArg & arg );
   Fate process( Packet & packet, Context & context ) override;
   CommandSource commands() const override;

 private:
   std::optional< std::uint32_t > vrf_;
};

class PortTx : public Port {
 public:
   static const ModuleClass & moduleClass();
   using Port::Port;
   Fate process( Packet & packet, Context & context ) override;
   void processAll( Packets packets, Context & context ) override;
};

class PortTxCp : public Port {
 public:
   static const ModuleClass & moduleClass();
   using Port::Port;
   Fate process( Packet & packet, Context & context ) override;
};

} // namespace Vexdp
