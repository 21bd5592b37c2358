// show drops: what the data plane lost, where and why. show gates: what went from module to module.

#include "GantActivity.h"
#include "HostAsking.h"

#include "vex/engine.pb.h"

#include <map>

namespace Host {

namespace {

// Asks twice, a second apart: the rates are those of this second. Or once, without them.
class Drops : public Answer, Gant::StateMachine {
 public:
   explicit Drops( const Asked & asked ) :
        view_( asked.daemon ), engine_( view_.channel()->peer() ), wake_( asked.wake ),
        once_( asked.question.flag( "once" ) ), clock_( Gant::activityManager()->newClock() ), clockReactor_( this ) {
      ask();
   }

   Step step( Output & out ) override {
      if ( !done_ ) return Step::wait;
      if ( !error_.empty() ) throw CommandError( ErrorCode::refused, "the data plane: " + error_ );
      for ( const auto & drop : second_.drop() ) tell( drop, out );
      out.endMember( "timestamp", second_.timestamp() );
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
         if ( error_.empty() && !asked_ && !once_ ) return begin( reply );
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
      Json row{ { "module", drop.module() }, { "reason", drop.reason() }, { "packets", drop.packets() } };
      const auto at = first_.find( { drop.module(), drop.reason() } );
      const auto before = at == first_.end() ? 0 : std::min< std::uint64_t >( at->second, drop.packets() );
      const auto seconds = second_.timestamp() - start_;
      if ( !once_ ) row[ "packetsPerSecond" ] = seconds > 0 ? double( drop.packets() - before ) / seconds : 0;
      out.row( row );
   }

   const AgentView view_;
   Vex::EngineQuery engine_;
   const std::function< void() > wake_;
   const bool once_;
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

void gateRow( const vex::pb::GatesReply::Gate & gate, Output & out ) {
   out.row( { { "module", gate.module() },
              { "class", gate.mclass() },
              { "gate", gate.ogate() },
              { "to", gate.to() },
              { "inputGate", gate.igate() },
              { "packets", gate.packets() },
              { "bytes", gate.bytes() } } );
}

void gatesEnd( const vex::pb::GatesReply & reply, Output & out ) { out.endMember( "timestamp", reply.timestamp() ); }

} // namespace

Commands dropShows() {
   return { { "show drops",
              { { "once", Parameter::Kind::flag } },
              []( const Asked & asked ) { return std::make_unique< Drops >( asked ); } },
            asking( "show gates", &Vex::EngineQuery::gates, &vex::pb::GatesReply::gate, gateRow, gatesEnd ) };
}

} // namespace Host
