// How a packet goes through the graph, module after module, until it is sent, handed to the router itself, or dropped.
#pragma once

#include "DpCounterTable.h"
#include "DpModule.h"
#include "DpPacket.h"

#include "vex/engine.pb.h"

#include <concepts>
#include <deque>
#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace Vexdp {

// What a module did with a packet. Modules get one from their Context, and from nowhere else.
class Fate {
 private:
   friend class Context;
   friend class Walk;
   enum class Kind : std::uint32_t { forwarded, punted, dropped, local, sent };
   bool goesOn() const { return kind_ == Kind::forwarded || kind_ == Kind::punted; }
   explicit Fate( Kind kind, GateId ogate = 0 ) : kind_( kind ), ogate_( ogate ) {}
   std::uint64_t word() const { return std::uint64_t( kind_ ) << 32 | ogate_; }
   Kind kind_;
   GateId ogate_;
};

// What a walk is for: to tell what would become of a described packet, to count it as well, or to carry it.
enum class Purpose : std::uint8_t { described, counted, live };

// What a module works with while it has a packet. Texts are formatted only when somebody reads them: the arguments of
// note(), drop() and punt() are to be cheap values.
class Context {
 public:
   // Punted packets leave by this gate.
   static constexpr GateId kTrapGate = 0;

   // The gate that it came in by.
   GateId igate() const { return igate_; }

   Fate forward( GateId ogate ) { return Fate( Fate::Kind::forwarded, ogate ); }

   // Hands it to the router itself: by way of the trap gate, or, where that leads nowhere, to the graph's trap.
   template < typename... Args >
   Fate punt( fmt::format_string< Args... > reason, Args &&... args ) {
      if ( trace_ != nullptr ) reasonIs( fmt::format( reason, std::forward< Args >( args )... ) );
      return Fate( Fate::Kind::punted, kTrapGate );
   }
   // The same for a module without a trap gate.
   template < typename... Args >
   Fate handUp( fmt::format_string< Args... > reason, Args &&... args ) {
      if ( trace_ != nullptr ) reasonIs( fmt::format( reason, std::forward< Args >( args )... ) );
      return Fate( Fate::Kind::punted, kNoGate );
   }

   template < typename... Args >
   Fate drop( CounterId counter, fmt::format_string< Args... > reason, Args &&... args ) {
      count( counter );
      const fmt::string_view format = reason;
      if ( counting() ) module_->tallies_[ seat_.worker ].countDrop( { format.data(), format.size() } );
      if ( trace_ != nullptr ) reasonIs( fmt::format( reason, std::forward< Args >( args )... ) );
      return Fate( Fate::Kind::dropped );
   }

   // The end of the way: it is the router's, for the reason that it was punted for.
   Fate deliver() { return Fate( Fate::Kind::local ); }
   // The same for a reason of its own.
   template < typename... Args >
   Fate deliver( fmt::format_string< Args... > reason, Args &&... args ) {
      if ( trace_ != nullptr ) reasonIs( fmt::format( reason, std::forward< Args >( args )... ) );
      return Fate( Fate::Kind::local );
   }
   // The end of the way: it left by the interface.
   Fate send( std::string_view intfname, const MacAddr & mac );

   // Whether a note is read: for those whose parts cost something.
   bool noting() const { return trace_ != nullptr && step_ != nullptr; }
   // Says what the module is doing; several notes make one sentence.
   template < typename... Args >
   void note( fmt::format_string< Args... > text, Args &&... args ) {
      if ( noting() ) noteIs( fmt::format( text, std::forward< Args >( args )... ) );
   }

   void count( CounterId counter ) {
      if ( counting() ) counters_->add( counter );
   }

   // True when what happens to the packet is to stay: counts, sequence numbers.
   bool counting() const { return purpose_ != Purpose::described; }
   // Who walks the packet: where it is shared, another worker may be at the same module.
   const Seat & seat() const { return seat_; }
   // True when it is a packet that a device brought, and that is to leave by one.
   bool live() const { return purpose_ == Purpose::live; }
   // Seconds since 1970.
   double now() const { return now_; }

   // One more packet that the module made of this one. It leaves by the gate, right behind this one.
   void also( Packet && packet, GateId ogate );

   // What Module::processAll() does: asks for the fate of each of the packets, in their order.
   template < typename Process >
   void each( Packets packets, Process && process ) {
      for ( at_ = 0; at_ < packets.size(); ++at_ ) fates_[ at_ ] = process( *packets[ at_ ] );
   }
   // By the process() of the module's class itself.
   template < std::derived_from< Module > M >
   void each( Packets packets, M & module ) {
      each( packets, [ & ]( Packet & packet ) { return module.M::process( packet, *this ); } );
   }

 private:
   friend class Walk;
   struct Made {
      std::size_t behind; // which packet at the module
      Packet packet;
      GateId ogate;
   };
   Context( CounterTable & counters, Purpose purpose, const Seat & seat );

   void readClock();
   void reasonIs( std::string reason );
   void noteIs( std::string_view text );

