#include "HostChangeCommands.h"

#include "GantActivity.h"
#include "GantCleanse.h"

namespace Host {

namespace {

ErrorCode errorCodeOf( ChangeResult::Code code ) {
   switch ( code ) {
   case ChangeResult::Code::invalid: return ErrorCode::usage;
   case ChangeResult::Code::notFound: return ErrorCode::notFound;
   default: return ErrorCode::refused;
   }
}

void tell( const ChangeResult & result, Output & out ) {
   if ( result.code != ChangeResult::Code::done ) throw CommandError( errorCodeOf( result.code ), result.message );
   if ( !result.message.empty() ) out.endMember( "message", result.message );
}

std::unique_ptr< Answer > done( const ChangeResult & result ) {
   if ( result.code != ChangeResult::Code::done ) throw CommandError( errorCodeOf( result.code ), result.message );
   return atOnce( [ result ]( Output & out ) { tell( result, out ); } );
}

// What is to be changed. The entry may hold keys.
struct Change {
   Change( ChangeOp op, const Question & question ) :
        op( op ), kind( question.text( "kind" ) ), entry( question.text( "entry" ) ) {}
   ~Change() { Gant::cleanse( entry ); }
   Change( const Change & ) = delete;
   Change & operator=( const Change & ) = delete;

   ChangeResult make( DaemonControl & daemon ) const { return daemon.change( op, kind, entry ); }

   const ChangeOp op;
   const std::string kind;
   std::string entry;
};

// A change that comes while so much waits for the data plane that no more is added to it.
class HeldChange : public Answer, private Gant::StateMachine {
 public:
   HeldChange( ChangeOp op, const Asked & asked ) :
        daemon_( asked.daemon ), change_( op, asked.question ), wake_( asked.wake ),
        clock_( Gant::activityManager()->newClock() ), gantClock_( *this ), until_( clock_->now() + secondsMost ) {}

   Step step( Output & out ) override {
      const auto paused = daemon_.status().paused;
      if ( paused.empty() ) {
         tell( change_.make( daemon_ ), out );
         return Step::done;
      }
      if ( clock_->now() > until_ )
         throw CommandError( ErrorCode::unavailable,
                             Gant::format( "nothing is changed: for %g s, ", secondsMost ) + paused );
      clock_->timeMinIs( clock_->now() + lookAgainSeconds );
      return Step::wait;
   }

 private:
   static constexpr double secondsMost = 10;
   static constexpr double lookAgainSeconds = 0.01;
   class GantClock : public Gant::Clock::Notifiee {
    public:
      explicit GantClock( HeldChange & held ) : Notifiee( &held, held.clock_ ), held_( held ) {}
      void onTime() override { held_.wake_(); }

    private:
      HeldChange & held_;
   };

   DaemonControl & daemon_;
   const Change change_;
   const std::function< void() > wake_;
   Gant::Ptr< Gant::Clock > clock_;
   GantClock gantClock_;
   const double until_;
};

Command change( const char * name, ChangeOp op ) {
   return { name,
            { { "kind", Parameter::Kind::text, true }, { "entry", Parameter::Kind::text, true } },
            [ op ]( const Asked & asked ) -> std::unique_ptr< Answer > {
               if ( !asked.daemon.status().paused.empty() ) return std::make_unique< HeldChange >( op, asked );
               return done( Change( op, asked.question ).make( asked.daemon ) );
            } };
}

} // namespace

Commands changeCommands() {
   return { change( "add", ChangeOp::add ),
            change( "replace", ChangeOp::replace ),
            change( "del", ChangeOp::del ),
            { "reload", {}, []( const Asked & asked ) { return done( asked.daemon.reload() ); } } };
}

} // namespace Host
