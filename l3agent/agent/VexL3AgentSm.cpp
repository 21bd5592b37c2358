#include "VexL3AgentSm.h"

#include "GantActivity.h"
#include "GantAssert.h"
#include "GantTrace.h"
#include "HulL3Status.h"
#include "HulNexthopGroup.h"
#include "KytAttrLog.h"
#include "QuorlEntityManager.h"
#include "StateAcl.h"
#include "StateArp.h"
#include "StateBridging.h"
#include "StateIp.h"
#include "StateIpNat.h"
#include "StateIpsec.h"
#include "StateRouting.h"
#include "StateSystem.h"
#include "VexCommonSmData.h"
#include "VexL3AgentSmParts.h"
#include "VexL3Counters.h"
#include "ZephProcSys.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexL3AgentSm" );

AgentSm::AgentSm( U16 cellId, const Gant::Ptr< Quorl::EntityManager > & em,
                  const Gant::Ptr< const Bridging::Config > & bridgingConfig,
                  const Gant::Ptr< const Bridging::Status > & bridgingStatus,
                  const Gant::Ptr< const Interface::EthIntfStatusDir > & ethIntfStatusDir,
                  const Gant::Ptr< const Bridging::VlanStatusDir > & vlanStatusDir,
                  const Gant::Ptr< RoutingMounts > & routingMounts, const Gant::Ptr< McastMounts > & mcastMounts,
                  const Gant::Ptr< VrfMounts > & vrfMounts, const Gant::Ptr< BfdMounts > & bfdMounts,
                  const Gant::Ptr< TunnelMounts > & tunnelMounts, const Gant::Ptr< IpsecMounts > & ipsecMounts,
                  const Gant::Ptr< Ip4TunnelMounts > & ip4TunnelMounts, const Gant::Ptr< FhrpMounts > & fhrpMounts,
                  const Gant::Ptr< QosMounts > & qosMounts,
                  const Gant::Ptr< const VexVif::PortVifStatus > & portVifStatus,
                  const Gant::Ptr< const VexMcast::McastVifStatus > & mcastVifStatus,
                  const Gant::Ptr< Gant::Dir > & hulCliCommandRequestDir,
                  const Gant::Ptr< Gant::Dir > & vrfSeqConfigDir, const Gant::Ptr< Gant::Dir > & vrfSeqStatusDir,
                  const Gant::Ptr< const Interface::VlanIntfConfigDir > & vlanIntfConfigDir,
                  const Gant::Ptr< const Interface::VlanIntfStatusDir > & vlanIntfStatusDir,
                  const Gant::Ptr< const Tunnel::TunnelTable::EvpnVxlanTunnelTable > & evpnVxlanTunnelTable,
                  const Gant::Ptr< HulCapacity::TableCapacity > & capacityStatus,
                  const Gant::Ptr< Vex::VexCommonSmData > & vexcsd, const Gant::Ptr< Acl::Config > & aclConfig,
                  const Gant::Ptr< const VexModules::MirelCounterDbStatus > & counterMirel,
                  const Gant::Ptr< Vex::ManagementSm > & managementSm ) :
     cellId_( cellId ),
     em_( em ), bridgingConfig_( bridgingConfig ), bridgingStatus_( bridgingStatus ),
     ethIntfStatusDir_( ethIntfStatusDir ), vlanStatusDir_( vlanStatusDir ), routingMounts_( routingMounts ),
     mcastMounts_( mcastMounts ), vrfMounts_( vrfMounts ), bfdMounts_( bfdMounts ), tunnelMounts_( tunnelMounts ),
     ipsecMounts_( ipsecMounts ), ip4TunnelMounts_( ip4TunnelMounts ), fhrpMounts_( fhrpMounts ),
     qosMounts_( qosMounts ), portVifStatus_( portVifStatus ), mcastVifStatus_( mcastVifStatus ),
     hulCliCommandRequestDir_( hulCliCommandRequestDir ), vrfSeqConfigDir_( vrfSeqConfigDir ),
     vrfSeqStatusDir_( vrfSeqStatusDir ), vlanIntfConfigDir_( vlanIntfConfigDir ),
     vlanIntfStatusDir_( vlanIntfStatusDir ), evpnVxlanTunnelTable_( evpnVxlanTunnelTable ),
     capacityStatus_( capacityStatus ), vexcsd_( vexcsd ), aclConfig_( aclConfig ), counterMirel_( counterMirel ),
     managementSm_( managementSm ) {}

