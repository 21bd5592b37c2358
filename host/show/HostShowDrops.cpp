// show drops: what the data plane lost, where and why.

#include "GantActivity.h"
#include "HostAgentView.h"
#include "HostShows.h"
#include "VexEngineQuery.h"

#include "vex/engine.pb.h"

#include <map>

namespace Host {

namespace {

// Asks twice, a second apart: the rates are those of this second.
class Drops : public Answer, Gant::StateMachine {
 public:
   explicit Drops( const Asked & asked ) :
        view_( asked.daemon ), engine_( view_.channel()->peer() ), wake_( asked.wake ),
        clock_( Gant::activityManager()->newClock() ), clockReactor_( this ) {
      ask();
   }

   Step step( Output & out ) override {
      if ( !done_ ) return Step::wait;
      if ( !error_.empty() ) throw CommandError( ErrorCode::refused, "the data plane: " + error_ );
      for ( const auto & drop : second_.drop() ) tell( drop, out );
      return Step::done;
   }

 private:
   struct GantClock : Gant::Clock::Notifiee {
      explicit GantClock( Drops * owner ) : Notifiee( owner, owner->clock_ ), owner( owner ) {}
      void onTime() override { owner->ask(); }
      Drops * owner;
   };

   void ask() {
      call_ = engine_.drops( [ this ]( const auto & error, const auto & reply ) {
         error_ = error.empty() ? reply.error().errmsg() : error;
         if ( error_.empty() && !asked_ ) return begin( reply );
         second_ = reply;
         done_ = true;
         wake_();
      } );
   }

   void begin( const vex::pb::DropsReply & reply ) {
      asked_ = true;
      start_ = reply.timestamp();
      for ( const auto & drop : reply.drop() ) first_[ { drop.module(), drop.reason() } ] = drop.packets();
      clock_->timeMinIs( clock_->now() + 1 );
   }

   void tell( const vex::pb::DropsReply::Drop & drop, Output & out ) const {
      const auto at = first_.find( { drop.module(), drop.reason() } );
      const auto before = at == first_.end() ? 0 : std::min< std::uint64_t >( at->second, drop.packets() );
      const auto seconds = second_.timestamp() - start_;
      out.row( { { "module", drop.module() },
                 { "reason", drop.reason() },
                 { "packets", drop.packets() },
                 { "packetsPerSecond", seconds > 0 ? double( drop.packets() - before ) / seconds : 0 } } );
   }

   const AgentView view_;
   Vex::EngineQuery engine_;
   const std::function< void() > wake_;
   std::map< std::pair< std::string, std::string >, std::uint64_t > first_;
   vex::pb::DropsReply second_;
   double start_ = 0;
   bool asked_ = false;
   bool done_ = false;
   std::string error_;
   Gant::Ptr< Gant::Clock > clock_;
   GantClock clockReactor_;
   std::unique_ptr< Vex::EngineCall > call_; // gone first: it calls back
};

} // namespace

Commands dropShows() {
   return { { "show drops", {}, []( const Asked & asked ) { return std::make_unique< Drops >( asked ); } } };
}

} // namespace Host
