// The router's routes of one VRF, in the kernel's tables of one namespace.
#pragma once

#include "HostKernelNamespace.h"
#include "HostKernelNextHops.h"
#include "HostSlotBits.h"

#include <deque>

namespace Host {

//   watches  both FIBs: onRoute, onFec; a KernelNamespace, through its owner
//   writes   routes of protocol and metric `kernelRouteProtocol` in the main table, next-hop objects, and routes of
//            that protocol in the local table
//
// Written are routes that are told; the kernel has those of its own devices' subnets and neighbours by their addresses.
// An address of the router on an interface without a kernel device (a loopback) is a local one all the same, also while
// routes are not to be written.
//
// What a former process left under the protocol number is written over where the router has the same, and the rest is
// removed when that is done, unless leftovers are held. Work is done in slices of one batch each, one under way at a
// time. What changes meanwhile changes what a later slice sends: a prefix is brought in line with the FIB as it is
// then. What the kernel refuses is told, once per reason, and tried again after a second, then after twice the time of
// the one before, at most every minute.
class KernelRoutes : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< const Mirel::Fib::RouteStatus > fib;
      Gant::Ptr< const Mirel::Fib6::RouteStatus > fib6;
      U32 vrfId;
      bool wanted; // also routes, not only local addresses
      bool leftoversHeld;
      KernelNextHops::Carrying carrying;
      std::function< bool( Kynet::IntfId ) > deviceHas;
   };
   KernelRoutes( KernelNamespace & space, Args args, KernelTell tell );
   ~KernelRoutes() override;

   void handleStands();
   void handleLost();
   void handleNextHopGone( U32 id );
   // A device carries, or that of the index carries no more: which takes what leads by it away, unsaid.
   void handleCarrying( U32 lost );
   // An interface has got a device, or has none any more.
   void handleDevices();

   // What a former process left stays for as long.
   void leftoversHeldIs( bool held );
   // Nothing is left to do, but for what the kernel refuses.
   bool settled() const { return settled_; }
   U32 vrfId() const { return args_.vrfId; }

 private:
   template < typename P >
   struct Family {
      Gant::Ptr< const Mirel::RouteTable< P > > fib;
      SlotBits dirty{};   // to be brought in line
      SlotBits written{}; // sent to the kernel
      SlotBits suspect{}; // the kernel may have taken it away with its group
      std::deque< P > removed{};
      std::vector< U32 > refused{}; // slots
      U32 cursor = 0;
      U32 walked = 0; // slots up to here were looked at
   };
   struct Leftover {
      U8 family;
      U8 len;
      U32 table;
      U32 metric;
      Kynet::Ip6Addr::Bytes address; // of IPv4 the first four
   };
   enum class State { absent, cleaning, writing };
   template < typename P >
   struct GantFib;
   struct GantClock;

   void handleClock();
   template < typename P >
   void handleRoute( Family< P > & family, const Mirel::RouteRef< P > & ref );
   void handleFec( U64 key );
   void handleGroupsGone( const std::vector< U64 > & keys );
   void clean();
   void readLeftovers( U8 family );
   void readLeftoverNextHops();
   void fillLeftovers( KernelWrites & writes );
   template < typename P >
   bool isWritten( const Family< P > & family, const P & prefix, const Leftover & leftover ) const;
   bool isWritten( const Leftover & leftover ) const;
   void begin();
   void schedule();
   void slice();
   void fillGroups( KernelWrites & writes );
   template < typename P >
   bool fillRoutes( KernelWrites & writes, Family< P > & family );
   template < typename P >
   void walk( Family< P > & family );
   template < typename P >
   bool isOfInterest( const Family< P > & family, U32 slot ) const;
   template < typename P >
   void bringInLine( KernelWrites & writes, Family< P > & family, U32 slot );
   template < typename P >
   void addRemoval( KernelWrites & writes, const P & prefix );
   template < typename P >
   void addRemoval( KernelWrites & writes, const P & prefix, U8 table );
   template < typename P >
   bool isLocal( const Family< P > & family, const Mirel::Route & route ) const;
   bool isWanted( const Mirel::Route & route ) const;
   void handleAnswer( const std::vector< KernelWrite > & about, const NetlinkRefusals & refusals );
   template < typename P >
   std::string refusedRoute( Family< P > & family, U32 slot );
   const Mirel::Vias * viasOf( U64 key ) const;
   void retryLater();

   KernelNamespace & space_;
   const Args args_;
   const KernelTell tell_;
   State state_ = State::absent;
   KernelNextHops nextHops_;
   Family< Kynet::Prefix > family4_;
   Family< Kynet::Ip6Prefix > family6_;
   std::vector< U64 > dirtyGroups_;
   Gant::HashSet< U64 > lostGroups_;   // whose routes the kernel has taken away
   Gant::HashSet< U64 > brokenGroups_; // that it refused
   std::vector< Leftover > leftovers_;
   std::vector< U32 > leftoverNextHops_;
   bool leftoversHeld_;
   bool regroup_ = false;
   bool posted_ = false;
   bool busy_ = false;
   bool settled_ = true;
   double backOff_ = 0; // seconds
   std::string told_;
   Gant::Ptr< Gant::Clock > clock_;
   std::unique_ptr< GantClock > clockReactor_;
   std::unique_ptr< GantFib< Kynet::Prefix > > fibReactor_;
   std::unique_ptr< GantFib< Kynet::Ip6Prefix > > fib6Reactor_;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
};

} // namespace Host
