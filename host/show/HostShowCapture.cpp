// capture and trace live: packets as they pass the data plane.

#include "GantActivity.h"
#include "HostAgentView.h"
#include "HostShows.h"
#include "VexEngineQuery.h"

#include "vex/engine.pb.h"

#include <cerrno>

namespace Host {

namespace {

using vex::pb::CaptureReply;
using vex::pb::CaptureRequest;
using vex::pb::TracePacketReply;

constexpr double askAgainSeconds = 0.05;

std::string inHex( const std::string & bytes ) {
   std::string hex;
   hex.reserve( 2 * bytes.size() );
   for ( const unsigned char byte : bytes ) {
      hex += "0123456789abcdef"[ byte >> 4 ];
      hex += "0123456789abcdef"[ byte & 15 ];
   }
   return hex;
}

Json packetOf( const CaptureReply::Packet & packet ) {
   Json row{ { "time", packet.time() }, { "module", packet.module() }, { "class", packet.mclass() } };
   if ( !packet.intfname().empty() ) row[ "interface" ] = packet.intfname();
   row[ "length" ] = packet.length();
   row[ "ethernet" ] = packet.ethernet();
   row[ "data" ] = inHex( packet.data() );
   return row;
}

const char * fateOf( TracePacketReply::End end ) {
   switch ( end ) {
   case TracePacketReply::END_SENT: return "sent";
   case TracePacketReply::END_LOCAL: return "local";
   case TracePacketReply::END_DROPPED: return "dropped";
   default: return "unknown";
   }
}

Json wayOf( const CaptureReply::Packet & packet ) {
   const auto & trace = packet.trace();
   auto steps = Json::array();
   for ( const auto & step : trace.step() ) {
      Json row{ { "module", step.module() }, { "class", step.mclass() }, { "action", step.action() } };
      if ( step.has_ogate() ) row[ "gate" ] = step.ogate();
      steps.push_back( std::move( row ) );
   }
   Json row{ { "time", packet.time() }, { "interface", packet.intfname() }, { "steps", std::move( steps ) } };
   row[ "end" ] = fateOf( trace.end() );
   row[ "module" ] = trace.module();
   if ( !trace.reason().empty() ) row[ "reason" ] = trace.reason();
   if ( !trace.intfname().empty() ) row[ "out" ] = trace.intfname();
   row[ "length" ] = trace.length();
   return row;
}

// Goes on until so many packets have come, or its client is gone: the data plane then ends it by itself.
class Packets : public Answer, Gant::StateMachine {
 public:
   Packets( const Asked & asked, CaptureRequest request ) :
        view_( asked.daemon ), engine_( view_.channel()->peer() ), wake_( asked.wake ),
        request_( std::move( request ) ), most_( asked.question.number( "count", 0 ) ),
        clock_( Gant::activityManager()->newClock() ), clockReactor_( this ) {
      ask();
   }

   Step step( Output & out ) override {
      if ( call_ || waiting_ ) return Step::wait;
      if ( !error_.empty() ) throw CommandError( code_, error_ );
      for ( const auto & packet : reply_.packet() ) {
         if ( most_ != 0 && told_ == most_ ) break;
         ++told_;
         out.row( request_.trace() ? wayOf( packet ) : packetOf( packet ) );
      }
      if ( most_ != 0 && told_ == most_ && !request_.end() ) request_.set_end( true );
      if ( ended_ ) {
         out.endMember( "lost", lost_ );
         return Step::done;
      }
      ended_ = request_.end();
      if ( ended_ || first_ ) {
         first_ = false;
         ask();
      } else {
         waiting_ = true;
         clock_->timeMinIs( clock_->now() + askAgainSeconds );
      }
      return Step::more;
   }

 private:
   struct GantClock : Gant::Clock::Notifiee {
      explicit GantClock( Packets * owner ) : Notifiee( owner, owner->clock_ ), owner( owner ) {}
      void onTime() override {
         owner->waiting_ = false;
         owner->ask();
      }
      Packets * owner;
   };

   void ask() {
      reply_.Clear();
      call_ = engine_.capture( request_, [ this ]( const auto & error, const auto & reply ) {
         call_ = nullptr;
         if ( !error.empty() ) error_ = "the data plane: " + error;
         if ( reply.error().code() != 0 ) {
            error_ = reply.error().errmsg();
            code_ = reply.error().code() == EINVAL   ? ErrorCode::usage
                    : reply.error().code() == ENOENT ? ErrorCode::notFound
                                                     : ErrorCode::refused;
         }
         reply_ = reply;
         request_.set_id( reply.id() );
         if ( reply.lost() != 0 ) lost_ = reply.lost();
         wake_();
      } );
   }

   const AgentView view_;
   Vex::EngineQuery engine_;
   const std::function< void() > wake_;
   CaptureRequest request_;
   const std::uint64_t most_;
   std::uint64_t told_ = 0;
   std::uint64_t lost_ = 0;
   CaptureReply reply_;
   std::string error_;
   ErrorCode code_ = ErrorCode::refused;
   bool first_ = true; // nothing but the number of the capture has come
   bool waiting_ = false;
   bool ended_ = false; // the data plane was told that it is over
   Gant::Ptr< Gant::Clock > clock_;
   GantClock clockReactor_;
   std::unique_ptr< Vex::EngineCall > call_; // gone first: it calls back
};

CaptureRequest filteredBy( const Question & question ) {
   CaptureRequest request;
   request.set_filter( question.text( "filter" ) );
   return request;
}

std::unique_ptr< Answer > capture( const Asked & asked ) {
   auto request = filteredBy( asked.question );
   request.set_module( asked.question.text( "module" ) );
   if ( asked.question.has( "gate" ) ) request.set_gate( asked.question.number( "gate", 0 ) );
   return std::make_unique< Packets >( asked, std::move( request ) );
}

std::unique_ptr< Answer > traceLive( const Asked & asked ) {
   auto request = filteredBy( asked.question );
   request.set_trace( true );
   request.set_drops( asked.question.flag( "drops" ) );
   if ( const auto name = asked.question.text( "interface" ); !name.empty() )
      request.set_intfname( intfOf( name ).stringValue() );
   return std::make_unique< Packets >( asked, std::move( request ) );
}

} // namespace

Commands captureCommands() {
   using Kind = Parameter::Kind;
   return { { "capture", { { "module" }, { "gate", Kind::number }, { "filter" }, { "count", Kind::number } }, capture },
            { "trace live",
              { { "interface" }, { "filter" }, { "drops", Kind::flag }, { "count", Kind::number } },
              traceLive } };
}

} // namespace Host
