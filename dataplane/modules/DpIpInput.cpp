#include "DpIpInput.h"

#include "DpModuleClass.h"
#include "DpWalk.h"

#include <cassert>

namespace Vexdp {

using namespace vex::pb;

namespace {
using InputCounter = IpInputCounterIdArg;
constexpr GateId kInputOut = 1;
} // namespace

const ModuleClass & IpInput::moduleClass() {
   static const ModuleClass self = describe< IpInput, IpInputArg >(
        "IpInput", "IPv4 on its way in: header checks, TCP MSS clamp", { .igates = kMaxGates, .ogates = 2 },
        { command< &IpInput::setTcpMssAdjust >( "setTcpMssAdjust" ),
          command< &IpInput::setCounterIds >( "setCounterIds" ) } );
   return self;
}

IpInput::IpInput( Identity identity, const IpInputArg & init ) : Module( std::move( identity ) ) {
   [[maybe_unused]] const auto out = initClamp_.set( init );
   assert( out.ok() );
   clamp_ = initClamp_;
}

Fate IpInput::process( Packet & packet, Context & context ) {
   const auto badLen = counters_[ InputCounter::kBadIpLenCounterFieldNumber ];
   const auto header = Ipv4Header::of( packet );
   if ( !header ) return context.drop( badLen, "not an IPv4 header" );
   if ( header->totalLen() < header->headerLen() || header->totalLen() > packet.size() )
      return context.drop( badLen, "total length {} in {} bytes", header->totalLen(), packet.size() );
   if ( !header->checksumGood() )
      return context.drop( counters_[ InputCounter::kBadIpChecksumCounterFieldNumber ], "bad header checksum" );
   packet.trim( header->totalLen() );
   context.note( "header is good" );
   clamp_.apply( *header, packet, context );
   return context.forward( kInputOut );
}

void IpInput::processAll( Packets packets, Context & context ) { context.each( packets, *this ); }

CommandSource IpInput::commands() const {
   return [ counters = counters_.command(), change = clamp_.changeFrom( initClamp_ ) ]( CommandSink & sink ) {
      counters( sink );
      if ( change ) sink.command( "setTcpMssAdjust", *change );
   };
}

} // namespace Vexdp
