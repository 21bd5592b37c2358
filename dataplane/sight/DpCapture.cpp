#include "DpCapture.h"

#include "DpModuleClass.h"

#include <algorithm>
#include <cerrno>

namespace Vexdp {

using vex::pb::CaptureReply;
using vex::pb::CaptureRequest;
using vex::pb::TracePacketReply;

Outcome Capture::make( const CaptureRequest & request, std::unique_ptr< Capture > & capture ) {
   if ( request.has_gate() && request.module().empty() ) return refuse( EINVAL, "a gate without its module" );
   if ( request.trace() && !request.module().empty() )
      return refuse( EINVAL, "a way begins where a packet comes in, not at a module" );
   auto made = std::unique_ptr< Capture >( new Capture( request ) );
   if ( auto out = made->filter_.textIs( request.filter() ); !out.ok() ) return out;
   capture = std::move( made );
   return {};
}

Capture::Capture( const CaptureRequest & request ) :
     request_( request ), place_{ request.module(), request.has_gate(),
                                  request.has_gate() ? std::optional( GateId( request.gate() ) ) : std::nullopt },
     slots_( kRoom ) {}

Capture::Capture( Place place ) : place_( std::move( place ) ), slots_( kRoom ) {}

CaptureReply::Packet * Capture::slot() {
   const auto at = written_.load( std::memory_order_relaxed );
   if ( at - read_.load( std::memory_order_acquire ) >= kRoom ) {
      lost_.fetch_add( 1, std::memory_order_relaxed );
      return nullptr;
   }
   return &slots_[ at % kRoom ];
}

void Capture::takeAll( const Module & module, Packets packets, double now ) {
   if ( over( now ) ) return;
   for ( const auto * const packet : packets )
      if ( filter_.matches( *packet ) ) take( module, *packet, now );
}

void Capture::take( const Module & module, const Packet & packet, double now ) {
   const OneAtATime one( writing_, true );
   auto * const taken = slot();
   if ( taken == nullptr ) return;
   taken->set_time( std::uint64_t( now * 1e9 ) );
   taken->set_module( module.name() );
   taken->set_mclass( module.mclass().name );
   taken->set_intfname( std::string( module.intfname() ) );
   taken->set_length( std::uint32_t( packet.size() ) );
   taken->set_ethernet( packet.meta.ethernet );
   taken->mutable_data()->assign( reinterpret_cast< const char * >( packet.data() ),
                                  std::min( packet.size(), kMostBytes ) );
   put();
}

bool Capture::watches( const Module & module ) const {
   if ( request_.trace() ) return false;
   return place_.module.empty() ? !module.intfname().empty() : module.name() == place_.module;
}

void Capture::enters( const Module & module, GateId igate, Packets packets, double now ) {
   if ( request_.trace() || place_.out || ( place_.gate && *place_.gate != igate ) ) return;
   if ( place_.module.empty() ? module.intfname().empty() : module.name() != place_.module ) return;
   takeAll( module, packets, now );
}

void Capture::leaves( const Module & module, GateId ogate, Packets packets, double now ) {
   if ( place_.out && ( !place_.gate || *place_.gate == ogate ) && module.name() == place_.module )
      takeAll( module, packets, now );
}

bool Capture::traces( const Module & source, const Packet & packet, double now ) const {
   if ( !tracing( now ) ) return false;
   if ( !request_.intfname().empty() && source.intfname() != request_.intfname() ) return false;
   return filter_.matches( packet );
}

void Capture::traced( const TracePacketReply & trace, const std::string & intfname, double now ) {
   if ( request_.drops() && trace.end() != TracePacketReply::END_DROPPED ) return;
   const OneAtATime one( writing_, true );
   auto * const taken = slot();
   if ( taken == nullptr ) return;
   taken->set_time( std::uint64_t( now * 1e9 ) );
   taken->set_intfname( intfname );
   *taken->mutable_trace() = trace;
   put();
}

void Capture::tell( double now, CaptureReply & reply ) {
   askedAt( now );
   const auto end = written_.load( std::memory_order_acquire );
   auto at = read_.load( std::memory_order_relaxed );
   for ( ; at < end; ++at ) *reply.add_packet() = slots_[ at % kRoom ];
   read_.store( at, std::memory_order_release );
   reply.set_lost( lost_.load( std::memory_order_relaxed ) );
}

} // namespace Vexdp
