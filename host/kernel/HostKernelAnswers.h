// What has become of the kernel's routes, said back in its main table.
#pragma once

#include "GantActivity.h"
#include "HostNetlink.h"
#include "HostRouteForms.h"
#include "HostRouteMessage.h"
#include "HostRouteOutcome.h"
#include "HostSlotBits.h"
#include "MirelHashIndex.h"

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
// Kept are the routes that wait, and of a routing suite's those that were answered: for as long as it may react, and
// where it did for good. That is 12 bytes a route and its part of the index, which is 11 to 22.
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

   U64 answered() const { return answers_; }

 private:
   struct Key {
      U32 address;
      U32 metric;
      U8 len;
      friend bool operator<( const Key & a, const Key & b ) {
         return std::tie( a.address, a.len, a.metric ) < std::tie( b.address, b.len, b.metric );
      }
   };
   enum class Stage : U8 {
      waits,
      answered, // a routing suite's, which may tell it again
      settled,  // it has
   };
   struct Route {
      U32 address = 0;
      U32 form = 0; // 0: the place is empty
      U8 len = 0;
      Stage stage : 2 = Stage::waits;
      U8 suite : 1 = false;
      // Of one that waits: what the kernel shows of it.
      U8 programmed : 1 = false;
      U8 refused : 1 = false;
      U8 round = 0; // of expire(), of one that was answered
   };
   struct GantClock;
   static Key keyOf( const RouteMessage & message );
   static U32 hashOf( U32 address, U8 len );
   U32 find( const Key & key ) const;
   void drop( U32 place );
   void dropAll( bool waiting );
   bool isReaction( U32 place, U32 form, How how );
   void wait( const Key & key, U32 place, const Route & route );
   void expire();

   void handleClock();
   // Puts the answer of one that waits, where there is one by now, into the batch.
   void look( NetlinkBatch & batch, U32 place );
   void send( NetlinkBatch batch );
   void handleAnswer();
   void schedule( double pause );
   void scheduleExpiry();

   const Surroundings around_;
   NetlinkSocket requests_;
   const U32 port_;
   RouteForms forms_;
   Mirel::Slab< Route > routes_;
   Mirel::HashIndex index_;
   SlotRound waiting_, answered_;                  // by place
   std::map< Key, std::vector< char > > underWay_; // with what somebody told meanwhile
   std::vector< std::vector< char > > overtaken_;  // to be put back
   double expireAt_ = 0;
   U8 round_ = 0;        // of expire()
   size_t expiring_ = 0; // answered ones, to be looked at in this round
   std::vector< char > room_;
   RouteMessage route_;
   bool busy_ = false;
   bool held_ = false;
   double pause_ = 0; // seconds
   U64 answers_ = 0;
   Gant::Ptr< Gant::Clock > clock_;
   std::unique_ptr< GantClock > clockReactor_;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
};

} // namespace Host
