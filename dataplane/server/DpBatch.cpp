#include "DpBatch.h"

#include "DpRegistry.h"

#include <algorithm>
#include <cerrno>

namespace Vexdp {

using namespace vex::pb;

namespace {

class BatchRun {
 public:
   BatchRun( Requests & requests, BatchReply & reply, const std::function< void() > & between ) :
        requests_( requests ), reply_( reply ), between_( between ) {}

   void run( const Request & request ) {
      switch ( request.request_case() ) {
      case Request::kCommand: return run( request.command() );
      case Request::kCreateModule: return run( request.create_module() );
      case Request::kDestroyModule: {
         const auto & name = request.destroy_module().name();
         const auto subject = requests_.subject( name, kDestroy );
         return done( requests_.destroy( request.destroy_module() ), subject );
      }
      case Request::kConnectModules: {
         const auto & connect = request.connect_modules();
         return done( requests_.connect( connect ), requests_.subject( connect.m1(), kConnect ) );
      }
      case Request::kDisconnectModules: {
         const auto & disconnect = request.disconnect_modules();
         return done( requests_.disconnect( disconnect ), requests_.subject( disconnect.name(), kDisconnect ) );
      }
      case Request::REQUEST_NOT_SET: return done( refuse( EINVAL, "the request says nothing" ), {} );
      }
   }

 private:
   void run( const CommandRun & run ) {
      Requests::Target target;
      const auto found = requests_.find( run.module(), run.cmd(), run.type(), target );
      const auto subject = requests_.subject( run.module(), run.cmd() );
      int read = 0;
      for ( int at = 0; at < run.arg_size(); ++at ) {
         if ( !found.ok() ) {
            refused( found, subject );
         } else {
            while ( read < std::min( at + Requests::Target::kAhead, run.arg_size() ) ) target.read( run.arg( read++ ) );
            Answer answer;
            const auto out = target.run( answer );
            if ( answer ) answered( *answer );
            if ( !out.ok() ) refused( out, subject );
         }
         ++index_;
         if ( between_ ) between_();
      }
   }

   void run( const bess::pb::CreateModuleRequest & request ) {
      bess::pb::CreateModuleResponse made;
      const auto out = requests_.create( request, *made.mutable_name() );
      if ( out.ok() && request.name().empty() ) {
         google::protobuf::Any answer;
         answer.PackFrom( made );
         answered( answer );
      }
      done( out, subjectOf( request ) );
   }

   void done( const Outcome & out, const Subject & subject ) {
      if ( !out.ok() ) refused( out, subject );
      ++index_;
   }

   void refused( const Outcome & out, const Subject & subject ) {
      const auto before = reply_.refusal_size();
      auto & refusal = *reply_.add_refusal();
      refusal.set_index( index_ );
      report( subject, out.refusal(),
              before < kRefusalsWithStatus ? Telling::status
              : before < kRefusalsWithText ? Telling::text
                                           : Telling::code,
              refusal );
   }

   void answered( google::protobuf::Any & data ) {
      auto & answer = *reply_.add_answer();
      answer.set_index( index_ );
      answer.mutable_data()->Swap( &data );
   }

   Requests & requests_;
   BatchReply & reply_;
   const std::function< void() > & between_;
   std::uint32_t index_ = 0;
};

} // namespace

Subject subjectOf( const bess::pb::CreateModuleRequest & request ) {
   const bool known = findModuleClass( request.mclass() ) != nullptr;
   return { request.name(), known ? request.mclass() : std::string_view(), kCreate };
}

void applyBatch( Requests & requests, const Batch & batch, BatchReply & reply,
                 const std::function< void() > & between ) {
   reply.set_number( batch.number() );
   BatchRun run( requests, reply, between );
   for ( const auto & request : batch.request() ) run.run( request );
}

} // namespace Vexdp
