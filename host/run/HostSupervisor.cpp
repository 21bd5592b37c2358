#include "HostSupervisor.h"

#include "VexGrpcChannel.h"

#include <algorithm>
#include <chrono>
#include <fmt/chrono.h>
#include <spdlog/spdlog.h>
#include <utility>

namespace Host {

namespace {

// All in seconds.
constexpr double firstBackOff = 0.05;
constexpr double mostBackOff = 2;
constexpr double listensEvery = 0.005; // whether a child that was started listens
constexpr double listensWithin = 10;

constexpr double firstWordWithin = 10; // of a peer that is waited for without a limit, until somebody hears of it

constexpr int childPatience = 100; // milliseconds

} // namespace

struct Supervisor::GantClock : Gant::Clock::Notifiee {
   explicit GantClock( Supervisor * owner ) : Notifiee( owner, owner->clock_ ), owner( owner ) {}
   void onTime() override { owner->handleClock(); }
   Supervisor * owner;
};

Supervisor::Supervisor( const StateTree & tree, Config config, Events events ) :
     tree_( tree ), config_( std::move( config ) ), events_( std::move( events ) ), takeOver_( config_.takeOver ),
     clock_( Gant::activityManager()->newClock() ), clockReactor_( std::make_unique< GantClock >( this ) ) {
   if ( config_.dataPlane == "embedded" )
      dataPlane_ = std::make_unique< DataPlane >( config_.program, config_.dataPlaneLog,
                                                  DataPlane::Size{ config_.maxRoutes, config_.workers } );
}

Supervisor::~Supervisor() { session_ = nullptr; }

void Supervisor::start() { begin(); }

void Supervisor::wake( double seconds ) { clock_->timeMinIs( clock_->now() + seconds ); }

void Supervisor::handleClock() {
   if ( phase_ == Phase::waiting ) {
      begin();
      return;
   }
   if ( phase_ != Phase::starting ) return;
   if ( session_ ) {
      spdlog::warn( "the data plane at {} has said nothing for {:g} s; it is waited for without a limit",
                    dataPlane_ ? dataPlane_->address() : config_.dataPlane, firstWordWithin );
   } else if ( dataPlane_->listens() ) {
      connect();
   } else if ( clock_->now() - startedAt_ > listensWithin ) {
      lost( "the data plane was started and does not listen" );
   } else {
      wake( listensEvery );
   }
}

void Supervisor::begin() {
   phase_ = Phase::starting;
   if ( !dataPlane_ ) {
      connect();
      return;
   }
   if ( const auto reason = dataPlane_->start(); !reason.empty() ) {
      lost( reason );
      return;
   }
   startedAt_ = clock_->now();
   wake( listensEvery );
}

void Supervisor::connect() {
   Session::Events events;
   events.begun = [ this ] {
      phase_ = Phase::running;
      takeOver_ = false;
      spdlog::info( "session with the data plane at {}", dataPlane_ ? dataPlane_->address() : config_.dataPlane );
   };
   events.standBy = [ this ] { standBy(); };
   events.acknowledged = events_.acknowledged;
   events.sourcesRead = events_.sourcesRead;
   events.fed = [ this ] {
      lastFedSeconds_ = session_->fedSeconds();
      backOff_ = 0;
      spdlog::info( "the data plane has everything, after {:.3f} s", lastFedSeconds_ );
      events_.fed();
   };
   events.sourcesTold = events_.sourcesTold;
   events.inStep = events_.inStep;
   events.lost = [ this ]( const std::string & reason ) { lost( reason ); };
   const Vex::Peer peer = dataPlane_ ? Vex::Peer( dataPlane_->address() ) : Vex::Peer( config_.dataPlane, config_.tls );
   session_ = Gant::make< Session >( tree_,
                                     Session::Way{ peer, takeOver_, config_.silenceMost, config_.kernelWatcher,
                                                   config_.linkWatcher, config_.inStepMost },
                                     std::move( events ) );
   if ( config_.silenceMost == 0 ) wake( firstWordWithin );
}

std::string Supervisor::owner() const { return phase_ == Phase::standby ? session_->channel()->owner() : ""; }

double Supervisor::ownedSince() const { return phase_ == Phase::standby ? session_->channel()->ownedSince() : 0; }

double Supervisor::ownedSeconds() const { return phase_ == Phase::standby ? ownedFor_ + clock_->now() - heardAt_ : 0; }

void Supervisor::standBy() {
   phase_ = Phase::standby;
   backOff_ = 0;
   heardAt_ = clock_->now();
   const auto wallClock = std::chrono::system_clock::now().time_since_epoch();
   ownedFor_ = std::max( 0.0, std::chrono::duration< double >( wallClock ).count() - ownedSince() );
   const auto since =
        std::chrono::system_clock::time_point( std::chrono::duration_cast< std::chrono::system_clock::duration >(
             std::chrono::duration< double >( ownedSince() ) ) );
   spdlog::warn( "standing by: the data plane belongs to {} since {:%Y-%m-%d %H:%M:%S}", owner(),
                 fmt::localtime( std::chrono::system_clock::to_time_t( since ) ) );
}

void Supervisor::handleChild() {
   if ( !dataPlane_ ) return;
   if ( const auto reason = dataPlane_->ended() ) lost( *reason );
}

void Supervisor::lost( const std::string & given ) {
   auto reason = given;
   if ( dataPlane_ && dataPlane_->pid() != 0 ) {
      // How the child ended says more than that its stream did, which is seen first.
      if ( auto ended = dataPlane_->ended( childPatience ) )
         reason = std::move( *ended );
      else
         dataPlane_->kill();
   }
   const bool news = phase_ == Phase::running || reason != lastLoss_;
   if ( phase_ == Phase::running ) ++restarts_;
   phase_ = Phase::waiting;
   lastLoss_ = reason;
   if ( news ) spdlog::warn( "no data plane: {}; trying again", reason );
   const auto seconds = std::exchange( backOff_, std::min( mostBackOff, std::max( firstBackOff, 2 * backOff_ ) ) );
   // A large table takes the session as long to let go of as a child takes to start.
   const auto former = std::exchange( session_, nullptr );
   if ( dataPlane_ && seconds == 0 )
      begin();
   else
      wake( seconds );
}

} // namespace Host
