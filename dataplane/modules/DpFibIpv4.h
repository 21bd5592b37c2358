// FibIpv4: the IPv4 forwarding table.
//
// Routes, by VRF, name a FEC; a FEC lists members, each an output gate and an index in the next-hop or resolve module
// behind it. One member, chosen by the packet's flow, takes the packet.
//
//   in     any gate     IPv4 packets, with their VRF
//   out    0            to what handles packets for the router itself
//          others       as the members say
//   drops  no VRF or no route, no such FEC (each under its counter), a FEC without members, a member without a gate
//
// A martian, and a unicast packet that came in by a link-layer broadcast, goes no further than to the router itself.
//
// A route may name a FEC that doesn't exist yet or no more. FECs are shared by the VRFs. Deleting a VRF deletes its
// routes.
#pragma once

#include "DpCounterIds.h"
#include "DpGraph.h"
#include "DpIpv4.h"
#include "DpLpm.h"
#include "DpModule.h"

#include "vex/engine.pb.h"
#include "vex/fib_ipv4.pb.h"

#include <absl/container/flat_hash_map.h>
#include <absl/container/inlined_vector.h>

#include <memory>
#include <optional>
#include <vector>

namespace Vexdp {

class FibIpv4 : public Module {
 public:
   static_assert( std::size_t( 2 ) * Limits::kMostRoutes <= LpmPool::kMaxLines );
   // Every VRF costs a quarter of a megabyte of address space.
   static constexpr std::size_t kMaxVrfs = 4096;

   struct Member {
      GateId gate;                            // kNoGate: none
      std::optional< std::uint32_t > nhIndex; // absent where nothing behind the gate looks at it
   };
   using Fec = absl::InlinedVector< Member, 4 >;

   static const ModuleClass & moduleClass();
   // `max_rules` is what the sender wants held at least; the table holds what the data plane's limit says, and a limit
   // below it is a line in the log. `max_tbl8s` sizes nothing here: blocks come as they are needed.
   static Outcome check( const vex::pb::FibIpv4Arg & init );
   FibIpv4( Identity identity, const vex::pb::FibIpv4Arg & init );

   // EEXIST: the VRF is there. ENOSPC: kMaxVrfs of them are.
   Outcome addVrf( const vex::pb::FibIpv4VrfArg & arg );
   Outcome delVrf( const vex::pb::FibIpv4VrfArg & arg );
   // Adds or replaces. ENOENT: no such VRF. ENOSPC: as many routes as it holds are there, or FECs.
   Outcome addRoute( const vex::pb::FibIpv4RouteArg & arg );
   Outcome delRoute( const vex::pb::FibIpv4RouteArg & arg );
   // Adds or replaces. ENOSPC: as many FECs as it holds are there.
   Outcome addFec( const vex::pb::FibIpv4FecArg & arg );
   Outcome delFec( const vex::pb::FibIpv4FecArg & arg );
   Outcome setCounterIds( const vex::pb::FibIpv4CounterIdArg & arg ) { return counters_.set( arg ); }
   // Routes by address and length; the FECs that they name, ascending.
   Outcome showFib( const vex::pb::FibIpv4ShowArg & arg, vex::pb::FibIpv4ReadFibResp & resp ) const;

   Fate process( Packet & packet, Context & context ) override;
   void processAll( Packets packets, Context & context ) override;
   CommandSource commands() const override;
   std::string desc() const override;

   // The longest match, or with a length that very prefix. Refused as a command would be: no such VRF, not a prefix.
   Outcome lookup( const vex::pb::LookupRequest & request, vex::pb::LookupReply & reply ) const;
   // Null when there is none.
   const Fec * fec( std::uint32_t id ) const;

 private:
   struct Snapshot;
   // The route is to be added, replaced or deleted soon.
   void expect( const vex::pb::FibIpv4RouteArg & arg ) const;
   using Slot = std::uint32_t;
   // Where a FEC has its place as long as it is there or a route names it: routes have the number of the place.
   struct Place {
      Fec fec;
      std::uint32_t id = 0;
      std::uint32_t routes : 31 = 0; // that name it
      std::uint32_t there : 1 = 0;
   };

   Lpm * table( std::uint32_t vrf ) const;
   // Of the FEC; a new one if it has none. Nothing: as many as it holds are there.
   std::optional< Slot > slotOf( std::uint32_t id );
   void routeGone( Slot slot );
   void freeUnused( Slot slot );
   Fate processMatch( Lpm::Match match, const Ipv4Header & header, Packet & packet, Context & context ) const;
   static Fate forwardBy( const Fec & fec, std::uint32_t id, const Ipv4Header & header, Packet & packet,
                          Context & context );

   const std::uint32_t maxRoutes_;
   LpmPool pool_;
   absl::flat_hash_map< std::uint32_t, std::unique_ptr< Lpm > > vrfs_;
   std::vector< Place > places_;
   std::vector< Slot > freeSlots_;
   absl::flat_hash_map< std::uint32_t, Slot > slots_;
   std::size_t routes_ = 0; // of all VRFs
   std::size_t fecs_ = 0;
   CounterIds counters_;
};

} // namespace Vexdp
