// The captures that are under way.
//
// begin(), end() and expire() are called while the workers are held, for they change what those look at; find() under
// the lock that those who call them share.
#pragma once

#include "DpCapture.h"

#include <map>

namespace Vexdp {

class Captures {
 public:
   static constexpr std::size_t kMost = 8; // each costs every packet a look

   explicit Captures( unsigned workers = 1 ) : eyes_( workers ) {
      for ( unsigned worker = 0; worker < workers; ++worker ) eyes_[ worker ].captures_ = this;
   }

   // ENOSPC: kMost are under way.
   Outcome begin( std::unique_ptr< Capture > capture, double now, std::uint64_t & id );
   // For a gate hook, which alone may ask it. ENOSPC: as before.
   Outcome begin( Capture::Place place, double now, std::uint64_t & id );
   static bool ofHook( std::uint64_t id ) { return ( id & kOfHook ) != 0; }
   void end( std::uint64_t id ) { captures_.erase( id ); }
   // Ends those that nobody asks for any more.
   void expire( double now );
   // Null: it is over.
   std::shared_ptr< Capture > find( std::uint64_t id ) const;
   bool empty() const { return captures_.empty(); }

   // What one worker looks with. It lasts as long as this.
   PacketWatcher & eye( unsigned worker ) { return eyes_[ worker ]; }

 private:
   static constexpr std::uint64_t kOfHook = std::uint64_t( 1 ) << 63;
   Outcome add( std::unique_ptr< Capture > capture, double now, std::uint64_t kind, std::uint64_t & id );
   class Eye : public PacketWatcher {
    public:
      bool watches( const Module & module ) const override;
      void enters( const Module & module, GateId igate, Packets packets, double now ) override;
      void leaves( const Module & module, GateId ogate, Packets packets, double now ) override;
      vex::pb::TracePacketReply * trace( const Module & source, const Packet & packet, double now ) override;
      void traced( double now ) override;
      bool tracing( double now ) const override;

    private:
      friend class Captures;
      const auto & captures() const { return captures_->captures_; }
      const Captures * captures_ = nullptr;
      // Of the packet that is being traced.
      vex::pb::TracePacketReply trace_;
      std::string intfname_;
      std::vector< Capture * > tracers_;
   };

   std::map< std::uint64_t, std::shared_ptr< Capture > > captures_;
   std::uint64_t lastId_ = 0;
   PerWorker< Eye > eyes_;
};

} // namespace Vexdp
