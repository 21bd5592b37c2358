// A router with a real data plane behind it: the state, an agent over a gRPC channel, and vexdp as a process. It is to
// the command socket what the daemon is.
#pragma once

#include "HostDaemonControl.h"
#include "Process.h"
#include "QuorlEntityManager.h"
#include "RouterFacts.h"
#include "Steps.h"
#include "VexCommonSmData.h"
#include "VexGrpcChannel.h"
#include "VexL3AgentSm.h"
#include "VexL3Mounts.h"

#include <memory>

namespace Test {

struct DataPlane : Process {
   explicit DataPlane( const Directory & directory );
   const std::string address;
};

class TestRouter : public Host::DaemonControl, public RouterFacts {
 public:
   TestRouter();
   ~TestRouter() override;

   Host::RouterState & state() override;
   Gant::Ptr< VexL3Unicast::AgentSm > agent() const override { return agent_; }
   Gant::Ptr< Vex::VexCommonSmData > vexcsd() const override { return vexcsd_; }
   Gant::Ptr< Vex::GrpcChannel > channel() const override { return channel_; }
   Host::DaemonStatus status() const override { return status_; }
   Host::ChangeResult change( Host::ChangeOp op, const std::string & kind, const std::string & entry ) override;
   Host::ChangeResult reload() override { return {}; }

   // Beside the facts that any router is told.
   void intf( const char * name, const char * address, const char * vrfName = "default" );
   void intfGone( const char * name );
   void tunnel( const char * name, const char * source, const char * destination );
   void route6( const char * prefix, U64 fecId );
   // Until the data plane holds all of it.
   void settle();
   // The session is over, and there is no other.
   void lose();

   // Everything that was asked of it, one to a line.
   std::string changes;

 private:
   std::unique_ptr< Host::RouterState > state_;
   void mount();

   Directory directory_;
   std::unique_ptr< DataPlane > dataPlane_;
   Host::DaemonStatus status_;
   Gant::Ptr< Quorl::EntityManager > em_ = Gant::make< Quorl::EntityManager >( "vexl3" );
   Gant::Ptr< Bridging::Config > bridgingConfig_ = Gant::make< Bridging::Config >( "bridging/config" );
   Gant::Ptr< VexL3Unicast::RoutingMounts > routingMounts_ = VexL3Unicast::routingMountsFactory();
   Gant::Ptr< VexL3Unicast::VrfMounts > vrfMounts_ = VexL3Unicast::vrfMountsFactory();
   Gant::Ptr< VexL3Unicast::IpsecMounts > ipsecMounts_ = VexL3Unicast::ipsecMountsFactory();

   Gant::Ptr< Vex::GrpcChannel > channel_;
   Gant::Ptr< Vex::ModuleConfigStatusPair > enginePair_;
   Gant::Ptr< Vex::VexCommonSmData > vexcsd_;
   Gant::Ptr< VexL3Unicast::AgentSm > agent_;
};

inline Mirel::Via via( const char * hop, const char * intfName, U16 weight = 1 ) {
   return viaTo( hop, intfName, weight );
}

} // namespace Test
