// The graph that packets go through, and at times a second one that a session makes beside it, to follow it.
#pragma once

#include "DpGraph.h"
#include "DpRequests.h"

#include <memory>
#include <thread>

namespace Vexdp {

// Every graph is freed by a thread of its own, so that nobody waits for the end of a million routes: but there are two
// at most, and a further one waits until there is room.
class Graphs {
 public:
   // A graph, with the requests that make it.
   struct Told {
      Told( const Limits & limits, const std::shared_ptr< Surroundings > & surroundings, Side side ) :
           graph( limits, surroundings, side ) {}
      Graph graph;
      Requests requests{ graph };
   };

   Graphs( const Limits & limits, unsigned workers ) :
        limits_( limits ), surroundings_( std::make_shared< Surroundings >( workers ) ), live_( made( 0 ) ) {}
   ~Graphs() { awaitFreed(); }
   Graphs( const Graphs & ) = delete;
   Graphs & operator=( const Graphs & ) = delete;

   Surroundings & surroundings() { return *surroundings_; }

   // Packets go through it.
   Graph & live() { return live_->graph; }
   // What requests are about: the second one while it is there.
   const Graph & told() const { return tell().graph; }
   Requests & requests() { return tell().requests; }
   const Requests & requests() const { return tell().requests; }
   bool beside() const { return second_ != nullptr; }

   // An empty second one. REQUIRES: !beside()
   void begin();
   // The second one goes, if there is one.
   void drop();
   // The second one is the one from here on; the other one is for free(). REQUIRES: beside(), and the workers are held
   std::unique_ptr< Told > follow();
   // No worker knows it any more.
   void free( std::unique_ptr< Told > gone );
   // No modules. REQUIRES: the workers are held
   void clear();

 private:
   std::unique_ptr< Told > made( Side side ) const { return std::make_unique< Told >( limits_, surroundings_, side ); }
   Told & tell() const { return second_ ? *second_ : *live_; }
   void awaitFreed() {
      if ( freeing_.joinable() ) freeing_.join();
   }

   const Limits limits_;
   const std::shared_ptr< Surroundings > surroundings_;
   std::unique_ptr< Told > live_;
   std::unique_ptr< Told > second_;
   std::thread freeing_;
};

} // namespace Vexdp
