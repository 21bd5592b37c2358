// show capabilities: what the agent has published that its data plane can do. show capacity: how full its tables are.
// show walks: FECs that were redone because what they depend on has come.

#include "HostAgentView.h"
#include "HostShows.h"
#include "HulAdjSm.h"
#include "HulCapacity.h"
#include "HulVrfRootSm.h"
#include "StateArp.h"
#include "StateFhrp.h"
#include "StateIpNat.h"
#include "StateIpsec.h"
#include "StateRouting.h"
#include "VexIpsecHelper.h"
#include "VexKyAclDb.h"
#include "VexL3FecVersionSm.h"

namespace Host {

using namespace VexL3Unicast;

namespace {

class Capabilities {
 public:
   explicit Capabilities( Output & out ) : out_( out ) {}
   Capabilities & of( const char * feature ) {
      feature_ = feature;
      return *this;
   }
   // A number, or whether there is such a thing.
   Capabilities & has( const char * capability, Json value, const char * note = nullptr ) {
      Json row{ { "feature", feature_ }, { "capability", capability }, { "value", std::move( value ) } };
      if ( note != nullptr ) row[ "note" ] = note;
      out_.row( row );
      return *this;
   }

 private:
   Output & out_;
   const char * feature_ = "";
};

bool tunnelSupported( const Routing::Hardware::Status & hw, U32 mode ) {
   return hw.staticInterfaceTunnelSupportHas( Routing::Hardware::StaticInterfaceTunnelSupport( mode ) );
}

constexpr const char * declared = "declared, not enforced";

void routingCapabilities( const RoutingMounts & mounts, Capabilities & out ) {
   const auto & hw = *mounts.routingHwStatus();
   out.of( "ipv4" )
        .has( "routing", hw.routingSupported() )
        .has( "vrfs", hw.vrfRoutingSupported() )
        .has( "maxVrfs", hw.vrfCapability()->maxVrfs(), declared )
        .has( "maxEcmp", hw.maxEcmp(), declared )
        .has( "ucmp", hw.ucmpSupported() )
        .has( "multicastRouting", hw.multicastRoutingSupported() )
        .has( "multicastStarG", hw.hwMulticastStarGSupported() )
        .has( "kernelForwarding", hw.kernelForwardingSupported() )
        .has( "fibAck", hw.fibAckSupported() )
        .has( "maxHierarchicalFecChainLength", hw.maxHierarchicalFecChainLength() );
   const auto & hw6 = *mounts.routing6HwStatus();
   out.of( "ipv6" )
        .has( "routing", hw6.routingSupported() )
        .has( "vrfs", hw6.vrfRoutingSupported() )
        .has( "maxEcmp", hw6.maxEcmp(), declared )
        .has( "ecmp", hw6.ecmpSupported() )
        .has( "ucmp", hw6.ucmpSupported() )
        .has( "multicastRouting", hw6.multicastRoutingSupported() );
   const auto & arp = *mounts.arpHardwareStatus();
   out.of( "neighbors" ).has( "arpTableSize", arp.arpTableSize() ).has( "neighborTableSize", arp.neighborTableSize() );
   constexpr U32 gre = 1, ipsec = 3;
   out.of( "tunnels" )
        .has( "gre", tunnelSupported( hw, gre ) )
        .has( "ipsec", tunnelSupported( hw, ipsec ) )
        .has( "kernelDevice", hw.staticTunIntfPlatformKernelDevice() )
        .has( "counters", hw.staticTunIntfPlatformCounterSupported() );
}

std::unique_ptr< Answer > capabilities( const Asked & asked ) {
   const AgentView session( asked.daemon );
   return atOnce( [ session ]( Output & out ) {
      const auto agent = session.agent();
      Capabilities capabilities( out );
      routingCapabilities( session.routing(), capabilities );
      capabilities.of( "ipsec" ).has( "ipsec", agent->ipsecMounts()->ipsecCapabilitiesStatus()->ipsecSupported() );
      if ( const auto & mounts = agent->fhrpMounts(); mounts && mounts->fhrpHwStatus() )
         capabilities.of( "vrrp" )
              .has( "vrrp", mounts->fhrpHwStatus()->vrrpSupported() )
              .has( "maxGroups", mounts->fhrpHwStatus()->vrrpSupportedMaxNum() )
              .has( "uniqueGroupIds", mounts->fhrpHwStatus()->useUniqueGroupIds() )
              .has( "anygw", mounts->fhrpHwStatus()->anygwSupported() );
      capabilities.of( "nat" ).has( "nat", agent->natHwCapabilities()->natSupported(),
                                    "rules are accepted; the data plane translates no packet" );
   } );
}

// `most` 0: nobody says how much there is room for. `committed`: what is used and what waits for room; nothing when
// that is not counted.
Json tableRow( const char * table, const std::string & feature, U64 used, U64 most, std::optional< U64 > committed ) {
   Json row{ { "table", table }, { "feature", feature }, { "chip", "" }, { "counted", true }, { "used", used } };
   row[ "free" ] = most == 0 ? Json() : Json( most - std::min( most, used ) );
   row[ "committed" ] = committed ? Json( *committed ) : Json();
   row[ "max" ] = most == 0 ? Json() : Json( most );
   return row;
}

// IPv4 routes, with those that the agent gives every VRF.
Json routeCapacity( const AgentView & session ) {
   const auto counts = session.agent()->hulVrfRootSm()->routeCounts( Kynet::AddressFamily::ipv4_ );
   U64 used = counts.taken();
   for ( const auto & [ vrfId, name ] : vrfsOf( session, "all" ) )
      used += builtInRoutes( session, Hul::VrfId( vrfId ) ).size();
   return tableRow( "Route", "ipv4", used, session.channel()->routesMost(), used + counts.underWay + counts.noRoom );
}

U64 securityAssociations( const AgentView & session ) {
   U64 count = 0;
   const auto & mounts = session.agent()->ipsecMounts();
   if ( !mounts || !mounts->connectionTable() ) return count;
   for ( const auto & [ key, connection ] : mounts->connectionTable()->connectionIterator() )
      count += connection.inSaq().saqs() + ( connection.outSa() ? 1 : 0 );
   return count;
}

// What has a limit that is known here, and is counted.
void countedTables( const AgentView & session, Output & out ) {
   out.row( routeCapacity( session ) );
   const auto agent = session.agent();
   const auto vrfs = vrfsOf( session, "all" ).size();
   out.row( tableRow( "Vrf", "", vrfs, session.routing().routingHwStatus()->vrfCapability()->maxVrfs(), vrfs ) );
   const auto & gates = *session.l3Modules()->fibIpv4();
   const auto connected = gates.maxOutGate() - gates.reservedOutGate() - gates.unusedOutGate().size();
   out.row(
        tableRow( "OutputGate", gates.name(), connected, gates.maxOutGate() - gates.reservedOutGate(), connected ) );
   if ( const auto & tables = session.vexcsd()->kyAclDb() ) {
      const auto used = Vex::KyAclDb::maxAcls() - tables->freeAclIds();
      out.row( tableRow( "RuleTable", "acl, qos, cpu", used, Vex::KyAclDb::maxAcls(), used ) );
   }
   const auto sas = securityAssociations( session );
   out.row( tableRow( "SecurityAssociation", "ipsec", sas, IpsecHelper::maxIpsecSasDefault(), sas ) );
   const auto adjSm = agent->hulVrfRootSm()->hulAdjSm();
   if ( !adjSm ) return;
   for ( const auto & use : adjSm->nextHopUses() )
      out.row( tableRow( use.resolve ? "ResolvedNextHop" : "NextHop", use.intfId.stringValue(), use.used, use.limit,
                         use.waiting == 0 ? std::optional< U64 >( use.used ) : std::nullopt ) );
}

std::unique_ptr< Answer > capacity( const Asked & asked ) {
   const AgentView session( asked.daemon );
   return atOnce( [ session ]( Output & out ) {
      countedTables( session, out );
      const auto table = session.agent()->capacityStatus();
      if ( !table ) return;
      for ( const auto & [ key, entry ] : table->entryIterator() ) {
         Json row{ { "table", key.table() }, { "feature", key.feature() }, { "chip", key.chip() } };
         // A table without a limit is one of which nobody has told anything.
         const bool counted = entry.maxLimit() != 0;
         row[ "counted" ] = counted;
         row[ "used" ] = counted ? Json( entry.used() ) : Json();
         row[ "free" ] = counted ? Json( entry.free() ) : Json();
         row[ "committed" ] = counted ? Json( entry.committed() ) : Json();
         row[ "max" ] = counted ? Json( entry.maxLimit() ) : Json();
         out.row( row );
      }
   } );
}

std::unique_ptr< Answer > walks( const Asked & asked ) {
   const AgentView session( asked.daemon );
   return atOnce( [ session ]( Output & out ) {
      const auto agent = session.agent();
      const auto & walks = *agent->fecVersionSm();
      const auto adjSm = agent->hulVrfRootSm()->hulAdjSm();
      out.row( { { "walksAsked", walks.numScheduledPrefixWalk() },
                 { "portVifUpdates", walks.numUpdatePortVif() },
                 { "floodVifUpdates", walks.numUpdateFloodVif() },
                 { "vlanPortStatusUpdates", walks.numUpdateVlanPortStatus() },
                 { "fecs", agent->routeDb()->fecs() },
                 { "adjacencies", adjSm ? adjSm->adjs() : 0 },
                 { "busy", agent->hulVrfRootSm()->busy() } } );
   } );
}

} // namespace

Commands platformShows() {
   return { { "show capabilities", {}, capabilities }, { "show capacity", {}, capacity }, { "show walks", {}, walks } };
}

} // namespace Host
