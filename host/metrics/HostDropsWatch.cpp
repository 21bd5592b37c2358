#include "HostDropsWatch.h"

#include "GantActivity.h"
#include "HostAgentView.h"
#include "vex/engine.pb.h"
#include "VexEngineQuery.h"

namespace Host {

DropsWatch::DropsWatch( DaemonControl & daemon ) : daemon_( daemon ) {}

DropsWatch::~DropsWatch() = default;

void DropsWatch::forget() {
   call_ = nullptr;
   query_ = nullptr;
   newest_ = nullptr;
   session_.reset();
   asked_ = false;
}

void DropsWatch::look() {
   const auto now = Gant::activityManager()->now();
   try {
      const AgentView session( daemon_ );
      if ( session_ != session.number() ) {
         forget();
         session_ = session.number();
         query_ = std::make_unique< Vex::EngineQuery >( session.channel()->peer() );
         askAt_ = now;
      }
   } catch ( const CommandError & ) {
      forget();
      return;
   }
   if ( asked_ || now < askAt_ ) return;
   asked_ = true;
   askAt_ = now + askEvery;
   call_ = query_->drops( [ this ]( const auto & error, const auto & reply ) {
      asked_ = false;
      if ( error.empty() && reply.error().code() == 0 )
         newest_ = std::make_shared< const vex::pb::DropsReply >( reply );
   } );
}

} // namespace Host
