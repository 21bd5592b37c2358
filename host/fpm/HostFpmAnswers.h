// What has become of routes, for the routing suite that told them by FPM.
#pragma once

#include "GantFlat.h"
#include "HostRouteOutcome.h"
#include "HostRouterState.h"
#include "HostSlotBits.h"

namespace Host {

//   watches  a clock, while somebody waits for an answer
//   asks     the data plane's side what has become of a route, and the kernel which index an interface has
//
// A route that was told is answered when the data plane has acknowledged or refused it, once for all that was told of
// it until then: RTM_NEWROUTE with RTM_F_OFFLOAD or RTM_F_OFFLOAD_FAILED, as FRR from 8.5 on takes it (8.4 reads it and
// lets it be). A route that went meanwhile, or behind another source's, is not answered. Routes are looked at in
// batches, off the way of those that come.
class FpmAnswers : public Gant::StateMachine {
 public:
   struct Surroundings {
      OutcomeOf outcomeOf;
      std::function< std::optional< U32 >( Kynet::IntfId intfId ) > indexOf;
   };
   FpmAnswers( const RouterState & state, Surroundings around );
   ~FpmAnswers() override;

   // The route of the family of P in the FIB's slot. The newest table of a VRF is that of its answers.
   template < typename P >
   void told( U32 table, U32 vrfId, U32 slot ) {
      if ( table != last_.first || vrfId != last_.second ) {
         last_ = { table, vrfId };
         tables_[ vrfId ] = table;
      }
      ( std::is_same_v< P, Kynet::Prefix > ? waiting4_ : waiting6_ ).add( slot );
      if ( clock_->timeMin() == Gant::Clock::never ) clock_->timeMinIs( clock_->now() + every );
   }
   // The client is gone, and so is who waits.
   void clear();
   // Called with frames that are to be sent. False: nobody takes more at present.
   void senderIs( std::function< bool( const std::string & frames ) > sender ) { sender_ = std::move( sender ); }
   size_t waiting() const { return waiting4_.size() + waiting6_.size(); }
   U64 answered() const { return answered_; }

 private:
   struct GantClock;
   void handleClock();
   template < typename Book >
   void look( const Book & book, SlotRound & waiting );
   // False: it is to be asked again.
   template < typename Book >
   bool lookAt( const Book & book, U32 slot );
   template < typename Book, typename Ref >
   void answer( const Book & book, const Ref & told, bool programmed );

   static constexpr double every = 0.05, leastPause = 0.005; // seconds
   const RouterState & state_;
   const Surroundings around_;
   std::function< bool( const std::string & ) > sender_;
   SlotRound waiting4_, waiting6_;
   Gant::FlatMap< U32, U32 > tables_;   // by VRF
   std::pair< U32, U32 > last_{ 0, 0 }; // table and VRF that were told last; table 0: none
   std::string frames_;
   U64 answered_ = 0;
   Gant::Ptr< Gant::Clock > clock_;
   std::unique_ptr< GantClock > clockReactor_;
};

} // namespace Host
