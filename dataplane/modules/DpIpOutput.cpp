#include "DpIpOutput.h"

#include "DpIpv4Fragment.h"
#include "DpModuleClass.h"
#include "DpWalk.h"

#include <cassert>
#include <cerrno>

namespace Vexdp {

using namespace vex::pb;

namespace {

using OutputCounter = IpOutputCounterIdArg;
constexpr GateId kOutputOut = 1;

Outcome requireMtu( std::uint32_t mtu ) {
   if ( mtu == 0 || mtu >= IpOutput::kMinMtu ) return {};
   return refuse( ERANGE, "ip_mtu {} is out of range, at least {}, or 0 for no limit", mtu, IpOutput::kMinMtu );
}

} // namespace

const ModuleClass & IpOutput::moduleClass() {
   static const ModuleClass self = describe< IpOutput, IpOutputArg >(
        "IpOutput", "IPv4 on its way out: MTU, fragments, TCP MSS clamp", { .igates = kMaxGates, .ogates = 2 },
        { command< &IpOutput::setMtu >( "setMtu" ), command< &IpOutput::setTcpMssAdjust >( "setTcpMssAdjust" ),
          command< &IpOutput::setHwOffload >( "setHwOffload" ),
          command< &IpOutput::setCounterIds >( "setCounterIds" ) } );
   return self;
}

Outcome IpOutput::check( const IpOutputArg & init ) {
   if ( auto out = requireMtu( init.ip_mtu() ); !out.ok() ) return out;
   return TcpMssClamp().set( init );
}

IpOutput::IpOutput( Identity identity, const IpOutputArg & init ) :
     Module( std::move( identity ) ), initMtu_( init.ip_mtu() ), mtu_( initMtu_ ) {
   [[maybe_unused]] const auto out = initClamp_.set( init );
   assert( out.ok() );
   clamp_ = initClamp_;
}

Outcome IpOutput::setMtu( const IpOutputArg & arg ) {
   if ( auto out = requireFields( { { arg.has_ip_mtu(), "ip_mtu" } } ); !out.ok() ) return out;
   if ( auto out = requireMtu( arg.ip_mtu() ); !out.ok() ) return out;
   mtu_ = arg.ip_mtu();
   return {};
}

Outcome IpOutput::setHwOffload( const IpOutputHwOffload & arg ) {
   if ( auto out = requireFields( { { arg.has_ip_hdr_cksum_offload(), "ip_hdr_cksum_offload" } } ); !out.ok() )
      return out;
   hwOffload_ = arg.ip_hdr_cksum_offload();
   return {};
}

Fate IpOutput::process( Packet & packet, Context & context ) {
   const auto header = Ipv4Header::of( packet );
   // The router's own packets have not been through IpInput.
   if ( !header || header->totalLen() < header->headerLen() || header->totalLen() > packet.size() )
      return context.drop( kNoCounter, "not an IPv4 packet" );
   packet.trim( header->totalLen() );
   if ( puntedBehind( kOutputOut, packet ) ) {
      context.note( "goes to the router as it is" );
      return context.forward( kOutputOut );
   }
   clamp_.apply( *header, packet, context );
   if ( mtu_ == 0 || packet.size() <= mtu_ ) {
      context.note( "{} bytes fit", packet.size() );
      return context.forward( kOutputOut );
   }
   if ( header->dontFragment() )
      return context.punt( "{} bytes exceed the MTU of {}, and DF is set", packet.size(), mtu_ );
   auto fragments = fragmented( packet, mtu_ );
   if ( fragments.empty() )
      return context.drop( counters_[ OutputCounter::kFailedFragCounterFieldNumber ],
                           "{} bytes can't be fragmented to {}", packet.size(), mtu_ );
   context.note( "{} bytes in {} fragments for the MTU of {}", packet.size(), fragments.size(), mtu_ );
   packet = std::move( fragments.front() );
   for ( std::size_t i = 1; i < fragments.size(); ++i ) context.also( std::move( fragments[ i ] ), kOutputOut );
   return context.forward( kOutputOut );
}

void IpOutput::processAll( Packets packets, Context & context ) { context.each( packets, *this ); }

CommandSource IpOutput::commands() const {
   return [ counters = counters_.command(), mtu = mtu_, mtuChanged = mtu_ != initMtu_,
            clamp = clamp_.changeFrom( initClamp_ ), hwOffload = hwOffload_ ]( CommandSink & sink ) {
      counters( sink );
      if ( mtuChanged ) {
         IpOutputArg arg;
         arg.set_ip_mtu( mtu );
         sink.command( "setMtu", arg );
      }
      if ( clamp ) sink.command( "setTcpMssAdjust", *clamp );
      if ( hwOffload ) {
         IpOutputHwOffload arg;
         arg.set_ip_hdr_cksum_offload( *hwOffload );
         sink.command( "setHwOffload", arg );
      }
   };
}

std::string IpOutput::desc() const { return mtu_ == 0 ? std::string( "no MTU" ) : fmt::format( "MTU {}", mtu_ ); }

} // namespace Vexdp
