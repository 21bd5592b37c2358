// A router with a real data plane behind it: the state, an agent over a gRPC channel, and vexdp as a process. It is to
// the command socket what the daemon is.
#pragma once

#include "HostDaemonControl.h"
#include "MirelFib.h"
#include "QuorlEntityManager.h"
#include "StateArp.h"
#include "StateInterface.h"
#include "StateIp.h"
#include "VexCommonSmData.h"
#include "VexGrpcChannel.h"
#include "VexL3AgentSm.h"
#include "VexL3Mounts.h"

#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>

namespace Test {

// A directory that goes with its object.
class Directory {
 public:
   Directory();
   ~Directory();
   std::string path( const char * name ) const { return path_ + "/" + name; }

 private:
   std::string path_;
};

class DataPlane {
 public:
   explicit DataPlane( const Directory & directory );
   ~DataPlane();
   const std::string & address() const { return address_; }
   pid_t pid() const { return pid_; }

 private:
   const std::string address_;
   pid_t pid_;
};

// Runs the loop until it is so. A test in which that never comes fails here.
void runUntil( const std::function< bool() > & isSo );

class TestRouter : public Host::DaemonControl {
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

   // What a router is told.
   void vrf( const char * name, U32 id );
   void intf( const char * name, const char * address, const char * vrfName = "default" );
   void intfGone( const char * name );
   void tunnel( const char * name, const char * source, const char * destination );
   void neighbor( const char * intfName, const char * address, const char * mac );
   void fec( U64 fecId, const Mirel::Vias & vias );
   void route( const char * prefix, U64 fecId, U32 vrfId = 0 );
   void route6( const char * prefix, U64 fecId );
   // Until the data plane holds all of it.
   void settle();
   // The session is over, and there is no other.
   void lose();

   // Everything that was asked of it, one to a line.
   std::string changes;
   Gant::Ptr< Mirel::Fib::RouteStatus > fib = Gant::make< Mirel::Fib::RouteStatus >();

 private:
   void mount();

   Directory directory_;
   std::unique_ptr< DataPlane > dataPlane_;
   Host::DaemonStatus status_;
   Gant::Ptr< Quorl::EntityManager > em_ = Gant::make< Quorl::EntityManager >( "vexl3" );
   Gant::Ptr< Bridging::Config > bridgingConfig_ = Gant::make< Bridging::Config >( "bridging/config" );
   Gant::Ptr< Ip::AllVrfStatusLocal > vrfs_ = Gant::make< Ip::AllVrfStatusLocal >();
   Gant::Ptr< Ip::Status > ipStatus_ = Gant::make< Ip::Status >();
   Gant::Ptr< Interface::AllIntfStatusDir > intfs_ = Gant::make< Interface::AllIntfStatusDir >();
   Gant::Ptr< Interface::TunnelIntfStatusDir > tunnels_ = Gant::make< Interface::TunnelIntfStatusDir >();
   Gant::Ptr< Arp::Table::Status > arp_ = Gant::make< Arp::Table::Status >();
   Gant::Ptr< Mirel::Fib6::RouteStatus > fib6_ = Gant::make< Mirel::Fib6::RouteStatus >();
   Gant::Ptr< VexL3Unicast::RoutingMounts > routingMounts_ = VexL3Unicast::routingMountsFactory();
   Gant::Ptr< VexL3Unicast::VrfMounts > vrfMounts_ = VexL3Unicast::vrfMountsFactory();
   Gant::Ptr< VexL3Unicast::IpsecMounts > ipsecMounts_ = VexL3Unicast::ipsecMountsFactory();

   Gant::Ptr< Vex::GrpcChannel > channel_;
   Gant::Ptr< Vex::ModuleConfigStatusPair > enginePair_;
   Gant::Ptr< Vex::VexCommonSmData > vexcsd_;
   Gant::Ptr< VexL3Unicast::AgentSm > agent_;
};

Mirel::Via via( const char * hop, const char * intfName, U16 weight = 1 );

} // namespace Test
