// The kernel's routes as routes of the router.
#pragma once

#include "HostKernelAnswers.h"
#include "HostKernelNamespace.h"
#include "HostRouteWays.h"

namespace Host {

class KernelSource;

//   owns     a socket of notifications of routes and next-hop objects, one for dumps and one for answers, in one
//            namespace
//   writes   RouterState: routes of Teller::kernel in one VRF
//
// Of the main table it takes what somebody else has put there: not what follows from addresses, and not what this
// process writes, which a filter on the socket keeps away. A route is an offer in the books, one for each metric. Of
// several that were appended to one another, the first one is offered.
//
// The kernel takes routes away with a link, its carrier or a next-hop object, and does not say so: after such a change
// the tables are read again, and what is not there any more is swept. So they are after notifications were lost.
//
// Where FPM is connected, a routing suite's routes in the kernel are answered here all the same, once those that it
// told by FPM lead by the same next hops and are programmed.
class KernelRouteReader : public Gant::StateMachine {
 public:
   struct Args {
      RouterState & state;
      std::string netns;
      U32 vrfId;
      IntfAtIndex intfAt;
      OutcomeOf outcomeOf{}; // null: nothing is said back
   };
   // Throws std::system_error.
   KernelRouteReader( KernelSource & source, Args args );
   ~KernelRouteReader() override;

   // Reads everything, and tells the source when it is done.
   void read();
   // Routes of routing suites are not taken.
   void suiteIs( bool elsewhere ) { suiteElsewhere_ = elsewhere; }
   void suiteStarted() {
      if ( answers_ ) answers_->forget();
   }
   U32 vrfId() const { return args_.vrfId; }

   U64 answered() const { return answers_ ? answers_->answered() : 0; }
   U64 messages() const { return messages_; }
   U64 bytes() const { return bytes_; }
   size_t nextHops() const { return nextHops_.size(); }
   void addRefusals( std::map< std::string, SourceRefusal > & byReason ) const;
   // Gives how many more may come.
   size_t eachRefused( size_t most, const Source::EachRefused & each ) const;

 private:
   enum class Table { nextHops, routes4, routes6 };
   struct Key {
      Kynet::IpGenPrefix prefix;
      U32 metric;
      U32 table;
      RouteMessage::Of of;
      size_t hash() const { return ( Gant::Hash( metric ) << table << prefix ).value(); }
      friend bool operator==( const Key &, const Key & ) = default;
   };

   void readTable( Table table );
   void handleRead( Table table, const NetlinkRefusals & refusals );
   void handle( const nlmsghdr & header, bool dumped );
   void handleNextHop( const nlmsghdr & header, bool dumped );
   void route( const nlmsghdr & header, bool dumped );
   bool ofInterest( const RouteMessage & message ) const;
   void answer( const nlmsghdr & header, bool dumped );
   std::optional< RouteOutcome > outcomeOf( const RouteMessage & message );
   bool leadsAlike( const RouteMessage & message, const Ways & ways );
   const char * tell( const RouteMessage & message );
   template < typename Book, typename P >
   const char * tell( Book & book, const RouteMessage & message, const P & prefix );
   bool has( const RouteMessage & message ) const;
   void drop( const RouteMessage & message );
   const std::vector< NetlinkHop > & hopsOf( const RouteMessage & message );

   KernelSource & source_;
   const Args args_;
   std::unique_ptr< NetlinkReader > notifications_;
   std::unique_ptr< NetlinkSocket > requests_;
   std::unique_ptr< KernelAnswers > answers_;
   U32 round_ = 0; // of reading
   bool interrupted_ = false;
   bool suiteElsewhere_ = false;
   RouteMessage route_;
   NextHopMessage nextHop_;
   std::map< U32, NextHopMessage > nextHops_;
   std::set< U32 > used_; // next-hop objects of routes
   std::vector< NetlinkHop > hops_;
   Gant::HashSet< Key > several_;               // routes with others appended
   Gant::HashMap< Key, const char * > refused_; // with the reason
   U64 messages_ = 0, bytes_ = 0;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
};

// All readers together: what is stale is swept when each has read everything.
//
//   watches  a clock, between the wish to read and the reading
class KernelSource : public Source, public Gant::StateMachine {
 public:
   using Tell = std::function< void( const std::string & error ) >;
   KernelSource( RouterState & state, Tell tell );
   ~KernelSource() override;

   void add( KernelRouteReader & reader );
   void remove( KernelRouteReader & reader );
   // Routes of routing suites come by FPM.
   void suiteIs( bool elsewhere );
   bool suiteElsewhere() const { return suiteElsewhere_; }
   // It knows of no answer: each of its routes is answered again.
   void suiteStarted();

   // Something may have been taken away unsaid: everything is read again, at most once a second, and after a loss at
   // most every three.
   void readSoon();
   void lost( const std::string & why );
   // Everything is read, and nothing has changed since that is to be read again.
   bool read() const { return reading_ == 0 && clock_->timeMin() == Gant::Clock::never; }
   // A reader is through; `whole`: nothing changed under it.
   void readIs( bool whole );

   // Source.
   SourceFacts facts() const override;
   std::vector< SourceRefusal > refusals() const override;
   void eachRefused( size_t most, const EachRefused & each ) const override;
   std::string resync() override;

 private:
   struct GantClock;
   void handleClock();

   RouterState & state_;
   const Tell tell_;
   std::vector< KernelRouteReader * > readers_;
   size_t reading_ = 0; // readers
   bool whole_ = true;
   bool again_ = false; // while it was read, somebody wished to
   bool suiteElsewhere_ = false;
   double readAt_ = 0; // the last time
   double since_ = 0;  // seconds of the system clock
   unsigned losses_ = 0;
   std::string lastLoss_;
   Gant::Ptr< Gant::Clock > clock_;
   std::unique_ptr< GantClock > clockReactor_;
};

} // namespace Host
