// TunnelIngress: the ends of the router's tunnels. What came in for one goes on as a packet of the tunnel interface.
//
//   in     any gate     IPv4 packets to the router: GRE, or what an IPsec association has opened
//   out    0            to the trap: GRE that is for no tunnel, as it came
//          others       to the tunnel interfaces, what their packets held
//   drops  GRE that is no good (RFC 2784, RFC 2890); what an association has opened and is for no tunnel of its
//          connection; congestion on the way of what has no ECN (RFC 6040)
//
// A tunnel takes what its connection has protected, and nothing else; one without a connection what nobody has.
#pragma once

#include "DpIpv4.h"
#include "DpModule.h"

#include "bess/control.pb.h"
#include "vex/ip.pb.h"

#include <absl/container/flat_hash_map.h>

#include <map>
#include <tuple>

namespace Vexdp {

class TunnelIngress : public Module {
 public:
   static const ModuleClass & moduleClass();
   static Outcome check( const bess::pb::EmptyArg & ) { return {}; }
   TunnelIngress( Identity identity, const bess::pb::EmptyArg & ) : Module( std::move( identity ) ) {}

   // EEXIST: the gate has a tunnel, or another one has the same ends, key and connection.
   Outcome addTunnel( const vex::pb::TunnelEndArg & arg );
   // ENOENT: the gate has none.
   Outcome delTunnel( const vex::pb::TunnelEndArg & arg );

   // Whether a tunnel with GRE, whatever its key, has the ends.
   bool greEnd( std::uint32_t vrf, Ipv4Addr local, Ipv4Addr remote ) const {
      return ends_.contains( { vrf, local.value, remote.value } );
   }

   Fate process( Packet & packet, Context & context ) override;
   void processAll( Packets packets, Context & context ) override;
   CommandSource commands() const override;
   std::string desc() const override;

 private:
   // What a packet says of the tunnel that it came by.
   struct GreEnd {
      std::uint32_t vrf = 0;
      Ipv4Addr local;
      Ipv4Addr remote;
      std::uint32_t key = 0;
      std::uint32_t encapId = 0;
      friend bool operator==( const GreEnd &, const GreEnd & ) = default;
      template < class H >
      friend H AbslHashValue( H state, const GreEnd & end ) {
         const auto both = []( std::uint64_t high, std::uint32_t low ) { return high << 32 | low; };
         return H::combine( std::move( state ), both( end.local.value, end.remote.value ), both( end.vrf, end.encapId ),
                            end.key );
      }
   };
   using BareEnd = std::pair< std::uint32_t, std::uint32_t >; // VRF, connection

   // The tunnel that was found last: packets of one burst mostly are of one.
   struct Found {
      GreEnd end;
      const GateId * gate = nullptr;
   };

   static GreEnd greEndOf( const vex::pb::TunnelEndArg & arg );
   Fate process( Packet & packet, Context & context, Found & found );
   Fate openGre( const Ipv4Header & outer, Packet & packet, Context & context, Found & found );
   // Null: there is none.
   const GateId * gateOf( const GreEnd & end, Found & found ) const;
   // Neither for a tunnel nor for the router when an association has opened it.
   static Fate noTunnel( Packet & packet, Context & context );
   static Fate enter( GateId gate, Packet & packet, Context & context );

   std::map< GateId, vex::pb::TunnelEndArg > tunnels_;
   absl::flat_hash_map< GreEnd, GateId > gre_;
   absl::flat_hash_map< BareEnd, GateId > bare_;
   absl::flat_hash_map< std::tuple< std::uint32_t, std::uint32_t, std::uint32_t >, unsigned > ends_; // of GRE
};

} // namespace Vexdp
