// What an agent writes of the data plane that it has. One place, so that nothing of it outlives the data plane.
#pragma once

#include "HostStateTree.h"

namespace Acl {
class Config;
}

namespace Host {

// The entities that only agents write: what their data plane has taken, can do, and has room for. They stand in the
// tree's mounts and paths while this lives, empty at first. One session at a time has one, from before its agent is
// made until after the agent has gone.
class SessionState {
 public:
   explicit SessionState( const StateTree & tree );
   ~SessionState();
   SessionState( const SessionState & ) = delete;
   SessionState & operator=( const SessionState & ) = delete;

   const Gant::Ptr< Mirel::Fib::UnprogrammedRouteStatus > unprogrammed;
   const Gant::Ptr< Mirel::Fib6::UnprogrammedRouteStatus > unprogrammed6;
   const Gant::Ptr< Gant::Dir > vrfSeqStatusDir;
   const Gant::Ptr< HulCapacity::TableCapacity > capacityStatus;
   // What is told of lists, merged by the agent.
   const Gant::Ptr< Acl::Config > aclConfig;
   const Gant::Ptr< VexModules::MirelCounterDbStatus > counterMirel;

 private:
   // Fresh entities, or nothing, where agents look.
   void mount( bool present ) const;

   const StateTree & tree_;
};

} // namespace Host
