// What the kernel has in one network namespace: links, IPv4 addresses, neighbours.
#pragma once

#include "GantActivity.h"
#include "HostNetlink.h"
#include "KynetAddr.h"

#include <map>
#include <set>

namespace Host {

// Where errors go: one line that names its object. The same line is not told again until it was cured.
using KernelTell = std::function< void( const std::string & error ) >;

struct KernelLink {
   U32 index = 0;
   std::string name{};
   Kynet::EthAddr mac{}; // zero: it has none
   U32 mtu = 0;
   bool up = false;      // told to be
   bool carrier = false; // up, and its lower end is
};

struct KernelNeighbor {
   Kynet::EthAddr mac{};
   U16 state = 0;        // NUD_*
   bool managed = false; // the kernel keeps it fresh
   // It can be sent to.
   bool valid() const;
};

// Follows the kernel's tables: read when the namespace is there, then kept by notifications, and read again after some
// were lost. A namespace that is missing is tried again, at most every 5 seconds; so is one that was made anew under
// its name, which is noticed within 2 seconds. What was in the one before is gone then.
//
// States: absent, reading (nothing is told), standing.
class KernelNamespace : public Gant::StateMachine {
 public:
   // Called in turns of the loop, after the tables have changed.
   class Watcher {
    public:
      virtual ~Watcher() = default;
      // All tables are complete. Also after notifications were lost: anything may have changed.
      virtual void onStands() = 0;
      // All tables are empty, and requests() is not to be used.
      virtual void onLost() = 0;
      virtual void onLink( U32 index ) = 0;
      virtual void onAddress( U32 index ) = 0;
      virtual void onNeighbor( U32 index, const Kynet::IpGenAddr & addr ) = 0;
      // The kernel has taken a next-hop object away, or this process has.
      virtual void onNextHopGone( U32 id ) = 0;
   };
   using NeighborKey = std::pair< U32, Kynet::IpGenAddr >; // of a link's index
   using Neighbors = std::map< NeighborKey, KernelNeighbor >;
   using Address = std::pair< U32, Kynet::Prefix >; // of a link's index, with host bits

   // As openNetlink takes it.
   KernelNamespace( std::string netns, Watcher & watcher, KernelTell tell );
   ~KernelNamespace() override;

   // Opens it, now or as soon as it can be.
   void start();
   bool stands() const { return state_ == State::standing; }
   const std::string & netns() const { return netns_; }
   // "namespace customer"
   std::string text() const;

   const std::map< U32, KernelLink > & links() const { return links_; }
   // Null: there is none.
   const KernelLink * linkNamed( const std::string & name ) const;
   const std::set< Address > & addresses() const { return addresses_; }
   // Also those that are being resolved, and those that failed.
   const Neighbors & neighbors() const { return neighbors_; }
   const KernelNeighbor * neighbor( U32 index, const Kynet::IpGenAddr & addr ) const;

   // REQUIRES: stands(). What it is done with is in the tables before its answer is told.
   NetlinkSocket & requests() { return *requests_; }

 private:
   enum class State { absent, reading, standing };
   enum Table { linkTable, addressTable, neighborTable };
   struct GantClock;

   void handleClock();
   void open();
   void close();
   void readTables();
   void readTable( Table table );
   void handleRead( Table table, const NetlinkRefusals & refusals );
   void sweep();
   void handle( const nlmsghdr & header );
   void handleOverflow( int error );
   void handleLink( const nlmsghdr & header );
   void handleAddress( const nlmsghdr & header );
   void handleNeighbor( const nlmsghdr & header );
   void handleNextHop( const nlmsghdr & header );
   void tellOnce( const std::string & error );

   const std::string netns_;
   Watcher & watcher_;
   const KernelTell tell_;
   State state_ = State::absent;
   U64 id_ = 0; // of the namespace that is open
   std::unique_ptr< NetlinkReader > notifications_;
   std::unique_ptr< NetlinkSocket > requests_;
   std::map< U32, KernelLink > links_;
   std::map< std::string, U32 > linksByName_;
   std::set< Address > addresses_;
   Neighbors neighbors_;
   // While the tables are read: what was met of them.
   std::set< U32 > metLinks_;
   std::set< Address > metAddresses_;
   std::set< NeighborKey > metNeighbors_;
   unsigned rereads_ = 0;
   double backOff_ = 0; // seconds
   std::string told_;
   Gant::Ptr< Gant::Clock > clock_;
   std::unique_ptr< GantClock > clockReactor_;
};

} // namespace Host