Gant::Ptr< AgentSm > agentSmFactory(
     U16 cellId, const Gant::Ptr< Quorl::EntityManager > & em,
     const Gant::Ptr< const Bridging::Config > & bridgingConfig,
     const Gant::Ptr< const Bridging::Status > & bridgingStatus,
     const Gant::Ptr< const Interface::EthIntfStatusDir > & ethIntfStatusDir,
     const Gant::Ptr< const Bridging::VlanStatusDir > & vlanStatusDir, const Gant::Ptr< RoutingMounts > & routingMounts,
     const Gant::Ptr< McastMounts > & mcastMounts, const Gant::Ptr< VrfMounts > & vrfMounts,
     const Gant::Ptr< BfdMounts > & bfdMounts, const Gant::Ptr< TunnelMounts > & tunnelMounts,
     const Gant::Ptr< IpsecMounts > & ipsecMounts, const Gant::Ptr< Ip4TunnelMounts > & ip4TunnelMounts,
     const Gant::Ptr< FhrpMounts > & fhrpMounts, const Gant::Ptr< QosMounts > & qosMounts,
     const Gant::Ptr< const VexVif::PortVifStatus > & portVifStatus,
     const Gant::Ptr< const VexMcast::McastVifStatus > & mcastVifStatus,
     const Gant::Ptr< Gant::Dir > & hulCliCommandRequestDir, const Gant::Ptr< Gant::Dir > & vrfSeqConfigDir,
     const Gant::Ptr< Gant::Dir > & vrfSeqStatusDir,
     const Gant::Ptr< const Interface::VlanIntfConfigDir > & vlanIntfConfigDir,
     const Gant::Ptr< const Interface::VlanIntfStatusDir > & vlanIntfStatusDir,
     const Gant::Ptr< const Tunnel::TunnelTable::EvpnVxlanTunnelTable > & evpnVxlanTunnelTable,
     const Gant::Ptr< HulCapacity::TableCapacity > & capacityStatus, const Gant::Ptr< Vex::VexCommonSmData > & vexcsd,
     const Gant::Ptr< Acl::Config > & aclConfig,
     const Gant::Ptr< const VexModules::MirelCounterDbStatus > & counterMirel,
     const Gant::Ptr< Vex::ManagementSm > & managementSm ) {
   return Gant::make< AgentSm >(
        cellId, em, bridgingConfig, bridgingStatus, ethIntfStatusDir, vlanStatusDir, routingMounts, mcastMounts,
        vrfMounts, bfdMounts, tunnelMounts, ipsecMounts, ip4TunnelMounts, fhrpMounts, qosMounts, portVifStatus,
        mcastVifStatus, hulCliCommandRequestDir, vrfSeqConfigDir, vrfSeqStatusDir, vlanIntfConfigDir, vlanIntfStatusDir,
        evpnVxlanTunnelTable, capacityStatus, vexcsd, aclConfig, counterMirel, managementSm );
}

void AgentSm::initializedIs( bool initialized ) {
   GANT_ON_LOOP();
   if ( initialized_ == initialized ) return;
   initialized_ = initialized;
   handleInitialized();
}

