// What has become of the kernel's routes, said back in its main table.
#pragma once

#include "GantActivity.h"
#include "GantFlat.h"
#include "HostMessageQueue.h"
#include "HostNetlink.h"
#include "HostRouteMessage.h"
#include "HostRouteOutcome.h"

#include <array>
#include <map>
#include <optional>

namespace Host {

//   owns     a socket for requests in one namespace
//   watches  a clock, while a route waits for its answer
//   asks     what has become of a route
//   writes   the kernel's IPv4 routes: the very route again, with RTM_F_OFFLOAD and RTNH_F_OFFLOAD where the data plane
//            has acknowledged it, with RTM_F_OFFLOAD_FAILED where it has refused it
//
// Each telling of a route is answered once. What the kernel notifies of that is known by the socket's number
// (isEcho()), and is no telling. A route that somebody changed under an answer is put back as he had it.
//
// FRR's zebra (8.4.4, --asic-offload) hears an answer and tells the very route again, without it: one such telling for
// each answer is no new one.
//
// The kernel (6.18) keeps RTNH_F_OFFLOAD on every route, and the two others on those of several next hops, of groups,
// and of an object where net.ipv4.nexthop_compat_mode is 0. With 1 it keeps nothing on the route of a single object:
// such a one is not written. Nothing is kept in IPv6.
class KernelAnswers : public Gant::StateMachine {
 public:
   struct Surroundings {
      // Nothing: another route of the prefix holds at present.
      std::function< std::optional< RouteOutcome >( const RouteMessage & message ) > outcomeOf;
      // Reads what the kernel has notified by now.
      std::function< void() > settle;
   };
   // Throws std::system_error.
   KernelAnswers( const std::string & netns, Surroundings around );
   ~KernelAnswers() override;

   enum class How : U8 {
      read,     // of the tables
      notified, // somebody has told it
   };
   // `message` is what the header says: a route of the main table without a type of service. `suite`: who told it may
   // tell it again when it is answered.
   void told( const nlmsghdr & header, const RouteMessage & message, How how, bool suite );
   void gone( const RouteMessage & message );
   // Whether it is what the kernel notifies of an answer.
   bool isEcho( const nlmsghdr & header ) const;
   void handleEcho( const RouteMessage & message );
   // While held nothing is written: the tables are read.
   void heldIs( bool held ) { held_ = held; }
   // Nobody waits: everything is told anew.
   void clear();
   // The routing suite was started anew: it knows of no answer.
   void forget();

   size_t waiting() const { return waiting_.size(); }
   U64 answered() const { return answered_; }

 private:
   struct Key {
      U32 address;
      U32 metric;
      U8 len;
      size_t hash() const { return ( Gant::Hash( address ) << metric << len ).value(); }
      friend bool operator==( const Key &, const Key & ) = default;
      friend bool operator<( const Key & a, const Key & b ) {
         return std::tie( a.address, a.len, a.metric ) < std::tie( b.address, b.len, b.metric );
      }
   };
   struct GantClock;
   using Contents = Gant::FlatMap< Key, U32 >; // a hash of what was told
   static Key keyOf( const RouteMessage & message );
   bool isReaction( const Key & key, U32 content, How how );
   void expire();

   void handleClock();
   // Whether the one in front goes into the batch.
   void look( NetlinkBatch & batch );
   void send( NetlinkBatch batch );
   void handleAnswer();
   void schedule( double pause );

   const Surroundings around_;
   NetlinkSocket requests_;
   const U32 port_;
   MessageQueue waiting_;
   Gant::FlatMap< Key, U32 > newest_; // of those that wait: the number of the last telling
   U32 lastNumber_ = 0;
   std::map< Key, std::vector< char > > underWay_; // with what somebody told meanwhile
   std::vector< std::vector< char > > overtaken_;  // to be put back
   std::array< Contents, 2 > answeredLast_;        // a routing suite's, of this time and of the time before
   Contents settled_;                              // those that it has told again
   double expireAt_ = 0;
   std::vector< char > room_;
   RouteMessage route_;
   bool busy_ = false;
   bool held_ = false;
   double pause_ = 0; // seconds
   U64 answered_ = 0;
   Gant::Ptr< Gant::Clock > clock_;
   std::unique_ptr< GantClock > clockReactor_;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
};

} // namespace Host
