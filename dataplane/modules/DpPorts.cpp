#include "DpPorts.h"

#include "DpEthernet.h"
#include "DpGraph.h"
#include "DpModuleClass.h"
#include "DpPacket.h"
#include "DpWalk.h"

namespace Vexdp {

using vex::pb::PortArg;

namespace {
constexpr GateId kPortOut = 0;
}

Outcome Port::check( const PortArg & init ) { return requireFields( { { !init.intfname().empty(), "intfname" } } ); }

Port::Port( Identity identity, const PortArg & init ) :
     Module( std::move( identity ) ), intfname_( init.intfname() ), intfId_( init.intf_id() ),
     wire_( graph().wires().of( intfname_ ) ), side_( graph().side() ) {}

PortRx::PortRx( Identity identity, const PortArg & init ) : Port( std::move( identity ), init ) {
   if ( ends().source == nullptr ) ends().source = this;
}

PortRx::~PortRx() {
   if ( ends().source == this ) ends().source = nullptr;
}

PortRxCp::PortRxCp( Identity identity, const PortArg & init ) : Port( std::move( identity ), init ) {
   if ( ends().ownSource == nullptr ) ends().ownSource = this;
}

PortRxCp::~PortRxCp() {
   if ( ends().ownSource == this ) ends().ownSource = nullptr;
}

const ModuleClass & PortRx::moduleClass() {
   static const ModuleClass self =
        describe< PortRx, PortArg >( "PortRx", "frames from an interface", { .igates = kMaxGates, .ogates = 1 },
                                     { command< &PortRx::setEnabled >( "setEnabled" ) } );
   return self;
}

Outcome PortRx::setEnabled( const vex::pb::PortEnabledArg & arg ) {
   if ( auto out = requireFields( { { arg.has_enabled(), "enabled" } } ); !out.ok() ) return out;
   enabled_ = arg.enabled();
   return {};
}

CommandSource PortRx::commands() const {
   return [ enabled = enabled_ ]( CommandSink & sink ) {
      if ( !enabled ) return;
      vex::pb::PortEnabledArg arg;
      arg.set_enabled( *enabled );
      sink.command( "setEnabled", arg );
   };
}

Fate PortRx::process( Packet & packet, Context & context ) {
   packet.meta.ingressIntf = intfId();
   packet.meta.ingress = &wire();
   packet.cameIn();
   if ( !enabled_.value_or( true ) ) return context.drop( kNoCounter, "{} is disabled", intfname() );
   context.note( "in from {}", intfname() );
   return context.forward( kPortOut );
}

void PortRx::processAll( Packets packets, Context & context ) { context.each( packets, *this ); }

const ModuleClass & PortRxCp::moduleClass() {
   static const ModuleClass self =
        describe< PortRxCp, PortArg >( "PortRxCp", "the router's own packets to an interface",
                                       { .igates = 0, .ogates = 1 }, { command< &PortRxCp::setVrf >( "setVrf" ) } );
   return self;
}

Outcome PortRxCp::setVrf( const vex::pb::VrfArg & arg ) {
   if ( auto out = requireFields( { { arg.has_vrf(), "vrf" } } ); !out.ok() ) return out;
   vrf_ = arg.vrf();
   return {};
}

Fate PortRxCp::process( Packet & packet, Context & context ) {
   packet.meta.ingressIntf = intfId();
   packet.meta.own = true;
   packet.meta.vrf = vrf_.value_or( 0 );
   context.note( "the router's own, by {}", intfname() );
   return context.forward( kPortOut );
}

CommandSource PortRxCp::commands() const {
   return [ vrf = vrf_ ]( CommandSink & sink ) {
      if ( !vrf ) return;
      vex::pb::VrfArg arg;
      arg.set_vrf( *vrf );
      sink.command( "setVrf", arg );
   };
}

const ModuleClass & PortTx::moduleClass() {
   static const ModuleClass self =
        describe< PortTx, PortArg >( "PortTx", "frames to an interface", { .igates = kMaxGates, .ogates = 0 }, {} );
   return self;
}

Fate PortTx::process( Packet & packet, Context & context ) {
   context.note( "out to {}", intfname() );
   const auto mac = destinationOf( packet );
   if ( context.live() ) {
      if ( wire().device == nullptr ) return context.drop( kNoCounter, "{} has no device", intfname() );
      wire().device->send( std::move( packet ), context.seat().worker );
   }
   return context.send( intfname(), mac );
}

void PortTx::processAll( Packets packets, Context & context ) { context.each( packets, *this ); }

const ModuleClass & PortTxCp::moduleClass() {
   static const ModuleClass self = describe< PortTxCp, PortArg >( "PortTxCp", "packets to the router's kernel",
                                                                  { .igates = kMaxGates, .ogates = 0 }, {} );
   return self;
}

Fate PortTxCp::process( Packet & packet, Context & context ) {
   if ( context.live() && wire().kernel != nullptr && packet.rewind() )
      wire().kernel->send( std::move( packet ), context.seat().worker );
   return context.deliver( "to the kernel by {}", intfname() );
}

} // namespace Vexdp
