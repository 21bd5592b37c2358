// What becomes of a packet by what the router is told: FIB, FECs, neighbours, lists, policies and tunnels, as they
// stand in the state tree and its books.
//
// It shares no code with the agent and the layer above it: what both would get wrong alike, it could not find.
#pragma once

#include "HostRouterState.h"

#include <compare>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Host {

struct FatePacket {
   static constexpr U8 icmp = 1, tcp = 6, udp = 17;
   U32 src = 0, dst = 0;
   U8 proto = 17;
   U16 sport = 0, dport = 0;
   U8 ttl = 64, dscp = 0;
   U16 length = 0; // IPv4 total length, bytes; 0: as long as the headers
   U8 tcpFlags = 0;
   U8 icmpType = 0, icmpCode = 0;
   // Bytes of the IPv4 packet.
   U32 size() const;
};
// "198.18.0.1 to 10.0.0.1, udp port 7"
std::string inWords( const FatePacket & packet );

struct PacketFate {
   enum class Kind { dropped, denied, local, sent };
   Kind kind = Kind::dropped;
   // Of a sent one.
   Kynet::IntfId intfId{};
   Kynet::EthAddr mac{};
   std::optional< U8 > dscp{}; // nothing: whatever it is
   std::optional< U8 > trafficClass{};
   friend auto operator<=>( const PacketFate &, const PacketFate & ) = default;
};
std::string inWords( const PacketFate & fate );

// What a packet meets on its way, in one of the ways that it may go.
struct FateMet {
   enum class Kind { listIn, listOut, policy, tunnel };
   Kind kind;
   Kynet::IntfId intfId;
   U32 sequence = 0;     // of a list's rule; 0: the deny that ends it
   const void * of = {}; // of a policy, the Qos::PolicyClass
   friend bool operator==( const FateMet &, const FateMet & ) = default;
};

class FateModel {
 public:
   explicit FateModel( const RouterState & state ) : state_( state ), intfs_( state.intfBook().intfs() ) {}

   // All that it may come to, in order: a flow takes one of a route's ways. `met` gets what it meets.
   std::vector< PacketFate > fates( Kynet::IntfId in, FatePacket packet, std::vector< FateMet > * met = nullptr ) const;

   // The rule that decides: an entry's sequence number, or 0 where none matches. Null: there is no such list.
   const AclFact * list( const Gant::String & name ) const;
   static U32 ruleOf( const AclFact & list, const FatePacket & packet );
   static bool matches( const Acl::IpFilter & filter, const FatePacket & packet );
   // Whether each packet that meets the second one meets the first one as well. False where that isn't sure.
   static bool covers( const Acl::IpFilter & first, const Acl::IpFilter & second );
   // The VRF's number.
   U32 vrfOf( const IntfFact & fact ) const { return state_.vrfBook().id( fact.vrf ).value_or( 0 ); }
   const IntfFact * intf( Kynet::IntfId intfId ) const;
   // There, and not disabled.
   bool isUp( Kynet::IntfId intfId ) const;
   const RouterState & state() const { return state_; }

 private:
   struct Way; // a packet on its way
   void routed( U32 vrf, Way & way ) const;
   void forwarded( const Mirel::Via & via, Way & way ) const;
   void tunnelled( const IntfFact & tunnel, Way & way ) const;
   void toNeighbor( Kynet::IntfId intfId, const Kynet::IpGenAddr & addr, const Way & outer, Way & way ) const;
   void toRouter( Kynet::IntfId intfId, Way & way ) const;
   bool permits( const Gant::String & name, FateMet met, const FatePacket & packet, Way & way ) const;
   void classify( const IntfFact & fact, FatePacket & packet, Way & way ) const;
   // What the tunnel's packets become on the outside; nothing: none leaves.
   std::optional< FatePacket > outside( const IntfFact & tunnel, const FatePacket & inner ) const;

   const RouterState & state_;
   const IntfBook::Intfs & intfs_;
};

} // namespace Host
