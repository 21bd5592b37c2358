// Trap: where packets are handed to the router itself. Why, is said by the module that punted them. The control-plane
// policy gives IPv4 packets their traffic class on the way; others, and those that no rule matches, are of class 0.
//
//   out    1            GRE between the ends of a tunnel
//          2            ESP from a peer with an association, bare or in UDP
//   drops  what the policy denies, what cannot go up as it came, fragments to a tunnel's end that never become whole
//
// What left by one of these gates and comes back is for the router's kernel. Fragments to a tunnel's end are put
// together first (DpReassembly.h); others go up as they are.
//
// Of each class, of ARP, and of what is neither IPv4 nor ARP, the router's kernel gets kRate packets a second: what
// floods one leaves the others alone, and costs packets that are forwarded little of the workers' time. More is
// dropped, whichever workers it comes by.
#pragma once

#include "DpIpv4.h"
#include "DpModule.h"
#include "DpPerWorker.h"
#include "DpRuleBinding.h"
#include "DpTokenBucket.h"

#include "bess/control.pb.h"

#include <array>
#include <optional>

namespace Vexdp {

class IpsecManagement;
class Reassembly;
class TunnelIngress;
struct UsedReassembly;

class Trap : public Module {
 public:
   static constexpr std::size_t kClasses = 8; // those from 7 on share one
   static constexpr double kRate = 10000;     // packets a second
   static constexpr double kMostAtOnce = 1000;

   static const ModuleClass & moduleClass();
   static Outcome check( const bess::pb::EmptyArg & ) { return {}; }
   Trap( Identity identity, const bess::pb::EmptyArg & );

   // Points it at a policy. ENOENT: there is no such policy.
   Outcome applyPolicy( const vex::pb::PolicyApplyArg & arg );

   Fate process( Packet & packet, Context & context ) override;
   void processAll( Packets packets, Context & context ) override;
   CommandSource commands() const override { return policy_.policyCommand( "applyPolicy" ); }
   std::string desc() const override;

 private:
   // The ends of tunnels, found once for the packets of a burst, which mostly have come by one.
   struct Ends {
      const TunnelIngress * tunnels;                         // null: there are none
      const IpsecManagement * management;                    // likewise
      std::optional< std::array< std::uint32_t, 3 > > gre{}; // VRF, here and there: a tunnel's, as was found
   };
   Ends ends() const;
   Fate process( Packet & packet, Context & context, Ends & ends );
   // The gate to a tunnel's end; nothing for what no tunnel has brought.
   std::optional< GateId > tunnelGate( const Ipv4Header & header, Packet & packet, Ends & ends ) const;
   static bool isGreEnd( const Ipv4Header & header, const Packet & packet, Ends & ends );
   // The packet is whole, or put together; false: it waits for its rest.
   static bool makeWhole( Reassembly & reassembly, Packet & packet, Context & context );
   // Null: fragments go up as they are.
   Reassembly * reassembly() const;
   bool mayGoUp( const Packet & packet, const Context & context );

   const UsedReassembly & used_;
   RuleBinding policy_;
   struct alignas( kCacheLine ) Up {
      SpinLock lock;
      TokenBucket bucket{ kRate, kMostAtOnce };
   };
   std::array< Up, kClasses + 2 > up_; // by class, then ARP, then the rest
};

} // namespace Vexdp
