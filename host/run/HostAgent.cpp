#include "HostAgent.h"

#include "HulAdjSm.h"
#include "VexL3AgentSm.h"
#include "VexL3Sm.h"
#include "VexManagementSm.h"

namespace Host {

// The layer counts what the agent hands out. The first entry of a resolve table is nobody's.
static_assert( Hul::NextHopLimits().nextHops == VexL3Unicast::NhIndexManager::indexMax );
static_assert( Hul::NextHopLimits().tunnelNextHops == VexL3Unicast::NhResolve::entriesMax - 1 );

Gant::Ptr< VexL3Unicast::AgentSm > agentOver( const StateTree & tree, const SessionState & session,
                                              const Gant::Ptr< Vex::VexCommonSmData > & vexcsd ) {
   return VexL3Unicast::agentSmFactory(
        StateTree::cellId, tree.em, tree.bridgingConfig, tree.bridgingStatus, tree.ethIntfStatusDir, tree.vlanStatusDir,
        tree.routingMounts, tree.mcastMounts, tree.vrfMounts, tree.bfdMounts, tree.tunnelMounts, tree.ipsecMounts,
        tree.ip4TunnelMounts, tree.fhrpMounts, tree.qosMounts, tree.portVifStatus, tree.mcastVifStatus,
        tree.hulCliCommandRequestDir, tree.vrfSeqConfigDir, session.vrfSeqStatusDir, tree.vlanIntfConfigDir,
        tree.vlanIntfStatusDir, tree.evpnVxlanTunnelTable, session.capacityStatus, vexcsd, session.aclConfig,
        session.counterMirel, Gant::make< Vex::ManagementSm >() );
}

} // namespace Host
