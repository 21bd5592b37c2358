#include "HostDaemon.h"

#include "GantAsio.h"
#include "HostDocument.h"
#include "HostKernelDeviceWatcher.h"
#include "HostNetlink.h"
#include "HostNotify.h"
#include "HostVerdict.h"
#include "HulVrfRootSm.h"
#include "RuntimeDirectory.h"
#include "VexCommonSmData.h"
#include "VexGrpcChannel.h"
#include "VexL3AgentSm.h"

#include <asio/signal_set.hpp>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <spdlog/spdlog.h>

namespace Host {

namespace {

// Lines of a route file in one turn of the loop.
constexpr size_t linesPerTurn = 1024;
// How often memory that is not needed is looked for, in seconds.
constexpr double trimEvery = 20;

// A routing suite connects again within three seconds, and tells its table without a pause.
constexpr double fpmPatience = 5; // seconds

double systemSeconds() {
   return std::chrono::duration< double >( std::chrono::system_clock::now().time_since_epoch() ).count();
}

Supervisor::Config withWatchers( Supervisor::Config config, KernelDeviceWatcher * watcher, LinkWatcher linkWatcher ) {
   config.kernelWatcher = watcher;
   config.linkWatcher = std::move( linkWatcher );
   return config;
}

void tellOfSource( const std::string & text, bool error ) {
   spdlog::log( error ? spdlog::level::warn : spdlog::level::info, "{}", text );
}

void tellSourceError( const SourceError & error ) { spdlog::error( "{}", error.stringValue() ); }

} // namespace

struct Daemon::Signals {
   explicit Signals( Daemon & daemon ) : set( Gant::ioContext(), SIGTERM, SIGINT, SIGHUP ), daemon( daemon ) {
      set.add( SIGCHLD );
      wait();
   }
   void wait() {
      set.async_wait( [ this ]( const std::error_code & error, int number ) {
         if ( error ) return;
         wait();
         daemon.handleSignal( number );
      } );
   }
   asio::signal_set set;
   Daemon & daemon;
};

struct Daemon::GantClock : Gant::Clock::Notifiee {
   explicit GantClock( Daemon * owner ) : Notifiee( owner, owner->clock_ ), owner( owner ) {}
   void onTime() override { owner->handleClock(); }
   Daemon * owner;
};

// The data plane's devices in the kernel are those that the kernel's side looks after.
struct Daemon::KernelJoint : KernelDeviceWatcher {
   explicit KernelJoint( KernelTwin & twin ) : twin( twin ) {}
   void kernelDeviceIs( const KernelDevice & device ) override {
      twin.deviceIs( device.intfId, { std::string( device.name ), std::string( device.netns ) } );
   }
   void kernelDeviceDel( Kynet::IntfId intfId ) override { twin.deviceDel( intfId ); }
   KernelTwin & twin;
};

Daemon::Daemon( Options options ) :
     options_( std::move( options ) ), startedAt_( systemSeconds() ), begunAt_( Gant::activityManager()->now() ),
     kernel_( state_, []( const std::string & error ) { spdlog::warn( "{}", error ); } ),
     kernelJoint_( std::make_unique< KernelJoint >( kernel_ ) ), sources_( state_, options_.sources, tellSourceError ),
     fpm_( state_, options_.fpm,
           { [ this ]( U32 index ) {
               return kernel_.intfAt( state_.vrfBook().netns( L3::VrfName::defaultVrf() ), index );
            },
             [ this ] { return backlog(); },
             { [ this ]( auto af, U32 slot ) { return outcomeOf( af, slot ); },
               [ this ]( Kynet::IntfId intfId ) { return kernel_.indexOf( intfId ); } },
             tellOfSource } ),
     supervisor_( state_.tree(),
                  withWatchers( options_.dataPlane, kernelJoint_.get(),
                                [ this ]( Kynet::IntfId intfId, bool up ) { state_.linkIs( intfId, up ); } ),
                  { [ this ] { return !sources_.busy(); },
                    [ this ] {
                       if ( feedHeld_ ) postFeed();
                       if ( !backlog() ) fpm_.resume();
                    },
                    [ this ] { tellFed(); }, [ this ]( double seconds ) { return sourcesTold( seconds ); },
                    [ this ] { kernel_.leftoversHeldIs( false ); } } ),
     clock_( Gant::activityManager()->newClock() ), clockReactor_( std::make_unique< GantClock >( this ) ) {
   state_.keysRefusedIs( options_.keysRefused() );
   state_.sources().quietIs( options_.sourceQuiet );
   if ( options_.fpm.receiveBuffer != 0 ) receiveBufferIs( options_.fpm.receiveBuffer );
   kernel_.leftoversHeldIs( true );
   kernel_.indexWatcherIs( [ this ] { fpm_.devicesChanged(); } );
   clock_->timeMinIs( clock_->now() + trimEvery );
}

Daemon::~Daemon() { *alive_ = false; }

bool Daemon::run() {
   if ( const auto why = openSocket(); !why.empty() ) {
      spdlog::error( "{}", why );
      return false;
   }
   if ( !sources_.load() ) return false;
   tellKernel();
   signals_ = std::make_unique< Signals >( *this );
   if ( options_.sources.description.empty() )
      spdlog::info( "no --config: the router is empty, until vexctl or a route file tells it something" );
   if ( !options_.metrics.empty() )
      if ( const auto why = metrics_.open( options_.metrics ); !why.empty() ) {
         spdlog::error( "{}", why );
         return false;
      }
   supervisor_.start();
   // Until the routing suite has told everything by FPM, what it has put into the kernel holds.
   fpm_.beginWatcherIs( [ this ] { kernel_.source().suiteStarted(); } );
   fpm_.completeWatcherIs( [ this ] { kernel_.source().suiteIs( true ); } );
   fpm_.start( state_.vrfBook().netns( L3::VrfName::defaultVrf() ) );
   postFeed();
   notifyReady( "waiting for the data plane" );
   Gant::activityManager()->turnWatcherIs( [ this ]( double began, double ended ) { handleTurn( began, ended ); } );
   Gant::activityManager()->run();
   Gant::activityManager()->turnWatcherIs( nullptr );
   control_.close();
   fpm_.stop();
   signals_ = nullptr;
   return true;
}

// What the description says of the kernel as a whole.
void Daemon::tellKernel() {
   kernel_.routesWrittenIs( sources_.kernelRoutes() );
   kernel_.outcomesAre( !sources_.kernelOffload() ? OutcomeOf()
                                                  : [ this ]( auto af, U32 slot ) { return outcomeOf( af, slot ); } );
}

std::string Daemon::openSocket() {
   const auto own = Runtime::directory();
   if ( std::filesystem::path( options_.socket ).parent_path() == own )
      if ( auto why = Runtime::prepare( own ); !why.empty() ) return why;
   return control_.open( options_.socket );
}

void Daemon::handleSignal( int number ) {
   switch ( number ) {
   case SIGCHLD: supervisor_.handleChild(); break;
   case SIGHUP: reload(); break;
   default:
      spdlog::info( "ending on {}", number == SIGINT ? "SIGINT" : "SIGTERM" );
      notifyStopping();
      stopping_ = true;
      Gant::activityManager()->stop();
   }
}

void Daemon::handleTurn( double began, double ended ) {
   meters_.loop.turn( began, ended );
   if ( const auto * const session = supervisor_.session() ) {
      const auto & channel = *session->channel();
      meters_.convergence.turn( began, ended, channel.requestsQueued(), channel.requestsAcknowledged() );
   } else {
      meters_.convergence.sessionEnded();
   }
}

bool Daemon::backlog() const {
   const auto * const session = supervisor_.session();
   return session != nullptr && session->channel()->congested();
}

void Daemon::handleClock() {
   clock_->timeMinIs( clock_->now() + trimEvery );
   const auto * const session = supervisor_.session();
   const bool quiet =
        session == nullptr || session->channel()->requestsQueued() == session->channel()->requestsAcknowledged();
   if ( quiet && !sources_.busy() ) trimmer_.look();
}

void Daemon::postFeed() {
   feedHeld_ = false;
   if ( std::exchange( feedPosted_, true ) ) return;
   Gant::activityManager()->post( [ this, alive = alive_ ] {
      if ( !*alive ) return;
      feedPosted_ = false;
      feed();
   } );
}

void Daemon::feed() {
   if ( stopping_ || !sources_.busy() ) return;
   if ( backlog() ) {
      // Its next acknowledgement, or its loss and the next session's first one, goes on here.
      feedHeld_ = true;
      return;
   }
   if ( sources_.step( linesPerTurn ) ) {
      postFeed();
      return;
   }
   const auto routes = state_.routes( Teller::routeFile() );
   spdlog::info( "{}: {} routes, {} errors in the sources", sources_.routeFile(), routes, sources_.errors().count() );
}

void Daemon::tellFed() { notifyStatus( fmt::format( "running, {} routes", state_.tree().fib->routes() ) ); }

bool Daemon::sourcesTold( double seconds ) {
   if ( !kernel_.read() ) return false;
   if ( options_.fpm.address.empty() ) return true;
   const auto now = Gant::activityManager()->now();
   const auto messages = fpm_.facts().messages;
   if ( std::exchange( fpmMessages_, messages ) != messages ) fpmQuietAt_ = now;
   return std::min( seconds, now - fpmQuietAt_ ) >= fpmPatience;
}

RouteOutcome Daemon::outcomeOf( Kynet::AddressFamily::Value af, U32 slot ) const {
   const auto agent = this->agent();
   if ( !agent ) return RouteOutcome::pending;
   switch ( agent->hulVrfRootSm()->routeProgress( af, slot ).value() ) {
   case Hul::RouteProgress::pending_: return RouteOutcome::pending;
   case Hul::RouteProgress::programmed_: return RouteOutcome::programmed;
   case Hul::RouteProgress::refused_: return RouteOutcome::refused;
   }
   return RouteOutcome::pending;
}

Gant::Ptr< VexL3Unicast::AgentSm > Daemon::agent() const {
   const auto * const session = supervisor_.session();
   return session == nullptr ? nullptr : session->agent();
}

Gant::Ptr< Vex::VexCommonSmData > Daemon::vexcsd() const {
   const auto * const session = supervisor_.session();
   return session == nullptr ? nullptr : session->vexcsd();
}

Gant::Ptr< Vex::GrpcChannel > Daemon::channel() const {
   const auto * const session = supervisor_.session();
   return session == nullptr ? nullptr : session->channel();
}

const Ports * Daemon::ports() const {
   const auto * const session = supervisor_.session();
   return session == nullptr ? nullptr : session->ports();
}

DaemonStatus Daemon::status() const {
   DaemonStatus status;
   status.phase = supervisor_.phase();
   status.startedAt = startedAt_;
   status.upSeconds = Gant::activityManager()->now() - begunAt_;
   if ( backlog() ) status.paused = fmt::format( "{} requests wait for the data plane", channel()->requestsWaiting() );
   status.dataPlane = supervisor_.config().dataPlane;
   status.dataPlanePid = supervisor_.dataPlanePid();
   status.owner = supervisor_.owner();
   status.ownedSince = supervisor_.ownedSince();
   status.ownedSeconds = supervisor_.ownedSeconds();
   status.restarts = supervisor_.restarts();
   status.lastLoss = supervisor_.lastLoss();
   if ( const auto * const session = supervisor_.session() ) {
      status.beside = session->channel()->beside();
      status.inStep = session->inStep();
      status.changeOverSeconds = session->changeOverSeconds();
   }
   status.lastFedSeconds = supervisor_.lastFedSeconds();
   status.description = sources_.description();
   status.routeFile = sources_.routeFile();
   status.reloads = reloads_;
   status.sourceErrors = static_cast< unsigned >( sources_.errors().count() );
   return status;
}

ChangeResult Daemon::change( ChangeOp op, const std::string & kind, const std::string & entry ) {
   return applyChange( state_, op, kind, entry );
}

ChangeResult Daemon::reload() {
   notifyReloading();
   ++reloads_;
   const bool read = sources_.load();
   tellKernel();
   const auto errors = sources_.errors().count();
   postFeed();
   notifyReady( "reloaded" );
   if ( !read ) {
      const auto reason = sources_.errors().errors().front().stringValue();
      spdlog::error( "the reload changed nothing" );
      return refused( reason );
   }
   spdlog::info( "reloaded {}: {} errors", sources_.description(), errors );
   if ( errors == 0 ) return done();
   return { ChangeResult::Code::done, std::to_string( errors ) + " errors in the sources, the first one: " +
                                           sources_.errors().errors().front().stringValue() };
}

namespace {

// Has the section overwrite the entry's secrets, whatever becomes of the change.
class Forgetting {
 public:
   Forgetting( const Section & section, const Entry & entry ) : section_( section ), entry_( entry ) {}
   Forgetting( const Forgetting & ) = delete;
   Forgetting & operator=( const Forgetting & ) = delete;
   ~Forgetting() { section_.forget( entry_ ); }

 private:
   const Section & section_;
   const Entry & entry_;
};

} // namespace

ChangeResult applyChange( RouterState & state, ChangeOp op, const std::string & kind, const std::string & text ) {
   try {
      const auto & section = sectionOfKind( kind );
      const Entry entry( parseDocument( text, entryBounds ) );
      const Forgetting forgetting( section, entry );
      if ( op == ChangeOp::del ) return section.del( state, entry );
      const auto name = kind + " " + section.key( entry );
      if ( op == ChangeOp::add && section.has( state, entry ) ) return refused( name + " is there already" );
      return section.replace( state, entry, Teller::command() );
   } catch ( const EntryError & error ) {
      return invalid( kind + ": " + error.what() );
   }
}

} // namespace Host
