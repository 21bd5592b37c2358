// What has become of routes, for the routing suite that told them by FPM.
#pragma once

#include "HostRouteOutcome.h"
#include "HostRouterState.h"

#include <deque>

namespace Host {

//   watches  a clock, while somebody waits for an answer
//   asks     the data plane's side what has become of a route, and the kernel which index an interface has
//
// Each telling of a route is answered once, when the data plane has acknowledged or refused it: RTM_NEWROUTE with
// RTM_F_OFFLOAD or RTM_F_OFFLOAD_FAILED, as FRR from 8.5 on takes it (8.4 reads it and lets it be). A route that went
// meanwhile, or behind another source's, is not answered. Routes are looked at in batches, off the way of those that
// come.
class FpmAnswers : public Gant::StateMachine {
 public:
   struct Surroundings {
      OutcomeOf outcomeOf;
      std::function< std::optional< U32 >( Kynet::IntfId intfId ) > indexOf;
   };
   FpmAnswers( const RouterState & state, Surroundings around );
   ~FpmAnswers() override;

   void told( U32 table, U32 vrfId, const Kynet::Prefix & prefix ) { add( waiting4_, { table, vrfId, prefix } ); }
   void told( U32 table, U32 vrfId, const Kynet::Ip6Prefix & prefix ) { add( waiting6_, { table, vrfId, prefix } ); }
   // The client is gone, and so is who waits.
   void clear();
   // Called with frames that are to be sent. False: nobody takes more at present.
   void senderIs( std::function< bool( const std::string & frames ) > sender ) { sender_ = std::move( sender ); }
   size_t waiting() const { return waiting4_.size() + waiting6_.size(); }
   U64 answered() const { return answered_; }

 private:
   template < typename P >
   struct Waiting {
      U32 table;
      U32 vrfId;
      P prefix;
   };
   template < typename P >
   using Queue = std::deque< Waiting< P > >;
   struct GantClock;

   template < typename P >
   void add( Queue< P > & queue, const Waiting< P > & one ) {
      queue.push_back( one );
      if ( clock_->timeMin() == Gant::Clock::never ) clock_->timeMinIs( clock_->now() + every );
   }
   void handleClock();
   template < typename Book, typename P >
   void look( const Book & book, Queue< P > & queue );
   template < typename Book, typename P >
   void answer( const Book & book, const Waiting< P > & one, bool programmed );

   static constexpr double every = 0.05, leastPause = 0.005; // seconds
   const RouterState & state_;
   const Surroundings around_;
   std::function< bool( const std::string & ) > sender_;
   Queue< Kynet::Prefix > waiting4_;
   Queue< Kynet::Ip6Prefix > waiting6_;
   std::string frames_;
   U64 answered_ = 0;
   Gant::Ptr< Gant::Clock > clock_;
   std::unique_ptr< GantClock > clockReactor_;
};

} // namespace Host
