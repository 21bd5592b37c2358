// Keeps a session with a data plane: begins it, notices its loss, and begins the next one.
#pragma once

#include "HostDaemonControl.h"
#include "HostDataPlane.h"
#include "HostSession.h"

namespace Host {

// States, which are those of Phase, and what leads out of them:
//
//   starting   the data plane is started where it is a child, waited for, and connected to
//      -> running   it answers
//      -> standby   it answers that another agent has it
//      -> waiting   it cannot be had
//   standby    this daemon's session waits at the data plane
//      -> running   the others' sessions have ended
//      -> waiting   the session is lost
//   running    a session with an agent
//      -> waiting   the session is lost, as when nothing is heard of the data plane any more, or the child has ended
//   waiting    there is no session; a restart is due
//      -> starting  its time has come
//
// A daemon that is to take the data plane over does so once, until it has had it: whoever loses it stands by.
//
// The first restart comes at once, each further one after twice the time of the one before, until a session has been
// fed.
class Supervisor : public Gant::StateMachine {
 public:
   struct Config {
      std::string dataPlane = "embedded"; // or an address as GrpcChannel takes it
      std::string program{};              // of an embedded one; empty: the one that belongs to this executable
      std::string dataPlaneLog = "warning";
      Vex::TlsFiles tls{};                           // to one at HOST:PORT
      bool insecureTcp = false;                      // to such a one without them, and without keys
      double silenceMost = 3;                        // seconds after which it is lost; 0: it never is
      bool takeOver = false;                         // also from another agent that has it
      unsigned maxRoutes = 1u << 22;                 // that an embedded one holds
      unsigned workers = 1;                          // of an embedded one
      KernelDeviceWatcher * kernelWatcher = nullptr; // told of the router's devices in the kernel; not owned
      LinkWatcher linkWatcher{};                     // told of the ports' links
      double inStepMost = 60; // seconds for which a former session's graph forwards at most beside a new one
   };
   struct Events {
      std::function< bool() > sourcesRead;
      std::function< void() > acknowledged; // the data plane has taken some of what it was told
      std::function< void() > fed;
      std::function< bool( double seconds ) > sourcesTold = []( double ) { return true; }; // as of Session
      std::function< void() > inStep = [] {};                                              // the same
   };
   Supervisor( const StateTree & tree, Config config, Events events );
   // Ends the session, and an embedded data plane.
   ~Supervisor() override;

   void start();
   // A child of this process has ended: look whether it was the data plane.
   void handleChild();

   Phase phase() const { return phase_; }
   // Null while there is none, or its data plane has not answered yet.
   Session * session() const { return phase_ == Phase::running ? session_.get() : nullptr; }
   // Who has the data plane, on standby; otherwise empty and 0.
   std::string owner() const;
   double ownedSince() const;
   double ownedSeconds() const;
   int dataPlanePid() const { return dataPlane_ ? dataPlane_->pid() : 0; }
   unsigned restarts() const { return restarts_; }
   const std::string & lastLoss() const { return lastLoss_; }
   double lastFedSeconds() const { return lastFedSeconds_; }
   const Config & config() const { return config_; }

 private:
   struct GantClock;
   void handleClock();
   void begin();
   void connect();
   void standBy();
   void lost( const std::string & reason );
   void wake( double seconds );

   const StateTree & tree_;
   const Config config_;
   const Events events_;
   std::unique_ptr< DataPlane > dataPlane_; // null: not embedded
   Gant::Ptr< Session > session_;
   Phase phase_ = Phase::starting;
   bool takeOver_;
   double startedAt_ = 0; // of the data plane that is waited for
   double ownedFor_ = 0;  // seconds, when this daemon heard of it, on standby
   double heardAt_ = 0;
   double backOff_ = 0; // seconds
   unsigned restarts_ = 0;
   std::string lastLoss_;
   double lastFedSeconds_ = 0;
   Gant::Ptr< Gant::Clock > clock_;
   std::unique_ptr< GantClock > clockReactor_;
};

} // namespace Host
