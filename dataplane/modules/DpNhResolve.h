// NhResolve: the step from a tunnel to the interface under it. An entry maps the packet's index to an output gate and
// to the index in the next-hop module behind that gate.
//
//   in     0            packets with their outer header, and the index
//   out    any gate     as the entry says
//   drops  index 0, which is reserved; no such entry; an entry without a gate
#pragma once

#include "DpModule.h"

#include "vex/next_hop.pb.h"

#include <optional>
#include <vector>

namespace Vexdp {

class NhResolve : public Module {
 public:
   // When the init message says 0 or nothing.
   static constexpr std::uint32_t kDefaultEntries = 1024;
   static constexpr std::uint32_t kMaxEntries = 1u << 20;

   static const ModuleClass & moduleClass();
   static Outcome check( const vex::pb::NhResolveArg & init );
   NhResolve( Identity identity, const vex::pb::NhResolveArg & init );

   // Adds or replaces. EINVAL: the index is 0. ERANGE: the table doesn't have the index, or the module the gate; all
   // ones is a gate, and means none.
   Outcome addEntry( const vex::pb::NhResolveEntryInfoArg & arg );
   Outcome deleteEntry( const vex::pb::NhResolveEntryInfoArg & arg );

   Fate process( Packet & packet, Context & context ) override;
   void processAll( Packets packets, Context & context ) override;
   CommandSource commands() const override;
   std::string desc() const override;

 private:
   struct Entry {
      GateId ogate;
      std::uint32_t nhIndex;
   };
   using Entries = std::vector< std::optional< Entry > >;

   const Entry * entry( std::uint32_t index ) const;

   const std::uint32_t maxEntries_;
   Entries entries_; // up to the highest index that was written
   std::size_t used_ = 0;
};

} // namespace Vexdp