namespace {

// What a former phase one made goes before it is made again, with what phase two has built on it: first what is in the
// data plane by the hand of each, then the objects, those first that use others.
void withdraw( AgentSm & agent ) {
   for ( const auto & intfId : Gant::keysOf( agent.vexcsd()->l3IntfIteratorConst() ) )
      agent.vexcsd()->l3IntfDel( intfId );
   if ( agent.aclSm() ) agent.aclSm()->startIs( false );
   if ( agent.qosAclSm() ) agent.qosAclSm()->startIs( false );
   for ( const auto & key : agent.ipsecHelper()->ipsecConnectionInfoKeys() )
      agent.ipsecHelper()->deleteConnection( key.vrfName(), key.ipsecEncapId() );
   if ( agent.l3Modules()->fibIpv4() ) {
      freeModuleCounters( agent.l3Modules()->fibIpv4(), agent.vexcsd() );
      freeModuleCounters( agent.l3Modules()->forUsClassifyIpv4(), agent.vexcsd() );
   }
   agent.capacitySmDel();
   agent.nexthopGroupConfigMergeSmDel();
   agent.nexthopGroupSmDel();
   agent.vexVrrpSmDel();
   agent.routingStatusSmDel();
   agent.monitoredNexthopSmDel();
   agent.hulRouteResolverSmDel();
   agent.fecVersionSmDel();
   agent.hulVrfRootSmDel();
   agent.vrfHelperDel();
   agent.hulSeqStatusCreatorSmDel();
   agent.route4HelperDel();
   agent.route6HelperDel();
   agent.hulL2AdjHelperDel();
   agent.adjHelperDel();
   agent.hulIntfStatusSmDel();
   agent.l3SmDel();
   agent.mfaAgentDel();
   agent.mfa6AgentDel();
   agent.routeDbDel();
   agent.ipsecGrpcSmDel();
   agent.ipsecConnectionTableSmDel();
   agent.ipsecHelperDel();
   agent.natSmDel();
   agent.natRouteResolverSmDel();
   agent.natHelperDel();
   agent.qosAclSmDel();
   agent.qosAclHelperDel();
   agent.aclSmDel();
   agent.aclHelperDel();
   agent.aclConfigAggregatorSmDel();
   agent.routingStatusHelperDel();
   agent.l3ModulesDel();
   agent.hulL3IntfSmDel();
   agent.intfVlanIdSetSmDel();
   agent.privateVlanLibSmDel();
}

} // namespace

// Phase one. Later steps use what earlier ones set.
void AgentSm::handleInitialized() {
   GANT_TRACE( 1, "AgentSm::handleInitialized ", initialized() );
   if ( l3Modules() ) withdraw( *this );
   hwEpochStatusIs( em()->getEntity< HwEpoch::Status >( "hwEpoch/status" ) );
   privateVlanLibStateIs();
   privateVlanLibSmIs();
   intfVlanIdSetTableIs();
   intfVlanIdSetSmIs();
   hulL3IntfTableIs();
   hulL3IntfSmIs();
   hulL3ConfigIs();
   hulL3StatusIs();
   hulL3Status()->hulL3IntfTableIs( hulL3IntfTable() );
   hulL3Status()->intfVlanIdSetTableIs( intfVlanIdSetTable() );
   hulL3HostStatusIs();
   l3ModulesIs();
   filteredVrfListsIs();
   if ( routingMounts() && routingMounts()->routingHwStatus() )
      vrfCapabilityIs( routingMounts()->routingHwStatus()->vrfCapability() );
   routingStatusIs();
   routingStatusHelperIs();
   adjReviewEventIs();
   lookUpNatAndIntfState();
   aclStatusDp()->initialize();
   nexthopGroupStatusIs();
   nexthopGroupConfigIs();
   nexthopGroupCliConfigIs( em()->getEntity< Routing::NexthopGroup::ConfigInput >( "routing/nexthopgroup/input/cli" ) );
   nexthopGroupConfigInputIs( em()->getEntity< Gant::Dir >( "routing/nexthopgroup/input/config" ) );
   const Gant::String aclCausePath = "interface/errdisable/cause/acl";
   aclCauseStatusIs( em()->getEntity< Errdisable::CauseStatus >( aclCausePath ) );
   GANT_ASSERT( aclCauseStatus(), aclCausePath );
   lookUpAclState();
   aclConfigAggregatorSmIs();
   aclHelperIs();
   aclSmIs();
   qosAclHelperIs();
   qosAclSmIs();
   natHelperIs();
   staticNatInfoIs();
   nhMapConfigIs();
   nhMapStatusIs();
   natRouteResolverSmIs();
   natSmIs();
   attrLogSmIs();
   ipsecHelperIs();
   ipsecConnectionTableSmIs();
   ipsecGrpcSmIs();
   // Interfaces that the kernel creates from now on accept packets that carry a source address local to the device.
   Zeph::writeProcSys( "/proc/sys/net/ipv4/conf/default/accept_local", "1" );
   // Done again, it takes phase two along.
   if ( processingStarted() ) createProcessing();
}

