// The daemon: the router's state, its sources, and the data plane that is kept for it.
//
// What outlives a session with a data plane is here: state, sources, command socket. What belongs to a session is made
// and dies in HostSession.h, so that a lost one is forgotten by letting go of one object.
#pragma once

#include "HostControlServer.h"
#include "HostDaemonControl.h"
#include "HostFpmServer.h"
#include "HostKernelTwin.h"
#include "HostMeters.h"
#include "HostMetrics.h"
#include "HostOptions.h"
#include "HostSources.h"
#include "HostSupervisor.h"
#include "RuntimeMemory.h"

namespace Host {

class Daemon : public DaemonControl, private Gant::StateMachine {
 public:
   explicit Daemon( Options options );
   ~Daemon() override;

   // Reads the sources, starts the data plane and runs the loop until a signal ends it: SIGTERM or SIGINT. SIGHUP reads
   // the sources again. False: the description cannot be read at all, or the command socket or the metrics' address is
   // not to be had, and nothing was started.
   bool run();

   RouterState & state() override { return state_; }
   // For whoever makes the kernel devices of interfaces.
   KernelTwin & kernel() { return kernel_; }
   Gant::Ptr< VexL3Unicast::AgentSm > agent() const override;
   Gant::Ptr< Vex::VexCommonSmData > vexcsd() const override;
   Gant::Ptr< Vex::GrpcChannel > channel() const override;
   const Ports * ports() const override;
   const Meters * meters() const override { return &meters_; }
   DaemonStatus status() const override;
   ChangeResult change( ChangeOp op, const std::string & kind, const std::string & entry ) override;
   ChangeResult reload() override;

 private:
   struct Signals;
   struct KernelJoint;
   struct GantClock;
   // Gives why it cannot be opened.
   std::string openSocket();
   void handleSignal( int number );
   void handleTurn( double began, double ended );
   // Goes on with the sources in a turn of its own, unless the data plane has enough to do.
   void feed();
   void postFeed();
   bool backlog() const;
   // What the data plane has made of a route.
   RouteOutcome outcomeOf( Kynet::AddressFamily::Value af, U32 slot ) const;
   void tellFed();
   // Whether the kernel and a routing suite have told what they have.
   bool sourcesTold( double seconds );
   void tellKernel();
   void handleClock();

   const Options options_;
   const double startedAt_; // seconds of the system clock
   const double begunAt_;   // of the activity clock
   Meters meters_;
   RouterState state_;
   KernelTwin kernel_;
   const std::unique_ptr< KernelJoint > kernelJoint_;
   Sources sources_;
   FpmServer fpm_;
   Supervisor supervisor_;
   ControlServer control_{ *this };
   Metrics metrics_{ *this };
   std::unique_ptr< Signals > signals_;
   Runtime::Trimmer trimmer_;
   Gant::Ptr< Gant::Clock > clock_;
   std::unique_ptr< GantClock > clockReactor_;
   U64 fpmMessages_ = 0;   // when they were looked at last
   double fpmQuietAt_ = 0; // since then there were no more
   unsigned reloads_ = 0;
   bool feedPosted_ = false;
   bool feedHeld_ = false; // until the data plane has acknowledged
   bool stopping_ = false;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
};

// One change of the state, as DaemonControl::change says.
ChangeResult applyChange( RouterState & state, ChangeOp op, const std::string & kind, const std::string & entry );

} // namespace Host
