// How the agent makes each object that it owns.
#include "GantActivity.h"
#include "QuorlEntityManager.h"
#include "StateBridging.h"
#include "StateInterface.h"
#include "VexL3AgentSmParts.h"

namespace VexL3Unicast {

namespace {

// An attribute of a mount; empty when the mount is missing.
template < typename Mounts, typename T >
T mounted( const Gant::Ptr< Mounts > & mounts, const T & ( Mounts::*attribute )() const ) {
   return mounts ? ( mounts.get()->*attribute )() : T();
}

} // namespace

#define AGENT_OWNED( T, name, Name )                                                                                   \
   const Gant::Ptr< T > & AgentSm::name##Is() { return name##_ = new##Name(); }                                        \
   void AgentSm::name##Del() { name##_ = nullptr; }                                                                    \
   Gant::Ptr< T > AgentSm::new##Name()

AGENT_OWNED( Hul::L2AdjRequest, tunnelL2AdjRequest, TunnelL2AdjRequest ) {
   return Gant::make< Hul::L2AdjRequest >( "tunnelL2AdjRequest" );
}

AGENT_OWNED( Hul::L2AdjResponse, tunnelL2AdjResponse, TunnelL2AdjResponse ) {
   return Gant::make< Hul::L2AdjResponse >( "tunnelL2AdjResponse" );
}

// A directory of the host's, by name.
#define AGENT_DIR( T, attr, Attr, factory )                                                                            \
   const Gant::Ptr< T > & AgentSm::attr##Is( const Gant::Name & name ) {                                               \
      if ( !attr##_ || attr##_->name() != name ) attr##_ = new##Attr( name );                                          \
      return attr##_;                                                                                                  \
   }                                                                                                                   \
   void AgentSm::attr##Del() { attr##_ = nullptr; }                                                                    \
   Gant::Ptr< T > AgentSm::new##Attr( const Gant::Name & name ) { return factory( name ); }

AGENT_DIR( TunnelConfigDir, vxlanTunnelConfigDir, VxlanTunnelConfigDir, tunnelConfigDirFactory )
AGENT_DIR( TunnelStatusDir, vxlanTunnelStatusDir, VxlanTunnelStatusDir, tunnelStatusDirFactory )
AGENT_DIR( TunnelConfigDir, vxlanHerTunnelConfigDir, VxlanHerTunnelConfigDir, tunnelConfigDirFactory )
AGENT_DIR( TunnelStatusDir, vxlanHerTunnelStatusDir, VxlanHerTunnelStatusDir, tunnelStatusDirFactory )

AGENT_OWNED( HulL3Intf::Table, hulL3IntfTable, HulL3IntfTable ) {
   return Gant::make< HulL3Intf::Table >( "hulL3IntfTable", true );
}

AGENT_OWNED( HulL3Intf::ConfigSm, hulL3IntfSm, HulL3IntfSm ) {
   return Gant::make< HulL3Intf::ConfigSm >(
        HulL3Intf::ConfigSm::Args{ bridgingConfig(), vlanIntfStatusDir(), nullptr, hulL3IntfTable(), true } );
}

AGENT_OWNED( IntfVlanIdSet::Table, intfVlanIdSetTable, IntfVlanIdSetTable ) {
   return Gant::make< IntfVlanIdSet::Table >( "intfVlanIdSetTable" );
}

AGENT_OWNED( IntfVlanIdSet::ConfigSm, intfVlanIdSetSm, IntfVlanIdSetSm ) {
   return Gant::make< IntfVlanIdSet::ConfigSm >(
        IntfVlanIdSet::ConfigSm::Args{ bridgingConfig(), privateVlanLibState(), intfVlanIdSetTable() } );
}

AGENT_OWNED( PrivateVlanLib::LibState, privateVlanLibState, PrivateVlanLibState ) {
   return Gant::make< PrivateVlanLib::LibState >( "pvlanLibL3" );
}

AGENT_OWNED( PrivateVlanLib::LibSm, privateVlanLibSm, PrivateVlanLibSm ) {
   return Gant::make< PrivateVlanLib::LibSm >( PrivateVlanLib::LibSm::Args{ bridgingConfig(), privateVlanLibState() } );
}

AGENT_OWNED( Hul::L3Config, hulL3Config, HulL3Config ) { return Gant::make< Hul::L3Config >(); }

AGENT_OWNED( Hul::L3Status, hulL3Status, HulL3Status ) { return Gant::make< Hul::L3Status >( "hulL3Status" ); }

AGENT_OWNED( Hul::L3HostStatus, hulL3HostStatus, HulL3HostStatus ) {
   return Gant::make< Hul::L3HostStatus >( "hulL3HostStatus" );
}

AGENT_OWNED( VexL3Unicast::Route4Helper, route4Helper, Route4Helper ) {
   return Gant::make< VexL3Unicast::Route4Helper >( "route4Helper", routeDb(), l3Sm(), hulL3Status() );
}

AGENT_OWNED( VexL3Unicast::Route6Helper, route6Helper, Route6Helper ) {
   return Gant::make< VexL3Unicast::Route6Helper >( "route6Helper", routeDb(), l3Sm(), hulL3Status() );
}

AGENT_OWNED( VexL3Unicast::RoutingStatusHelper, routingStatusHelper, RoutingStatusHelper ) {
   return routingStatusHelperFactory( "routingStatusHelper", routingStatus(), vexcsd(), l3Modules() );
}

AGENT_OWNED( VexL3Unicast::AdjHelper, adjHelper, AdjHelper ) {
   return Gant::make< VexL3Unicast::AdjHelper >( "adjHelper", routeDb(), hulL3Status(), l3Sm() );
}

AGENT_OWNED( Hul::L2AdjHelper, hulL2AdjHelper, HulL2AdjHelper ) {
   auto helper = Gant::make< Hul::L2AdjHelper >( Hul::L2AdjHelper::Args{
        .vexcsd = vexcsd(),
        .hulL3Config = hulL3Config(),
        .hulL3Status = hulL3Status(),
        .routingHwConfig = mounted( routingMounts(), &RoutingMounts::routingHwConfig ),
        .routingHwStatus = mounted( routingMounts(), &RoutingMounts::routingHwStatus ),
        .routingHwDlbConfig = mounted( routingMounts(), &RoutingMounts::routingHwDlbConfig ),
        .adjHelper = adjHelper(),
        .ethIntfStatusDir = ethIntfStatusDir(),
        .tunnelL2AdjResponse = tunnelL2AdjResponse(),
        .evpnVxlanTunnelTable = evpnVxlanTunnelTable(),
        .routingHwRouteStatus = mounted( routingMounts(), &RoutingMounts::routingHwRouteStatus ),
        .adjCapHelper = adjCapHelper(),
        .em = em() } );
   helper->nextL2AdjIndexIs( 0 );
   return helper;
}

AGENT_OWNED( Hul::IntfStatusSm, hulIntfStatusSm, HulIntfStatusSm ) {
   return Gant::make< Hul::IntfStatusSm >( Hul::IntfStatusSm::Args{
        .vexcsd = vexcsd(),
        .hulL3Status = hulL3Status(),
        .hulL2AdjHelper = hulL2AdjHelper(),
        .ethIntfStatusDir = ethIntfStatusDir(),
        .bfdAllPeerStatusDir = mounted( bfdMounts(), &BfdMounts::bfdAllPeerStatusDir ),
        .bfdAllPeerStatus = mounted( bfdMounts(), &BfdMounts::bfdAllPeerStatus ),
        .allIntfStatusDir = mounted( routingMounts(), &RoutingMounts::allIntfStatusDir ),
        .allIntfStatusLocalDir = mounted( bfdMounts(), &BfdMounts::allIntfStatusLocalDir ),
        .routingHwConfig = mounted( routingMounts(), &RoutingMounts::routingHwConfig ),
        .routingHwRouteStatus = mounted( routingMounts(), &RoutingMounts::routingHwRouteStatus ) } );
}

AGENT_OWNED( Hul::FilteredVrfLists, filteredVrfLists, FilteredVrfLists ) {
   return Gant::make< Hul::FilteredVrfLists >( "filteredVrfLists" );
}

AGENT_OWNED( Kyt::AttrLogSm, attrLogSm, AttrLogSm ) {
   return Gant::make< Kyt::AttrLogSm >(
        Kyt::AttrLogSm::Args{ Gant::NboAttrLog::top()->socketOutSm( em()->quorlRoot() ), 10 } );
}

AGENT_OWNED( Hul::WatchedNexthopGroupConfig, watchedNexthopGroupConfig, WatchedNexthopGroupConfig ) {
   return Gant::make< Hul::WatchedNexthopGroupConfig >( "Hul WatchedNexthopgroupConfig" );
}

AGENT_OWNED( Hul::ResolvedNexthopGroupStatus, resolvedNexthopGroupStatus, ResolvedNexthopGroupStatus ) {
   return Gant::make< Hul::ResolvedNexthopGroupStatus >( "Hul ResolvedNexthopgroupStatus" );
}

AGENT_OWNED( Hul::PackedArgs, packedArgs, PackedArgs ) {
   return Hul::packedArgsFactory( Hul::PackedArgs::Args{
        .routeStatus = mounted( routingMounts(), &RoutingMounts::routeStatus ),
        .route6Status = mounted( routingMounts(), &RoutingMounts::route6Status ),
        .unprogrammedRouteStatus = mounted( routingMounts(), &RoutingMounts::unprogrammedRouteStatus ),
        .unprogrammedRoute6Status = mounted( routingMounts(), &RoutingMounts::unprogrammedRoute6Status ),
        .routingHwConfig = mounted( routingMounts(), &RoutingMounts::routingHwConfig ),
        .routingHwStatus = mounted( routingMounts(), &RoutingMounts::routingHwStatus ),
        .routing6HwConfig = mounted( routingMounts(), &RoutingMounts::routing6HwConfig ),
        .routing6HwStatus = mounted( routingMounts(), &RoutingMounts::routing6HwStatus ),
        .routingHwDlbConfig = mounted( routingMounts(), &RoutingMounts::routingHwDlbConfig ),
        .mfibVrfConfig = mounted( mcastMounts(), &McastMounts::mfibVrfConfig ),
        .mfibHwStatus = mounted( mcastMounts(), &McastMounts::mfibHwStatus ),
        .routingHwNexthopGroupStatus = mounted( routingMounts(), &RoutingMounts::routingHwNexthopGroupStatus ) } );
}

AGENT_OWNED( Routing::NexthopGroup::Config, nexthopGroupConfig, NexthopGroupConfig ) {
   return Gant::make< Routing::NexthopGroup::Config >();
}

AGENT_OWNED( Routing::NexthopGroup::Status, nexthopGroupStatus, NexthopGroupStatus ) {
   return Gant::make< Routing::NexthopGroup::Status >( "nexthopgroup-status" );
}

AGENT_OWNED( Zeph::NexthopGroupSm, nexthopGroupSm, NexthopGroupSm ) {
   return Gant::make< Zeph::NexthopGroupSm >( Zeph::NexthopGroupSm::Args{
        .nexthopGroupConfig = nexthopGroupConfig(),
        .nexthopGroupStatus = nexthopGroupStatus(),
        .ipStatus = mounted( routingMounts(), &RoutingMounts::ipStatus ),
        .ip6Status = mounted( routingMounts(), &RoutingMounts::ip6Status ),
        .routingHwStatus = mounted( routingMounts(), &RoutingMounts::routingHwStatus ),
        .nexthopGroupEntryStatus = Zeph::NexthopGroupSm::mirelMountNhgStatus( em(), true ) } );
}

AGENT_OWNED( Zeph::NexthopGroupConfigMergeSm, nexthopGroupConfigMergeSm, NexthopGroupConfigMergeSm ) {
   return Gant::make< Zeph::NexthopGroupConfigMergeSm >( Zeph::NexthopGroupConfigMergeSm::Args{
        nexthopGroupConfig(), nexthopGroupCliConfig(), nexthopGroupConfigInput(), em() } );
}

AGENT_OWNED( VexVrfHelper, vrfHelper, VrfHelper ) {
   return vexVrfHelperFactory( "vrfHelper", vexcsd(), l3Modules(), hulL3Status(),
                               vexcsd()->moduleGlobalCmdConfig()->moduleConfigStatusPairIs( "l3" ), mfaAgent(),
                               mfa6Agent() );
}

AGENT_OWNED( Hul::HulSeqStatusCreatorSm, hulSeqStatusCreatorSm, HulSeqStatusCreatorSm ) {
   return Gant::make< Hul::HulSeqStatusCreatorSm >( Hul::HulSeqStatusCreatorSm::Args{
        vexcsd(), mounted( vrfMounts(), &VrfMounts::allVrfStatusLocal ), vrfSeqStatusDir() } );
}

AGENT_OWNED( Hul::VrfRootSm, hulVrfRootSm, HulVrfRootSm ) {
   return Gant::make< Hul::VrfRootSm >( Hul::VrfRootSm::Args{
        .programmingEnabled = true,
        .allVrfStatusLocal = mounted( vrfMounts(), &VrfMounts::allVrfStatusLocal ),
        .vrfHelper = vrfHelper(),
        .vrfCapability = vrfCapability(),
        .vexcsd = vexcsd(),
        .hulL3Config = hulL3Config(),
        .hulL3Status = hulL3Status(),
        .hulL3HostStatus = hulL3HostStatus(),
        .hulL3IntfTable = hulL3IntfTable(),
        .intfVlanIdSetTable = intfVlanIdSetTable(),
        .ipStatus = mounted( routingMounts(), &RoutingMounts::ipStatus ),
        .ip6Status = mounted( routingMounts(), &RoutingMounts::ip6Status ),
        .bridgingConfig = bridgingConfig(),
        .bridgingStatus = bridgingStatus(),
        .virtualMacStatusIn = mounted( fhrpMounts(), &FhrpMounts::virtualMacStatusIn ),
        .vlanIntfStatusDir = vlanIntfStatusDir(),
        .vlanIntfConfigDir = vlanIntfConfigDir(),
        .allIntfStatusDir = mounted( routingMounts(), &RoutingMounts::allIntfStatusDir ),
        .packedArgs = packedArgs(),
        .l3Config = mounted( routingMounts(), &RoutingMounts::l3Config ),
        .routingHwRouteStatus = mounted( routingMounts(), &RoutingMounts::routingHwRouteStatus ),
        .routing6HwRouteStatus = mounted( routingMounts(), &RoutingMounts::routing6HwRouteStatus ),
        .routingVrfInfoDir = mounted( vrfMounts(), &VrfMounts::routingVrfInfoDir ),
        .routing6VrfInfoDir = mounted( vrfMounts(), &VrfMounts::routing6VrfInfoDir ),
        .filteredVrfLists = filteredVrfLists(),
        .routingStatusHelper = routingStatusHelper(),
        .route4Helper = route4Helper(),
        .route6Helper = route6Helper(),
        .nexthopGroupStatus = nexthopGroupStatus(),
        .adjReviewEvent = adjReviewEvent(),
        .hulL2AdjHelper = hulL2AdjHelper(),
        .hulRouteReactorConfig = mounted( routingMounts(), &RoutingMounts::hulRouteReactorConfig ),
        .hulRoute6ReactorConfig = mounted( routingMounts(), &RoutingMounts::hulRoute6ReactorConfig ),
        .watchedNexthopGroupConfig = watchedNexthopGroupConfig(),
        .resolvedNexthopGroupStatus = resolvedNexthopGroupStatus(),
        .vrfSeqConfigDir = vrfSeqConfigDir(),
        .vrfSeqStatusDir = vrfSeqStatusDir(),
        .staticMrouteConfig = mounted( mcastMounts(), &McastMounts::staticMrouteConfig ),
        .staticMroute6Config = mounted( mcastMounts(), &McastMounts::staticMroute6Config ),
        .em = em(),
        .hulCliCommandRequestDir = hulCliCommandRequestDir(),
        .arpMirel = mounted( routingMounts(), &RoutingMounts::arpMirel ),
        .arpMirelVrfIdMap = mounted( routingMounts(), &RoutingMounts::arpMirelVrfIdMap ),
        .nexthopGroupConfig = nexthopGroupConfig(),
        .tunnelL2AdjRequest = tunnelL2AdjRequest(),
        .tunnelL2AdjResponse = tunnelL2AdjResponse(),
        .evpnVxlanTunnelTable = evpnVxlanTunnelTable(),
        .attrLogSm = attrLogSm() } );
}

AGENT_OWNED( Hul::AdjReviewEvent, adjReviewEvent, AdjReviewEvent ) { return Gant::make< Hul::AdjReviewEvent >(); }

AGENT_OWNED( HulHelper::AdjCapabilityHelper, adjCapHelper, AdjCapHelper ) {
   return Gant::make< HulHelper::AdjCapabilityHelper >(
        "adjCapHelper", mounted( routingMounts(), &RoutingMounts::routingHwStatus ),
        mounted( routingMounts(), &RoutingMounts::routingHwRouteStatus ) );
}

AGENT_OWNED( Hul::MonitoredNexthopSm, monitoredNexthopSm, MonitoredNexthopSm ) {
   return Gant::make< Hul::MonitoredNexthopSm >(
        Hul::MonitoredNexthopSm::Args{ hulL3Status(), monitoredNHStatus(), monitoredNHVrfStatusDir(),
                                       mounted( routingMounts(), &RoutingMounts::arpMirelVrfIdMap ) } );
}

AGENT_OWNED( Hul::RouteResolverSm, hulRouteResolverSm, HulRouteResolverSm ) {
   return Gant::make< Hul::RouteResolverSm >( Hul::RouteResolverSm::Args{
        .hulRouteReactorConfig = mounted( routingMounts(), &RoutingMounts::hulRouteReactorConfig ),
        .hulL3Status = hulL3Status(),
        .vexcsd = vexcsd(),
        .ipStatus = mounted( routingMounts(), &RoutingMounts::ipStatus ),
        .monitoredNexthopSm = monitoredNexthopSm(),
        .routingHwStatus = mounted( routingMounts(), &RoutingMounts::routingHwStatus ) } );
}

const Gant::Ptr< Hul::HulTunnelSm > & AgentSm::hulTunnelSmIs(
     const Gant::Ptr< Gant::Clock > & clock, const Gant::Ptr< Hul::L2AdjHelper > & l2AdjHelper,
     const Gant::Ptr< const Vxlan::BootStatus > & vxlanBootStatus,
     const Gant::Ptr< Interface::DelayRestartMonitorSm > & delayRestartMonitorSm ) {
   return hulTunnelSm_ = Gant::make< Hul::HulTunnelSm >( Hul::HulTunnelSm::Args{
               .vexcsd = vexcsd(),
               .hulRouteReactorConfig = mounted( routingMounts(), &RoutingMounts::hulRouteReactorConfig ),
               .hulL3Status = hulL3Status(),
               .clock = clock,
               .hulTunnelConfigDir = mounted( tunnelMounts(), &TunnelMounts::hulTunnelConfigDir ),
               .hulTunnelStatusDir = mounted( tunnelMounts(), &TunnelMounts::hulTunnelStatusDir ),
               .adjReviewEvent = adjReviewEvent(),
               .l2AdjHelper = l2AdjHelper,
               .vxlanBootStatus = vxlanBootStatus,
               .delayRestartMonitorSm = delayRestartMonitorSm } );
}

void AgentSm::hulTunnelSmDel() { hulTunnelSm_ = nullptr; }

AGENT_OWNED( VexL3Unicast::RoutingStatus, routingStatus, RoutingStatus ) {
   return routingStatusFactory( "routingStatus" );
}

AGENT_OWNED( VexL3Unicast::RoutingStatusSm, routingStatusSm, RoutingStatusSm ) {
   return RoutingStatusSmIs( vexcsd(), routingStatus(), bridgingConfig() );
}

AGENT_OWNED( VexL3Unicast::VexVrrpSm, vexVrrpSm, VexVrrpSm ) {
   return VexVrrpSmIs( vexcsd(), mounted( fhrpMounts(), &FhrpMounts::virtualMacStatusIn ),
                       mounted( fhrpMounts(), &FhrpMounts::fhrpHwStatus ) );
}

AGENT_OWNED( MrouteLib::StaticNatInfo, staticNatInfo, StaticNatInfo ) {
   return Gant::make< MrouteLib::StaticNatInfo >();
}

AGENT_OWNED( Acl::AclConfigAggregatorSm, aclConfigAggregatorSm, AclConfigAggregatorSm ) {
   return Gant::make< Acl::AclConfigAggregatorSm >(
        Acl::AclConfigAggregatorSm::Args{ aclInputConfig(), aclCliConfig(), aclConfig() } );
}

AGENT_OWNED( Vex::AclHelper, aclHelper, AclHelper ) {
   return Gant::make< Vex::AclHelper >( vexcsd(), aclConfig(), aclStatusDp(), counterMirel() );
}

AGENT_OWNED( Hul::AclSm, aclSm, AclSm ) {
   const auto sm = Gant::make< Hul::AclSm >( Hul::AclSm::Args{ .vexcsd = vexcsd(),
                                                               .aclConfig = aclConfig(),
                                                               .aclParamConfig = aclParamConfig(),
                                                               .aclIntfConfigDir = aclIntfConfigDir(),
                                                               .aclIntfConfigCli = aclIntfConfigCli(),
                                                               .aclHwConfig = aclHwConfig(),
                                                               .aclStatusDp = aclStatusDp(),
                                                               .aclCauseStatus = aclCauseStatus(),
                                                               .lagInputConfig = lagInputConfig(),
                                                               .aclHelper = aclHelper(),
                                                               .clock = Gant::activityManager()->config().clock(),
                                                               .bridgingConfig = bridgingConfig() } );
   sm->startIs( true );
   return sm;
}

AGENT_OWNED( Vex::QosAclHelper, qosAclHelper, QosAclHelper ) {
   return Gant::make< Vex::QosAclHelper >(
        mounted( qosMounts(), &QosMounts::qosStatus ), mounted( qosMounts(), &QosMounts::qosAclSliceHwStatus ),
        aclConfig(), mounted( qosMounts(), &QosMounts::qosAclHwStatus ), vexcsd(), counterMirel() );
}

AGENT_OWNED( Hul::QosAclSm, qosAclSm, QosAclSm ) {
   const auto sm = Gant::make< Hul::QosAclSm >(
        Hul::QosAclSm::Args{ .vexcsd = vexcsd(),
                             .qosCliCounterConfig = mounted( qosMounts(), &QosMounts::qosCliCounterConfig ),
                             .qosCounterConfigDir = mounted( qosMounts(), &QosMounts::qosCounterConfigDir ),
                             .qosStatus = mounted( qosMounts(), &QosMounts::qosStatus ),
                             .qosHwStatus = mounted( qosMounts(), &QosMounts::qosHwStatus ),
                             .qosSliceHwStatusDir = mounted( qosMounts(), &QosMounts::qosSliceHwStatusDir ),
                             .qosAclHwStatus = mounted( qosMounts(), &QosMounts::qosAclHwStatus ),
                             .qosAclSliceHwStatus = mounted( qosMounts(), &QosMounts::qosAclSliceHwStatus ),
                             .qosPdpHwCfg = mounted( qosMounts(), &QosMounts::qosPdpHwCfg ),
                             .hwEpochStatus = hwEpochStatus(),
                             .aclConfig = aclConfig(),
                             .qosAclHelper = qosAclHelper(),
                             .clock = mounted( qosMounts(), &QosMounts::clock ) } );
   sm->startIs( true );
   return sm;
}

AGENT_OWNED( VexL3Unicast::NatHelper, natHelper, NatHelper ) {
   const auto helper = NatHelperIs( aclSm() );
   helper->hulL3IntfTableIs( hulL3IntfTable() );
   helper->vexcsdIs( vexcsd() );
   return helper;
}

AGENT_OWNED( Hul::NextHopMapConfig, nhMapConfig, NhMapConfig ) {
   return Gant::make< Hul::NextHopMapConfig >( "NatNextHopConfig" );
}

AGENT_OWNED( Hul::NextHopMapStatus, nhMapStatus, NhMapStatus ) {
   return Gant::make< Hul::NextHopMapStatus >( "NatNextHopStatus" );
}

AGENT_OWNED( VexL3Unicast::NatRouteResolverSm, natRouteResolverSm, NatRouteResolverSm ) {
   return Gant::make< VexL3Unicast::NatRouteResolverSm >(
        nhMapConfig(), nhMapStatus(), mounted( routingMounts(), &RoutingMounts::hulRouteReactorConfig ),
        hulL3Status() );
}

AGENT_OWNED( Hul::NatSm, natSm, NatSm ) {
   const auto stateMachine = Gant::make< Hul::NatSm >( Hul::NatSm::Args{ .vexcsd = vexcsd(),
                                                                         .natStatus = natStatus(),
                                                                         .natHwStatus = natHwStatus(),
                                                                         .natHwCapabilities = natHwCapabilities(),
                                                                         .nhMapConfig = nhMapConfig(),
                                                                         .nhMapStatus = nhMapStatus(),
                                                                         .natHelper = natHelper(),
                                                                         .staticNatInfo = staticNatInfo() } );
   stateMachine->startIs( true );
   return stateMachine;
}

AGENT_OWNED( VexL3Unicast::NatLoopbackSm, natLoopbackSm, NatLoopbackSm ) {
   return Gant::make< VexL3Unicast::NatLoopbackSm >( vexcsd(), hulL3Status() );
}

AGENT_OWNED( VexL3Unicast::RouteDb, routeDb, RouteDb ) { return routeDbFactory( "routeDb" ); }

AGENT_OWNED( VexL3Unicast::IpsecHelper, ipsecHelper, IpsecHelper ) {
   return Gant::make< VexL3Unicast::IpsecHelper >( vexcsd(), managementSm() );
}

AGENT_OWNED( HulIpsec::HulConnectionTableSm, ipsecConnectionTableSm, IpsecConnectionTableSm ) {
   return Gant::make< HulIpsec::HulConnectionTableSm >( HulIpsec::HulConnectionTableSm::Args{
        ipsecHelper(), mounted( ipsecMounts(), &IpsecMounts::connectionTable ), vexcsd()->progress() } );
}

AGENT_OWNED( VexL3Unicast::IpsecGrpcSm, ipsecGrpcSm, IpsecGrpcSm ) {
   return ipsecGrpcSmFactory( ipsecHelper()->ipsecModuleConfigStatusPair() );
}

AGENT_OWNED( VexL3Unicast::FecVersionSm, fecVersionSm, FecVersionSm ) {
   return fecVersionSmFactory( "fecVersionSm", routeDb(), portVifStatus(), mcastVifStatus(), vlanStatusDir(),
                               hulL3Status(), hulVrfRootSm(), vexcsd() );
}

AGENT_OWNED( VexL3Mcast::MfaAgent, mfaAgent, MfaAgent ) {
   return Gant::make< VexL3Mcast::MfaAgent >( Kynet::AddressFamily::ipv4_, em(),
                                              vexcsd()->moduleGlobalCmdConfig()->moduleConfigStatusPairIs( "l3" ),
                                              nullptr, vexcsd(), false );
}

AGENT_OWNED( VexL3Mcast::MfaAgent, mfa6Agent, Mfa6Agent ) {
   return Gant::make< VexL3Mcast::MfaAgent >( Kynet::AddressFamily::ipv6_, em(),
                                              vexcsd()->moduleGlobalCmdConfig()->moduleConfigStatusPairIs( "l3" ),
                                              nullptr, vexcsd(), false );
}

AGENT_OWNED( VexL3Unicast::L3Modules, l3Modules, L3Modules ) { return Gant::make< VexL3Unicast::L3Modules >(); }

AGENT_OWNED( VexL3Sm, l3Sm, L3Sm ) {
   return vexL3SmFactory( vexcsd()->moduleGlobalCmdConfig()->moduleConfigStatusPairIs( "l3" ), vexcsd(), l3Modules(),
                          routeDb(), bridgingConfig(), hulL3Status(), portVifStatus(), vlanStatusDir(), tunnelDb(),
                          mfaAgent(), mfa6Agent(), ipsecHelper() );
}

AGENT_OWNED( VexL3Unicast::TunnelDb, tunnelDb, TunnelDb ) { return tunnelDbFactory(); }

AGENT_OWNED( Hardware::Capacity::VexL3Unicast::CapacitySm, capacitySm, CapacitySm ) {
   return Gant::make< Hardware::Capacity::VexL3Unicast::CapacitySm >( capacityStatus(),
                                                                      Gant::activityManager()->clock(), this );
}

} // namespace VexL3Unicast
