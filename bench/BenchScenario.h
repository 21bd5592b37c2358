// The work that is measured, and the ways in which it reaches the data plane.
#pragma once

#include "BenchChannels.h"
#include "BenchReport.h"
#include "BenchRouter.h"

#include <map>
#include <optional>
#include <vector>

namespace Bench {

struct Sizes {
   std::size_t routes = 1000000;
   std::size_t adjacencyChanges = 10000;
   std::size_t loneChanges = 2000;
   std::size_t operations( Phase phase ) const;
};

// The prefixes in the order in which they are added. What follows takes them in another order where they are shuffled,
// so that it does not find them in the order of memory.
class Order {
 public:
   Order( std::size_t routes, bool sorted );
   bool sorted() const { return sorted_; }
   const std::vector< Kynet::Prefix > & prefixes() const { return prefixes_; }
   // The position in prefixes() of what comes at `index` in the phase.
   std::size_t at( Phase phase, std::size_t index ) const;

 private:
   bool sorted_;
   std::vector< Kynet::Prefix > prefixes_;
   std::vector< U32 > shuffled_;
};

// One way to do the work: step() does the operations from `begin` to `end` of a phase. Phases come in their order, and
// operations in theirs.
class Doer {
 public:
   virtual ~Doer() = default;
   virtual void step( Phase phase, std::size_t begin, std::size_t end ) = 0;
   virtual Vex::Channel & channel() = 0;
};

// Calls the agent's helpers, as the hardware-abstraction layer does.
class HelperDoer : public Doer {
 public:
   HelperDoer( const Order & order, const Gant::Ptr< Vex::Channel > & channel );
   ~HelperDoer() override;
   void step( Phase phase, std::size_t begin, std::size_t end ) override;
   Vex::Channel & channel() override { return *router_.channel; }
   // Of the route at each position.
   const std::vector< U8 > & adjacencyOf() const { return adjacencyOf_; }

 private:
   struct Adjacency {
      Gant::Ptr< Hul::L2Adjacency > adjacency;
      Hul::NextHopCollection spare;
   };
   void route( std::size_t position, U64 from, U64 to );
   void change( U32 adjacency );

   const Order & order_;
   RouterState state_;
   Router router_;
   std::vector< Adjacency > adjacencies_;
   std::vector< U8 > adjacencyOf_;
   U64 sequence_ = 0;
};

// Writes the state, and leaves the rest to the layer and the agent.
class FedDoer : public Doer {
 public:
   FedDoer( const Order & order, const Gant::Ptr< Vex::Channel > & channel );
   void step( Phase phase, std::size_t begin, std::size_t end ) override;
   Vex::Channel & channel() override { return *router_->channel; }
   // Of the route at each position.
   const std::vector< U8 > & adjacencyOf() const { return adjacencyOf_; }

   // The data plane is another one now: a new agent over the state as it is.
   void restart( const Gant::Ptr< Vex::Channel > & channel );

 private:
   void change( U32 adjacency );
   void route( std::size_t position, U32 adjacency );

   const Order & order_;
   RouterState state_;
   std::optional< Router > router_;
   std::vector< U8 > adjacencyOf_;
   std::vector< bool > other_;
};

// The requests of a HelperDoer, and where those of each operation begin.
class Recording {
 public:
   Recording( const Order & order, const Sizes & sizes );
   void repeat( Phase phase, std::size_t begin, std::size_t end, Vex::Channel & channel,
                Vex::Channel::OriginId origin ) const;
   // Those before the first phase: the interfaces' modules and the adjacencies.
   void repeatPreparation( Vex::Channel & channel, Vex::Channel::OriginId origin ) const;

 private:
   void repeat( std::size_t begin, std::size_t end, Vex::Channel & channel, Vex::Channel::OriginId origin ) const;

   Gant::Ptr< KeepingChannel > kept_ = Gant::make< KeepingChannel >();
   std::map< Phase, std::vector< U32 > > begins_; // of each operation, and the end of the last one
   std::size_t preparation_ = 0;
};

// Makes the recorded requests again, without an agent.
class FloorDoer : public Doer, private Vex::Channel::Origin {
 public:
   FloorDoer( const Recording & recording, const Gant::Ptr< Vex::Channel > & channel );
   ~FloorDoer() override;
   void step( Phase phase, std::size_t begin, std::size_t end ) override;
   Vex::Channel & channel() override { return *channel_; }

 private:
   void response( const google::protobuf::Any & ) override {}
   void refused( const Vex::Refusal & ) override {}
   bool wantsRefusals() const override { return false; }

   const Recording & recording_;
   Gant::Ptr< Vex::Channel > channel_;
   Vex::Channel::OriginId origin_;
};

// Does the phase, as much in each turn of the loop as a host would, until everything is acknowledged.
void runPhase( Doer & doer, Phase phase, std::size_t operations );

} // namespace Bench
