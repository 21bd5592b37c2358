#include "HostSession.h"

#include "HostAgent.h"
#include "HostLog.h"
#include "HulVrfRootSm.h"
#include "vex/counter_table.h"
#include "VexCommonSmData.h"
#include "VexCounterDb.h"
#include "VexGrpcChannel.h"
#include "VexKyAclDb.h"
#include "VexL3AgentSm.h"
#include "VexQosCpuPolicy.h"

#include <malloc.h>
#include <spdlog/spdlog.h>

namespace Host {

namespace {

// How often a session that is being fed is asked whether it has been, in seconds.
constexpr double fedLookEvery = 0.01;
// How often counters that are not to be had are tried again, in seconds.
constexpr double mapEvery = 1;

} // namespace

struct Session::GantChannel : Vex::Channel::Notifiee {
   explicit GantChannel( Session * owner ) : Notifiee( owner, owner->channel_ ), owner( owner ) {}
   void onAcknowledged() override { owner->later( &Session::handleAcknowledged ); }
   void onOwner() override { owner->later( &Session::tellStandBy ); }
   void onInStep() override { owner->later( &Session::handleInStep ); }
   void onLost() override { owner->later( &Session::tellLost ); }
   Session * owner;
};

struct Session::GantClock : Gant::Clock::Notifiee {
   explicit GantClock( Session * owner ) : Notifiee( owner, owner->clock_ ), owner( owner ) {}
   void onTime() override { owner->later( &Session::handleClock ); }
   Session * owner;
};

struct Session::GantCounterClock : Gant::Clock::Notifiee {
   explicit GantCounterClock( Session * owner ) : Notifiee( owner, owner->counterClock_ ), owner( owner ) {}
   void onTime() override { owner->later( &Session::mapCounters ); }
   Session * owner;
};

Session::Session( const StateTree & tree, const Way & way, Events events ) :
     tree_( tree ), state_( tree ), way_( way ), events_( std::move( events ) ),
     channel_( Gant::make< Vex::GrpcChannel >( way.peer, way.takeOver, way.silenceMost, true ) ),
     global_( Gant::make< Vex::ModuleGlobalCmdConfig >( channel_ ) ), clock_( Gant::activityManager()->newClock() ),
     counterClock_( Gant::activityManager()->newClock() ), begunAt_( clock_->now() ),
     channelReactor_( std::make_unique< GantChannel >( this ) ), clockReactor_( std::make_unique< GantClock >( this ) ),
     counterClockReactor_( std::make_unique< GantCounterClock >( this ) ) {
   // Its one request is the first of the session: once it is acknowledged, there is a data plane.
   const auto pair = global_->moduleConfigStatusPairIs( "engine" );
   const auto trap = Gant::make< Vex::TrapModule >( pair );
   vexcsd_ = Gant::make< Vex::VexCommonSmData >( global_, trap,
                                                 Gant::make< Vex::BessCounterInfo >( vex::counters::kSlots ) );
}

Session::~Session() {
   *alive_ = false;
   gantDoZombieReactors( true );
   ports_ = nullptr;
   const TraceSilence silence;
   // What the agent takes away as it goes is to stay in the data plane.
   channel_->leave();
   agent_ = nullptr;
   cpuPolicy_ = nullptr;
   portSm_ = nullptr;
   vexcsd_ = nullptr;
}

void Session::later( void ( Session::*work )() ) {
   Gant::activityManager()->post( [ this, work, alive = alive_ ] {
      if ( *alive ) ( this->*work )();
   } );
}

void Session::handleAcknowledged() {
   if ( !agent_ && !channel_->lost() ) start();
   events_.acknowledged();
}

// The rule database, the counters of its rules, and the control plane's policy.
void Session::startRuleTables() {
   vexcsd_->kyAclDbIs( Gant::make< Vex::KyAclDb >( global_->moduleConfigStatusPairIs( "engine" ) ) );
   mapCounters();
   vexcsd_->bessCounterInfo()->counterMirelIs( state_.counterMirel );
   cpuPolicy_ = Gant::make< Vex::QosCpuPolicy >( vexcsd_ );
   cpuPolicy_->hwInit();
}

// The data plane may have had no room for them.
void Session::mapCounters() {
   const auto & path = channel_->counterPath();
   if ( path.empty() ) return;
   const auto error = state_.counterMirel->map( path );
   if ( error.empty() ) return;
   if ( !agent_ ) spdlog::warn( "{}", error );
   counterClock_->timeMinIs( counterClock_->now() + mapEvery );
}

void Session::start() {
   if ( stoodBy_ ) begunAt_ = clock_->now();
   ports_ =
        Gant::make< Ports >( tree_.deviceDir, way_.peer, way_.kernelWatcher, way_.linkWatcher, !channel_->beside() );
   startRuleTables();
   vexcsd_->routesMostIs( channel_->routesMost() );
   portSm_ = Gant::make< PortSm >( tree_.portDir, vexcsd_, global_->moduleConfigStatusPairIs( "engine" ) );
   agent_ = agentOver( tree_, state_, vexcsd_ );
   agent_->initializedIs( true );
   agent_->maybeStartProcessing();
   clock_->timeMinIs( clock_->now() + fedLookEvery );
   inStep_ = !channel_->beside();
   events_.begun();
}

bool Session::settled() const {
   return events_.sourcesRead() && !agent_->hulVrfRootSm()->busy() &&
          channel_->requestsQueued() == channel_->requestsAcknowledged();
}

void Session::handleClock() {
   const bool settled = this->settled();
   if ( settled && !fed_ ) handleFed();
   if ( !inStep_ && !inStepTold_ ) {
      const auto seconds = clock_->now() - begunAt_;
      const bool told = settled && !ports_->changing() && ports_->linksKnown() && events_.sourcesTold( seconds );
      if ( told || ( seconds >= way_.inStepMost && events_.sourcesRead() ) ) tellInStep();
   }
   if ( !fed_ || ( !inStep_ && !inStepTold_ ) ) clock_->timeMinIs( clock_->now() + fedLookEvery );
}

void Session::handleFed() {
   fed_ = true;
   fedSeconds_ = clock_->now() - begunAt_;
   // The queue was as long as the table; its memory is not needed again.
   malloc_trim( 0 );
   events_.fed();
   if ( inStep_ ) events_.inStep();
}

void Session::tellInStep() {
   inStepTold_ = true;
   channel_->inStepIs();
}

void Session::handleInStep() {
   const auto & done = *channel_->inStep();
   inStep_ = true;
   if ( done.changed ) {
      changeOverSeconds_ = done.held;
      spdlog::info( "in step after {:.3f} s: the data plane forwards by what it was told; packets waited {:.0f} us",
                    clock_->now() - begunAt_, done.held * 1e6 );
   } else {
      spdlog::warn( "in step after {:.3f} s; what forwarded before has gone early: {}", clock_->now() - begunAt_,
                    done.early.empty() ? "somebody has emptied the data plane" : done.early );
   }
   ports_->sweepIs();
   events_.inStep();
}

void Session::tellStandBy() {
   stoodBy_ = true;
   if ( !channel_->owner().empty() ) events_.standBy();
}

void Session::tellLost() { events_.lost( channel_->lossReason() ); }

} // namespace Host
