// The captures that are under way.
//
// begin(), end() and expire() are called while the worker is held, for they change what it looks at; find() under the
// lock that those who call them share.
#pragma once

#include "DpCapture.h"

#include <map>

namespace Vexdp {

class Captures : public PacketWatcher {
 public:
   static constexpr std::size_t kMost = 8; // each costs every packet a look

   // ENOSPC: kMost are under way. Others as Capture::make.
   Outcome begin( const vex::pb::CaptureRequest & request, double now, std::uint64_t & id );
   // For a gate hook, which alone may ask it. ENOSPC: as before.
   Outcome begin( Capture::Place place, double now, std::uint64_t & id );
   static bool ofHook( std::uint64_t id ) { return ( id & kOfHook ) != 0; }
   void end( std::uint64_t id ) { captures_.erase( id ); }
   // Ends those that nobody asks for any more.
   void expire( double now );
   // Null: it is over.
   std::shared_ptr< Capture > find( std::uint64_t id ) const;
   bool empty() const { return captures_.empty(); }

   bool watches( const Module & module ) const override;
   void enters( const Module & module, GateId igate, Packets packets, double now ) override;
   void leaves( const Module & module, GateId ogate, Packets packets, double now ) override;
   vex::pb::TracePacketReply * trace( const Module & source, const Packet & packet, double now ) override;
   void traced( double now ) override;
   bool tracing( double now ) const override;

 private:
   static constexpr std::uint64_t kOfHook = std::uint64_t( 1 ) << 63;
   std::map< std::uint64_t, std::shared_ptr< Capture > > captures_;
   std::uint64_t lastId_ = 0;
   // Of the packet that is being traced.
   vex::pb::TracePacketReply trace_;
   std::string intfname_;
   std::vector< Capture * > tracers_;
};

} // namespace Vexdp
