// The state of a graph as the requests that would rebuild it: first the modules, then the connections, then, module by
// module, the commands; modules in the order of their names, but for the commands of those that others refer to, which
// are first. Key material is left out: what needs a key is told, and not rebuilt.
#pragma once

#include "DpGraph.h"

#include "vex/engine.pb.h"

#include <functional>
#include <vector>

namespace Vexdp {

// A copy of the state, taken in one piece and told at leisure.
class Dump {
 public:
   // A batch of the dump holds at most so many requests.
   static constexpr std::size_t kBatchSize = 4096;

   // `number` is that of the last batch that was applied. With names, only these modules and their output gates.
   Dump( const Graph & graph, std::uint64_t number, const google::protobuf::RepeatedPtrField< std::string > & names );

   // Hands out the batches, of which there is at least one, until `write` returns false. A batch is gone after its
   // call.
   void tell( const std::function< bool( const vex::pb::Batch & ) > & write ) const;

 private:
   void add( const Module & module );

   struct Commands {
      std::string module;
      bool shared;
      CommandSource tell;
   };

   std::uint64_t number_;
   std::vector< bess::pb::CreateModuleRequest > modules_;
   std::vector< bess::pb::ConnectModulesRequest > connections_;
   std::vector< Commands > commands_;
};

} // namespace Vexdp
