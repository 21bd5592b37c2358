// A module of the graph: a packet processor with numbered gates, driven by commands. What stands behind is not its own.
#pragma once

#include "DpPerWorker.h"
#include "DpRefusal.h"
#include "DpTypes.h"

#include <absl/container/flat_hash_set.h>
#include <google/protobuf/any.pb.h>

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Vexdp {

class Context;
class Fate;
class Graph;
class Module;
class Packet;
struct ModuleClass;

// Packets that are at a module together.
using Packets = std::span< Packet * const >;

struct GateCounters {
   std::uint64_t batches = 0;
   std::uint64_t packets = 0;
   std::uint64_t bytes = 0;
   double timestamp = 0; // of the last packet, seconds since 1970

   GateCounters & operator+=( const GateCounters & other );
};

// An output gate feeds one input gate.
struct OGate {
   Module * peer = nullptr; // null: not connected
   GateId igate = 0;        // of the peer
};

// Takes the commands that would bring a new module to the state of another, in order.
class CommandSink {
 public:
   virtual ~CommandSink() = default;
   virtual void command( std::string_view cmd, const google::protobuf::Message & arg ) = 0;
};
// Tells those commands. It owns a copy of the state that it tells: it runs while the module changes or is gone.
using CommandSource = std::function< void( CommandSink & ) >;

// Derived classes keep the state of their class and offer commands, each a member function that takes the command's
// message and returns an Outcome (see DpModuleClass.h). A command that is refused has changed nothing.
class Module {
 public:
   struct Identity {
      std::string name;
      const ModuleClass & mclass;
      const Graph & graph; // that it will be in
   };

   explicit Module( Identity identity );
   virtual ~Module() = default;
   Module( const Module & ) = delete;
   Module & operator=( const Module & ) = delete;

   // Matches and rewrites the packet, and says what becomes of it. The packet can hold any bytes whatever.
   virtual Fate process( Packet & packet, Context & context ) = 0;
   // The same for packets that are at the module together, in that order, by Context::each(). A module overrides it
   // that most packets pass: so that nothing virtual is called for each of them, or because it can have what all of
   // them need of large tables on its way before the first waits for it.
   virtual void processAll( Packets packets, Context & context );
   // Whether it would hand the packet to the router itself.
   virtual bool punts( const Packet & ) const { return false; }
   // The gate by which packets leave as they came, of a module that does no more than let them pass.
   virtual std::optional< GateId > passGate() const { return std::nullopt; }
   // The interface whose port it is; empty: it is none's.
   virtual std::string_view intfname() const { return {}; }
   // The commands in effect, beyond what the init message says. Calling it is quick; what it returns may be slow.
   virtual CommandSource commands() const {
      return []( CommandSink & ) {};
   }
   // A few words on what it holds, for listings.
   virtual std::string desc() const { return {}; }

   const std::string & name() const { return name_; }
   const ModuleClass & mclass() const { return mclass_; }

   // The init message as it was given, if it was.
   const std::optional< google::protobuf::Any > & initArg() const { return initArg_; }
   void initArgIs( const google::protobuf::Any & arg ) { initArg_ = arg; }

   // Gates up to the highest that was ever used. Connections are made by the graph.
   const std::vector< OGate > & ogates() const { return ogates_; }
   std::size_t igates() const { return igates_; }
   // Output gates of other modules that lead here.
   const absl::flat_hash_set< std::pair< Module *, GateId > > & upstream() const { return upstream_; }
   // Packets that were dropped here, or left by a gate that leads nowhere, by the format of the reason.
   struct DropCount {
      std::string_view reason;
      std::uint64_t packets;
   };
   // What all workers have counted. REQUIRES: they are held, as for resetCounters()
   std::vector< DropCount > drops() const;
   std::uint64_t deadEnds() const;
   // Of a gate that there is.
   GateCounters counters( bool out, GateId gate ) const;
   // Of a gate of either side; nothing: of all. False: there is no such gate.
   bool resetCounters( bool out, std::optional< GateId > gate );

 protected:
   // Whether a packet that leaves by the gate is handed to the router itself before anything is changed in it.
   bool puntedBehind( GateId ogate, const Packet & packet ) const;
   // To find the module of a shared class. Not while it is made or destroyed.
   const Graph & graph() const { return graph_; }

 private:
   friend class Context;
   friend class Graph;
   friend class Walk;

   // What one worker has counted here.
   struct Tally {
      // As many as there are gates.
      OwnVector< GateCounters > out;
      OwnVector< GateCounters > in;
      OwnVector< DropCount > drops; // one for each place that drops

      // `reason` is a literal.
      void countDrop( std::string_view reason );
   };

   void growTo( bool out, GateId gate );

   std::string name_;
   const ModuleClass & mclass_;
   const Graph & graph_;
   std::optional< google::protobuf::Any > initArg_;
   std::vector< OGate > ogates_;
   std::size_t igates_ = 0;
   absl::flat_hash_set< std::pair< Module *, GateId > > upstream_;
   PerWorker< Tally > tallies_;
};

} // namespace Vexdp
