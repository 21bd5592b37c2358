// The agent of one session, as a command looks at it, and the words for what it holds.
#pragma once

#include "HostAnswer.h"
#include "VexCommonSmData.h"
#include "VexGrpcChannel.h"
#include "VexL3AgentSm.h"
#include "VexL3Modules.h"
#include "VexL3Mounts.h"
#include "VexL3Types.h"

#include <optional>

namespace Host {

// A session's agent. Each accessor throws `unavailable` when there is no agent, or when it is another session's by now:
// an answer that takes several turns never mixes two.
//
// Nobody beside the owners keeps a proxy or an interface over a turn of the loop: a new one of the same name would be
// refused, or destroyed with the old one. An answer keeps names and ids, and looks the object up at each step.
class AgentView {
 public:
   explicit AgentView( DaemonControl & daemon );

   Gant::Ptr< VexL3Unicast::AgentSm > agent() const;
   Gant::Ptr< Vex::VexCommonSmData > vexcsd() const;
   Gant::Ptr< Vex::GrpcChannel > channel() const;
   Gant::Ptr< VexL3Unicast::RouteDb > routeDb() const { return agent()->routeDb(); }
   Gant::Ptr< VexL3Unicast::L3Modules > l3Modules() const { return agent()->l3Modules(); }
   const VexL3Unicast::RoutingMounts & routing() const { return *agent()->routingMounts(); }

   // Null: the daemon makes none.
   const Ports * ports() const;

   // Sessions are counted from the daemon's start.
   unsigned number() const { return number_; }

   // Every module proxy, by name.
   std::map< std::string, Vex::Module * > modules() const;

 private:
   void check() const;

   DaemonControl & daemon_;
   unsigned number_;
};

// The VRFs that a request names: "all", one by its name, or the default one. Throws `notFound`.
std::vector< std::pair< U32, std::string > > vrfsOf( const AgentView & session, const std::string & name );
std::string vrfName( const AgentView & session, Hul::VrfId vrfId );

// Throws `usage` for a text that is no interface's name.
Kynet::IntfId intfOf( const std::string & text );

// An address or a prefix as a person gives it; an address has no length.
struct Target {
   Kynet::IpGenAddr address;
   std::optional< U8 > len;
};
// "default" is 0.0.0.0/0. Throws `usage`, also for host bits behind the prefix.
Target targetOf( const std::string & text );

// The routes that the agent itself gives every VRF.
struct BuiltInRoute {
   Kynet::Prefix prefix;
   VexL3Unicast::FecKey fecKey;
   Vex::GateId gate; // of the FIB
   const char * what;
};
std::vector< BuiltInRoute > builtInRoutes( const AgentView & session, Hul::VrfId vrfId );

// What a next hop does, in one word: "forward", "arpTrap" ...
std::string commandName( VexL3Unicast::NextHopPktCmd command );
// The next hops of a FEC with the places that they have in the data plane.
Json nexthopsOf( const AgentView & session, const VexL3Unicast::Fec & fec );
// A place in the data plane as its FIB has it; the gate is left out where it has none.
Json placeOf( U32 gate, U32 index );
std::string textOrNone( const Kynet::EthAddr & mac );

} // namespace Host
