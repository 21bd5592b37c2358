// NextHop: the last step on an Ethernet interface, which puts the Ethernet header on.
//
//   in     any gate     IPv4 packets, with their next-hop index
//   out    0            to the trap: the entry says so, or the TTL ends here
//          1            frames, to the interface
//   drops  no such entry, an entry without a MAC, an entry that says so, an entry whose command is none, no source MAC
//
// Here the TTL loses this router's hop: what is for the router itself passes here too, and keeps its TTL, as do the
// router's own packets and those that a tunnel has seen to.
#pragma once

#include "DpCounterIds.h"
#include "DpModule.h"

#include "vex/next_hop.pb.h"

#include <optional>
#include <vector>

namespace Vexdp {

class NextHop : public Module {
 public:
   // When the init message doesn't say.
   static constexpr std::uint32_t kDefaultNexthops = 16384;
   static constexpr std::uint32_t kMaxNexthops = 1u << 20;

   static const ModuleClass & moduleClass();
   static Outcome check( const vex::pb::NextHopInitArg & init );
   NextHop( Identity identity, const vex::pb::NextHopInitArg & init );

   Outcome setSrcMacAddr( const vex::pb::EthernetConfigArg & arg );
   // Adds or replaces; all of the entries or, when one is refused, none. Any `pkt_cmd` is taken. ERANGE: an index that
   // the table doesn't have.
   Outcome writeNh( const vex::pb::NextHopWriteNHArg & arg );
   // All or none. An entry that is not there is no error: a next hop may get its number before its table is made, and
   // is deleted from it all the same. ERANGE: an index that the table doesn't have.
   Outcome deleteNh( const vex::pb::NextHopWriteNHArg & arg );
   Outcome setCounterIds( const vex::pb::NextHopCounterIdArg & arg ) { return counters_.set( arg ); }
   // By index.
   Outcome showNh( const vex::pb::NextHopShowArg & arg, vex::pb::NextHopReadNHResp & resp ) const;

   Fate process( Packet & packet, Context & context ) override;
   void processAll( Packets packets, Context & context ) override;
   bool punts( const Packet & packet ) const override;
   CommandSource commands() const override;
   std::string desc() const override;

 private:
   struct Entry {
      std::optional< MacAddr > mac;
      std::int32_t pktCmd = 0;
   };
   using Entries = std::vector< std::optional< Entry > >;

   const Entry * entry( std::uint32_t index ) const;
   Fate forwardTo( const Entry & entry, Packet & packet, Context & context );

   const std::uint32_t maxNexthops_;
   const std::optional< std::uint64_t > intfId_;
   Entries entries_; // up to the highest index that was written
   std::size_t used_ = 0;
   std::optional< MacAddr > srcMac_;
   CounterIds counters_;
};

} // namespace Vexdp