   CounterTable::Writer * counters_;
   Purpose purpose_;
   const Seat seat_;
   double now_ = 0;
   vex::pb::TracePacketReply * trace_ = nullptr;
   vex::pb::TracePacketReply::Step * step_ = nullptr;
   Module * module_ = nullptr; // at hand
   GateId igate_ = 0;
   std::size_t at_ = 0;        // which packet at the module
   std::vector< Fate > fates_; // of the packets at the module, with room for all
   std::vector< Made > also_;  // of them
   std::size_t room_ = 0;      // for so many more
};

// Looks at packets on their way, on the worker's thread, and leaves them as they are.
class PacketWatcher {
 public:
   virtual ~PacketWatcher() = default;
   // Whether enters() or leaves() do anything there: asked once for all that is at the module together.
   virtual bool watches( const Module & module ) const = 0;
   virtual void enters( const Module & module, GateId igate, Packets packets, double now ) = 0;
   virtual void leaves( const Module & module, GateId ogate, Packets packets, double now ) = 0;
   // Where the way of a packet that begins there is to be written; null: nowhere.
   virtual vex::pb::TracePacketReply * trace( const Module & source, const Packet & packet, double now ) = 0;
   // The trace is complete.
   virtual void traced( double now ) = 0;
   // trace() may say so of one.
   virtual bool tracing( double now ) const = 0;
};

// Runs bursts of packets from a source on. What is at one module goes through it together, in the order of the burst,
// so that a module can have fetched what it needs for all before it looks at the first, and what all of them do is done
// once. Packets that part go on in groups of their own, and those of one flow, which go the same way, keep their order.
// What a module makes of a packet goes right behind it.
//
// Gates and counters move only when the walk counts: for packets that a device brought, and for a described one on
// demand. The clock is read once for each burst.
class Walk {
 public:
   // A packet that passes more modules is in a loop.
   static constexpr unsigned kMaxHops = 128;
   // One packet becomes at most so many more; beyond them they are dropped.
   static constexpr unsigned kMaxMade = 4096;

   // By one thread at a time, and by one of a seat.
   Walk( CounterTable & counters, Purpose purpose, const Seat & seat = {} );

   void run( Module & source, std::span< Packet > burst );
   // Where it counts from here on.
   void countersAre( CounterTable & counters ) { context_.counters_ = &counters.writer( context_.seat_.worker ); }
   // Null: nobody looks. It outlives the walk, or is taken back.
   void watcherIs( PacketWatcher * watcher ) { watcher_ = watcher; }
   // Whether a trace of a single packet has steps, as it does at first, or its end alone.
   void stepsAre( bool steps ) { steps_ = steps; }
   // The trace, when there is one, gets the steps and the end of the packet itself; what is made of it beside goes its
   // way untraced.
   void run( Module & source, Packet packet, vex::pb::TracePacketReply * trace = nullptr );

 private:
   // Packets on their way to a module, which have passed as many.
   struct Group {
      Module * to = nullptr;
      GateId igate = 0;
      unsigned hops = 0;
      std::vector< Packet * > packets;
   };
   using GroupPtr = std::unique_ptr< Group >;

   void walk( Module & source, std::span< Packet > burst );
   void runWatched( Module & source, std::span< Packet > burst );
   GroupPtr takeGroup();
   GroupPtr newGroup();
   void visit( GroupPtr group );
   // Whether one fate is that of all, and none made others.
   bool shareFate( std::size_t count ) const;
   void goOnTogether( GroupPtr group );
   void goOnApart( const Group & group );
   void goOnTraced( const Group & group );
   Fate processTraced( Module & module, Packet & packet );
   // From the module that it was at.
   void goOn( const Group & from, Fate fate, Packet & packet );
   void makeGoOn( const Group & from, Context::Made & made );
   void traceIs( const Packet & packet );
   // Where a fate leads.
   struct Way {
      Module * to; // null: nowhere
      GateId igate;
      const OGate * gate = nullptr;      // null: by none
      GateCounters * counters = nullptr; // of the gate
   };
   Way wayOf( const Group & from, Fate fate ) const;
   // Those who are on the way there, having passed as many modules; null: nobody.
   Group * onWay( const Way & way, unsigned hops ) const;
   void countOn( const Way & way, Packets packets );
   void countCrossed();
   void end( Module & module, Fate fate, const Packet & packet );
   template < typename... Args >
   void lose( Module & module, const Packet & packet, fmt::format_string< Args... > why, Args &&... args );

   Context context_;
   std::vector< GroupPtr > waiting_; // in the order in which they go on
   std::vector< GroupPtr > free_;
   std::deque< Packet > made_;        // on the way
   const OGate * gate_ = nullptr;     // the last that a packet left by
   GateCounters * gateOut_ = nullptr; // its own
   std::uint64_t crossed_ = 0;        // packets there that aren't counted yet
   std::uint64_t bytes_ = 0;
   PacketWatcher * watcher_ = nullptr;
   bool watched_ = false; // the module at hand is
   vex::pb::TracePacketReply * trace_ = nullptr;
   const Packet * traced_ = nullptr;
   bool steps_ = true;
};

} // namespace Vexdp
