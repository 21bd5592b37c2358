// show errors: what the data plane refused. show queue: what is on its way there.

#include "HostAgentView.h"
#include "HostShows.h"
#include "VexDescribe.h"

#include <cstring>

namespace Host {

namespace {

std::unique_ptr< Answer > errors( const Asked & asked ) {
   const AgentView session( asked.daemon );
   return atOnce( [ session ]( Output & out ) {
      const auto channel = session.channel();
      const auto now = Gant::activityManager()->now();
      for ( const auto & refusal : channel->refusals() ) {
         const char * const errnoName = strerrorname_np( refusal.code );
         out.row( { { "secondsAgo", now - refusal.time },
                    { "module", refusal.module },
                    { "action", refusal.action },
                    { "argument", refusal.argument },
                    { "code", refusal.code },
                    { "errno", errnoName == nullptr ? "" : errnoName },
                    { "text", refusal.text } } );
      }
      out.endMember( "refused", channel->requestsRefused() );
      out.endMember( "kept", Vex::Channel::refusalsKept );
   } );
}

std::unique_ptr< Answer > queue( const Asked & asked ) {
   const AgentView session( asked.daemon );
   const auto most = std::min< U64 >( asked.question.number( "most", 100 ), 10000 );
   return atOnce( [ session, most ]( Output & out ) {
      const auto channel = session.channel();
      channel->describeQueue( most, [ & ]( const Vex::DescribedRequest & request, bool outstanding ) {
         out.row( { { "state", outstanding ? "sent" : "waiting" },
                    { "module", request.module },
                    { "action", request.action },
                    { "argument", request.argument } } );
      } );
      out.endMember( "sent", channel->requestsOutstanding() );
      out.endMember( "waiting", channel->requestsWaiting() );
      out.endMember( "waitingBytes", channel->bytesWaiting() );
      out.endMember( "oldestSentSeconds", channel->oldestOutstanding() );
      out.endMember( "queued", channel->requestsQueued() );
      out.endMember( "acknowledged", channel->requestsAcknowledged() );
   } );
}

} // namespace

Commands requestShows() {
   return { { "show errors", {}, errors }, { "show queue", { { "most", Parameter::Kind::number } }, queue } };
}

} // namespace Host