void AgentSm::lookUpNatAndIntfState() {
   natConfigIs( em()->getEntity< Ip::Nat::Config >( "ip/nat/config" ) );
   natStatusIs( em()->getEntity< Ip::Nat::Status >( "ip/nat/status" ) );
   natHwStatusIs( em()->getEntity< Ip::Nat::HwStatus >( "ip/nat/hwStatus" ) );
   const Gant::String natPath = "ip/nat/hwCapabilities";
   natHwCapabilitiesIs( em()->getEntity< Ip::Nat::HwCapabilities >( natPath ) );
   GANT_ASSERT( natHwCapabilities(), natPath );
   lagInputConfigIs( em()->getEntity< Lag::Input::Config >( "lag/input/config/cli" ) );
   bridgingTopoConfigIs( em()->getEntity< Bridging::Topology::Config >( "bridging/topology/config" ) );
   aclIntfConfigDirIs( em()->getEntity< Gant::Dir >( "acl/intf/config/input" ) );
   const auto aclStatusPath = Gant::format( "cell/%d/acl/status/dp/vex", cellId() );
   aclStatusDpIs( em()->getEntity< Acl::StatusDp >( aclStatusPath ) );
   GANT_ASSERT( aclStatusDp(), aclStatusPath );
   aclIntfConfigCliIs( em()->getEntity< Acl::IntfConfig >( "acl/intf/config/cli" ) );
   aclHwConfigIs( em()->getEntity< Gant::Dir >( "acl/hwconfig" ) );
   monitoredNHStatusIs(
        em()->getEntity< Arp::MonitoredNexthop::Input::Status >( "arp/monitorednexthop/input/status/vex" ) );
   monitoredNHVrfStatusDirIs(
        em()->getEntity< Arp::MonitoredNexthop::Input::VrfStatusDir >( "arp/monitorednexthop/vrf/input/status/vex" ) );
}

void AgentSm::lookUpAclState() {
   aclParamConfigIs( em()->getEntity< Acl::ParamConfig >( "acl/paramconfig" ) );
   aclInputConfigIs( em()->getEntity< Gant::Dir >( "acl/config/input" ) );
   aclCliConfigIs( em()->getEntity< Acl::Input::Config >( "acl/config/cli" ) );
}

void AgentSm::maybeStartProcessing() {
   GANT_ON_LOOP();
   GANT_ASSERT( natHwCapabilities(), "initializedIs( true ) comes first" );
   natHwCapabilities()->natSupportedIs( true );
   if ( processingStarted() ) {
      GANT_TRACE( 1, "AgentSm::maybeStartProcessing ", "Agent processing has already started" );
      return;
   }
   processingStarted_ = true;
   GANT_TRACE( 1, "AgentSm::maybeStartProcessing" );
   initHwCapabilities();
   createProcessing();
}

