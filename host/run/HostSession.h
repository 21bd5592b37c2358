// One session with a data plane: the engine around the agent, and the agent.
#pragma once

#include "HostPorts.h"
#include "HostPortSm.h"
#include "HostSessionState.h"

#include "GantActivity.h"
#include "VexPeer.h"

#include <functional>
#include <optional>

namespace Vex {
class GrpcChannel;
class ModuleGlobalCmdConfig;
class QosCpuPolicy;
} // namespace Vex
namespace VexL3Unicast {
class AgentSm;
}

namespace Host {

// Everything that is made anew for a data plane, and goes with it.
//
//   watches  Channel::onAcknowledged, onOwner, onInStep, onLost
//   calls    agentSmFactory, initializedIs, maybeStartProcessing
//
// States: connecting (there is no agent: nothing is worked out for a data plane that may never come, or that another
// agent has), feeding (the agent stands, and not all that it made of the state is acknowledged), fed, lost. A lost
// session stays lost.
//
// Where the graph of a session before goes on forwarding, it does so until this one is in step: when all sources have
// told what they have, the ports are there with their links known, and all is acknowledged; when `Way::inStepMost` is
// over, the files alone are waited for. What the former session has left elsewhere stays for as long.
class Session : public Gant::StateMachine {
 public:
   // Called in turns of the loop of their own; the session may be let go in them.
   struct Events {
      std::function< void() > begun;        // there is an agent now
      std::function< void() > standBy;      // another agent has the data plane, as channel() says
      std::function< void() > acknowledged; // some requests were
      std::function< bool() > sourcesRead;  // whether the state is complete
      // Whether the sources that tell by themselves have told what they have, after so many seconds of the session.
      std::function< bool( double seconds ) > sourcesTold = []( double ) { return true; };
      std::function< void() > inStep = [] {}; // what it has told forwards, and nothing of another session does
      std::function< void() > fed;
      std::function< void( const std::string & reason ) > lost;
   };
   // As GrpcChannel and Ports take them.
   struct Way {
      Vex::Peer peer;
      bool takeOver = false;
      double silenceMost = 0;
      KernelDeviceWatcher * kernelWatcher = nullptr;
      LinkWatcher linkWatcher{};
      double inStepMost = 60; // seconds
   };
   Session( const StateTree & tree, const Way & way, Events events );
   // The agent goes first, then what it stood on.
   ~Session() override;

   // Null while connecting.
   const Gant::Ptr< VexL3Unicast::AgentSm > & agent() const { return agent_; }
   const Gant::Ptr< Vex::VexCommonSmData > & vexcsd() const { return vexcsd_; }
   const Gant::Ptr< Vex::GrpcChannel > & channel() const { return channel_; }
   // Null while connecting.
   const Ports * ports() const { return ports_.get(); }
   // Seconds from the session's begin, or from the end of its standing by, until it was fed; 0 before.
   double fedSeconds() const { return fedSeconds_; }
   // What it has told is what forwards.
   bool inStep() const { return inStep_; }
   // Seconds that packets waited for that; nothing: no other graph forwarded when it came to that.
   std::optional< double > changeOverSeconds() const { return changeOverSeconds_; }

 private:
   struct GantChannel;
   struct GantClock;
   struct GantCounterClock;
   void handleAcknowledged();
   void handleClock();
   void start();
   void startRuleTables();
   void mapCounters();
   bool settled() const;
   void handleFed();
   void tellInStep();
   void handleInStep();
   // Runs it in a turn of its own, if the session is still there then.
   void later( void ( Session::*work )() );
   void tellStandBy();
   void tellLost();

   const StateTree & tree_;
   const SessionState state_;
   const Way way_;
   Events events_;
   Gant::Ptr< Vex::GrpcChannel > channel_;
   Gant::Ptr< Vex::ModuleGlobalCmdConfig > global_;
   Gant::Ptr< Vex::VexCommonSmData > vexcsd_;
   Gant::Ptr< PortSm > portSm_;
   Gant::Ptr< Vex::QosCpuPolicy > cpuPolicy_;
   Gant::Ptr< VexL3Unicast::AgentSm > agent_;
   Gant::Ptr< Ports > ports_;
   Gant::Ptr< Gant::Clock > clock_;
   Gant::Ptr< Gant::Clock > counterClock_; // set while the counters are not to be had
   double begunAt_ = 0;
   bool stoodBy_ = false;
   double fedSeconds_ = 0;
   bool fed_ = false;
   bool inStepTold_ = false; // to the data plane
   bool inStep_ = false;
   std::optional< double > changeOverSeconds_;
   std::unique_ptr< GantChannel > channelReactor_;
   std::unique_ptr< GantClock > clockReactor_;
   std::unique_ptr< GantCounterClock > counterClockReactor_;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
};

} // namespace Host
