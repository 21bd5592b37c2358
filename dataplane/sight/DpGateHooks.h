// Gate hooks: what looks at the packets of modules' gates. Track counts, on every gate that is connected, always;
// TcpDump and PcapNg write a capture into a fifo.
#pragma once

#include "DpCaptures.h"
#include "DpFifoWriter.h"
#include "DpGraph.h"

#include "bess/control.pb.h"

namespace Vexdp {

// All but the listings of classes are called while the workers are held. A writer that ends is handed to the caller,
// who lets it go when nothing waits for that: its thread is joined.
class GateHooks {
 public:
   using Ended = std::vector< std::unique_ptr< FifoWriter > >;
   static void listClasses( bess::pb::ListGateHookClassResponse & response );
   // ENOENT: there is no such class.
   static Outcome describeClass( const std::string & name, bess::pb::GetGateHookClassInfoResponse & response );

   // ENOENT: no such class, module, hook, or fifo. EEXIST: the hook is there. EOPNOTSUPP: Track stays. Others are
   // those of Captures::begin.
   Outcome configure( const bess::pb::ConfigureGateHookRequest & request, const Graph & graph, Captures & captures,
                      double now, std::string & name, Ended & ended );
   // Track's "reset": gates count from 0 again. ENOENT: no such module or gate. EOPNOTSUPP: no such command.
   static Outcome command( const bess::pb::GateHookInfo & hook, const std::string & command, const Graph & graph );
   void list( const Graph & graph, bess::pb::ListGateHooksResponse & response ) const;
   // The hooks of one module, on the gates that it is described with.
   void addTo( bess::pb::GetModuleInfoResponse & response ) const;
   // Ends all.
   void clear( Captures & captures, Ended & ended );
   // Those whose reader or module has gone end.
   void expire( const Graph & graph, Captures & captures, Ended & ended );

 private:
   struct Dump {
      bess::pb::GateHookInfo info;
      std::uint64_t capture;
      std::unique_ptr< FifoWriter > writer;
   };
   Outcome begin( const bess::pb::GateHookInfo & info, Captures & captures, double now, std::string & name );

   std::map< std::string, Dump > dumps_; // by name
   unsigned generated_ = 0;
};

} // namespace Vexdp