// Phase two. The layer's root comes when everything that it may call, and everything that it feeds, stands.
void AgentSm::createProcessing() {
   // It gets no adjacency helper: there is none yet.
   hulIntfStatusSmIs();
   packedArgsIs();
   routeDbIs();
   tunnelDbIs();
   tunnelL2AdjRequestIs();
   tunnelL2AdjResponseIs();
   vexcsd()->moduleGlobalCmdConfig()->moduleConfigStatusPairIs( "l3" );
   mfaAgentIs();
   mfa6AgentIs();
   l3SmIs();
   adjHelperIs();
   adjCapHelperIs();
   hulL2AdjHelperIs();
   route4HelperIs();
   route6HelperIs();
   hulSeqStatusCreatorSmIs();
   watchedNexthopGroupConfigIs();
   resolvedNexthopGroupStatusIs();
   vrfHelperIs();
   hulVrfRootSmIs();
   fecVersionSmIs();
   // Before the machine of monitored next hops, which it therefore does not get.
   hulRouteResolverSmIs();
   monitoredNexthopSmIs();
   routingStatusSmIs();
   vexVrrpSmIs();
   nexthopGroupSmIs();
   nexthopGroupConfigMergeSmIs();
   capacitySmIs();
}

U32 maxVrfsOf( bool namespaceDut, U64 physicalMemory ) {
   constexpr U64 sevenGiB = 7516192768;
   if ( namespaceDut ) return 8;
   return physicalMemory > sevenGiB ? 14 : 6;
}

void AgentSm::initHwCapabilities() {
   const auto & hw = routingMounts()->routingHwStatus();
   const auto & hw6 = routingMounts()->routing6HwStatus();
   const auto & arp = routingMounts()->arpHardwareStatus();
   hw->routingSupportedIs( true );
   hw->maxEcmpIs( 16 );
   hw->vrfRoutingSupportedIs( true );
   hw->vrfCapability()->maxVrfsIs( maxVrfsOf( Vex::isNamespaceDut(), Vex::getSystemPhysMemSize() ) );
   hw->ucmpSupportedIs( false );
   hw->staticTunIntfPlatformKernelDeviceIs( true );
   hw->staticTunIntfPlatformCounterSupportedIs( true );
   hw6->routingSupportedIs( false );
   hw6->vrfRoutingSupportedIs( false );
   hw6->maxEcmpIs( 16 );
   hw6->ecmpSupportedIs( false );
   hw6->ucmpSupportedIs( false );
   hw6->multicastRoutingSupportedIs( false );
   arp->arpTableSizeIs( 10240 );
   arp->neighborTableSizeIs( 10240 );
   hw->multicastRoutingSupportedIs( true );
   hw->hwMulticastStarGSupportedIs( false );
   hw->kernelForwardingSupportedIs( false );
   hw->fibAckSupportedIs( false );
   ipsecMounts()->ipsecCapabilitiesStatus()->ipsecSupportedIs( true );
   hw->maxHierarchicalFecChainLengthIs( 1 );
   // Tunnel modes: 1 is GRE, 3 is IPsec.
   hw->staticInterfaceTunnelSupportIs( Routing::Hardware::StaticInterfaceTunnelSupport( 1 ), true );
   hw->staticInterfaceTunnelSupportIs( Routing::Hardware::StaticInterfaceTunnelSupport( 3 ), true );
   hw->staticTunIntfPlatformCapabilityDeclaredIs( true );
}

void AgentSm::mbrIntfIs( const Gant::Ptr< Routing::Multicast::Fib::MbrIntf > & mbrIntf ) { mbrIntf_ = mbrIntf; }

void AgentSm::vifStatusCollIs( const Gant::Ptr< const Routing::KernelMfib::StatusColl > & vifStatusColl ) {
   vifStatusColl_ = vifStatusColl;
}

void AgentSm::l2l3SharedIs( const Gant::Ptr< Vex::L2L3SharedData > & l2l3Shared ) { l2l3Shared_ = l2l3Shared; }

void AgentSm::natSharedIs( const Gant::Ptr< Vex::NatSharedData > & natShared ) { natShared_ = natShared; }

void AgentSm::aclSharedIs( const Gant::Ptr< Vex::AclSharedData > & aclShared ) { aclShared_ = aclShared; }

void AgentSm::constrainersCreatedIs( bool constrainersCreated ) { constrainersCreated_ = constrainersCreated; }

