// The rule tables of the data plane as the agent means them: record by record, with what the user wrote.
#pragma once

#include "HostAgentView.h"
#include "vex/acl.pb.h"
#include "VexKyAclDb.h"

namespace Host {

struct MeantRule {
   std::string place; // "sequence 20", "class voice, access-list v, sequence 10"
   vex::pb::KyIpAclArg::IpRule record;
};

struct MeantTable {
   Vex::AclTarget target = Vex::AclTarget::security;
   // The control plane's policy is the only one of its target, and its id is not known here: 0.
   U32 id = 0;
   std::string object; // "access-list web", "policy-map edge", "control-plane policy"
   std::vector< MeantRule > rules;
};

// Of the tables that the agent has told, all or one. A list that has changed and is not programmed yet is given as it
// is now.
std::vector< MeantTable > meantTables( const AgentView & view );
std::optional< MeantTable > meantTable( const AgentView & view, Vex::AclTarget target, U32 id );

// A rule of the control plane's policy, by the name of its counter.
struct ControlPlaneRule {
   U32 protocol;   // 0: any
   U32 sourcePort; // 0: any
   U32 destinationPort;
   U32 dscp; // 255: any
   U32 trafficClass;
   Vex::CounterId counter;
};
// In the order of matching.
std::vector< ControlPlaneRule > controlPlaneRules( const AgentView & view );

} // namespace Host