void AgentSm::hasNotificationActiveIs( bool active ) {
   if ( hasNotificationActive() == active ) return;
   PtrInterface::hasNotificationActiveIs( active );
   const auto pass = [ active ]( const auto & stateMachine ) {
      if ( stateMachine ) stateMachine->hasNotificationActiveIs( active );
   };
   pass( hulL3IntfSm() );
   pass( intfVlanIdSetSm() );
   pass( privateVlanLibSm() );
   pass( hulL2AdjHelper() );
   pass( hulIntfStatusSm() );
   pass( attrLogSm() );
   pass( nexthopGroupSm() );
   pass( nexthopGroupConfigMergeSm() );
   pass( hulSeqStatusCreatorSm() );
   pass( hulVrfRootSm() );
   pass( monitoredNexthopSm() );
   pass( hulRouteResolverSm() );
   pass( hulTunnelSm() );
   pass( routingStatusSm() );
   pass( vexVrrpSm() );
   pass( aclConfigAggregatorSm() );
   pass( natRouteResolverSm() );
   pass( natSm() );
   pass( natLoopbackSm() );
   pass( aclSm() );
   pass( qosAclSm() );
   pass( ipsecConnectionTableSm() );
   pass( ipsecGrpcSm() );
   pass( fecVersionSm() );
   pass( mfaAgent() );
   pass( mfa6Agent() );
   pass( l3Sm() );
   pass( capacitySm() );
}

void AgentSm::gantDoZombieReactors( bool zombie ) { PtrInterface::gantDoZombieReactors( zombie ); }

// Whatever the agent owns goes in this order, not in that of the members: others may still hold what has gone from
// here.
AgentSm::~AgentSm() {
   AgentSm::gantDoZombieReactors( true );
   tunnelL2AdjRequestDel();
   tunnelL2AdjResponseDel();
   vxlanTunnelConfigDirDel();
   vxlanTunnelStatusDirDel();
   vxlanHerTunnelConfigDirDel();
   vxlanHerTunnelStatusDirDel();
   hulL3IntfTableDel();
   hulL3IntfSmDel();
   intfVlanIdSetTableDel();
   intfVlanIdSetSmDel();
   privateVlanLibStateDel();
   privateVlanLibSmDel();
   hulL3ConfigDel();
   hulL3StatusDel();
   hulL3HostStatusDel();
   route4HelperDel();
   route6HelperDel();
   routingStatusHelperDel();
   adjHelperDel();
   hulL2AdjHelperDel();
   hulIntfStatusSmDel();
   filteredVrfListsDel();
   attrLogSmDel();
   watchedNexthopGroupConfigDel();
   resolvedNexthopGroupStatusDel();
   packedArgsDel();
   nexthopGroupConfigDel();
   nexthopGroupStatusDel();
   nexthopGroupSmDel();
   nexthopGroupConfigMergeSmDel();
   vrfHelperDel();
   hulSeqStatusCreatorSmDel();
   hulVrfRootSmDel();
   adjReviewEventDel();
   adjCapHelperDel();
   monitoredNexthopSmDel();
   hulRouteResolverSmDel();
   hulTunnelSmDel();
   routingStatusDel();
   routingStatusSmDel();
   vexVrrpSmDel();
   staticNatInfoDel();
   aclConfigAggregatorSmDel();
   natHelperDel();
   nhMapConfigDel();
   nhMapStatusDel();
   natRouteResolverSmDel();
   natSmDel();
   natLoopbackSmDel();
   aclHelperDel();
   aclSmDel();
   qosAclHelperDel();
   qosAclSmDel();
   routeDbDel();
   ipsecHelperDel();
   ipsecConnectionTableSmDel();
   ipsecGrpcSmDel();
   fecVersionSmDel();
   mfaAgentDel();
   mfa6AgentDel();
   l3ModulesDel();
   l3SmDel();
   tunnelDbDel();
   capacitySmDel();
}

} // namespace VexL3Unicast
