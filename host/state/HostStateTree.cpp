#include "HostStateTree.h"

#include "HulRouteReactor.h"
#include "HulTunnelSm.h"
#include "KytTimerWheel.h"
#include "StateAcl.h"
#include "StateBfd.h"
#include "StateFhrp.h"
#include "StateIp6.h"
#include "StateIpNat.h"
#include "StateIpsec.h"
#include "StateQos.h"
#include "StateRouting.h"
#include "StateSystem.h"
#include "StateTunnel.h"
#include "StateVexVif.h"
#include "StateVrf.h"
#include "VexL3Mounts.h"

namespace Host {

using Gant::make;

StateTree::StateTree() :
     em( make< Quorl::EntityManager >( "vexl3" ) ), portDir( make< PortDir >( "engine/port" ) ),
     deviceDir( make< DeviceDir >( "engine/device" ) ), bridgingConfig( make< Bridging::Config >( "bridging/config" ) ),
     bridgingStatus( make< Bridging::Status >( "bridging/status" ) ),
     vlanStatusDir( make< Bridging::VlanStatusDir >( "bridging/vlan/status" ) ),
     allIntfStatusDir( make< Interface::AllIntfStatusDir >( "interface/status/all" ) ),
     ethIntfStatusDir( make< Interface::EthIntfStatusDir >( "interface/status/eth" ) ),
     tunnelIntfStatusDir( make< Interface::TunnelIntfStatusDir >( "interface/status/tunnel" ) ),
     vlanIntfConfigDir( make< Interface::VlanIntfConfigDir >( "interface/config/vlan" ) ),
     vlanIntfStatusDir( make< Interface::VlanIntfStatusDir >( "interface/status/vlan" ) ),
     ipStatus( make< Ip::Status >( "ip/status" ) ),
     allVrfStatusLocal( make< Ip::AllVrfStatusLocal >( "ip/vrf/status/local" ) ),
     arp( make< Arp::Table::Status >( "arp/status" ) ), fib( make< Mirel::Fib::RouteStatus >( "routing/fib/status" ) ),
     fib6( make< Mirel::Fib6::RouteStatus >( "routing6/fib/status" ) ),
     vrfSeqConfigDir( make< Gant::Dir >( "routing/vrf/sequence/config" ) ),
     aclCliConfig( make< Acl::Input::Config >( "acl/config/cli" ) ),
     aclIntfConfig( make< Acl::IntfConfig >( "acl/intf/config/cli" ) ),
     qosStatus( make< Qos::Status >( "qos/status" ) ),
     virtualMacStatus( make< Routing::Fhrp::VirtualRouterMacStatus >( "fhrp/virtualMac/status" ) ),
     natStatus( make< Ip::Nat::Status >( "ip/nat/status" ) ),
     portVifStatus( make< VexVif::PortVifStatus >( "vex/vif/port" ) ),
     mcastVifStatus( make< VexMcast::McastVifStatus >( "vex/vif/mcast" ) ),
     hulCliCommandRequestDir( make< Gant::Dir >( "hul/cli/request" ) ),
     evpnVxlanTunnelTable( make< Tunnel::TunnelTable::EvpnVxlanTunnelTable >( "tunnel/vxlan" ) ),
     routingMounts( VexL3Unicast::routingMountsFactory() ), mcastMounts( VexL3Unicast::mcastMountsFactory() ),
     vrfMounts( VexL3Unicast::vrfMountsFactory() ), bfdMounts( VexL3Unicast::bfdMountsFactory() ),
     tunnelMounts( VexL3Unicast::tunnelMountsFactory() ), ipsecMounts( VexL3Unicast::ipsecMountsFactory() ),
     ip4TunnelMounts( VexL3Unicast::ip4TunnelMountsFactory() ), fhrpMounts( VexL3Unicast::fhrpMountsFactory() ),
     qosMounts( VexL3Unicast::qosMountsFactory() ) {
   // Before anybody watches.
   allIntfStatusDir->tunnelIntfStatusDirIs( tunnelIntfStatusDir );
   mountPaths();
   fillRoutingMounts();
   fillOtherMounts();
   fillQosMounts();
}

StateTree::~StateTree() = default;

void StateTree::mountPaths() {
   const auto mount = [ this ]< typename T >( const char * path, Gant::Ptr< T > entity ) {
      em->entityIs( path, std::move( entity ) );
   };
   mount( "hwEpoch/status", make< HwEpoch::Status >( "hwEpoch/status" ) );
   mount( "ip/nat/config", make< Ip::Nat::Config >( "ip/nat/config" ) );
   mount( "ip/nat/status", natStatus );
   mount( "lag/input/config/cli", make< Lag::Input::Config >( "lag/input/config/cli" ) );
   mount( "bridging/topology/config", make< Bridging::Topology::Config >( "bridging/topology/config" ) );
   mount( "acl/intf/config/input", make< Gant::Dir >( "acl/intf/config/input" ) );
   mount( "acl/intf/config/cli", aclIntfConfig );
   mount( "acl/hwconfig", make< Gant::Dir >( "acl/hwconfig" ) );
   mount( "routing/nexthopgroup/input/cli",
          make< Routing::NexthopGroup::ConfigInput >( "routing/nexthopgroup/input/cli" ) );
   mount( "routing/nexthopgroup/input/config", make< Gant::Dir >( "routing/nexthopgroup/input/config" ) );
   mount( "acl/paramconfig", make< Acl::ParamConfig >( "acl/paramconfig" ) );
   mount( "acl/config/input", make< Gant::Dir >( "acl/config/input" ) );
   mount( "acl/config/cli", aclCliConfig );
}

void StateTree::fillRoutingMounts() {
   auto & mounts = *routingMounts;
   mounts.l3ConfigIs( make< L3::Config >( "l3/config" ) );
   mounts.routeStatusIs( fib );
   mounts.routingHwConfigIs( make< Routing::Hardware::Config >( "routing/hardware/config" ) );
   mounts.routingHwDlbConfigIs( make< Routing::Hardware::DlbConfig >( "routing/hardware/dlb/config" ) );
   mounts.route6StatusIs( fib6 );
   mounts.routing6HwConfigIs( make< Routing6::Hardware::Config >( "routing6/hardware/config" ) );
   mounts.ipStatusIs( ipStatus );
   mounts.ip6StatusIs( make< Ip6::Status >( "ip6/status" ) );
   mounts.allIntfStatusDirIs( allIntfStatusDir );
   mounts.arpMirelIs( arp );
   mounts.arpMirelVrfIdMapIs( make< Vrf::VrfIdMap::Status >( "vrf/vrfIdMap/status" ) );
   mounts.hulRouteReactorConfigIs( make< Hul::RouteReactorConfig >( "hul/routeReactor/config" ) );
   mounts.hulRoute6ReactorConfigIs( make< Hul::Route6ReactorConfig >( "hul/route6Reactor/config" ) );
}

void StateTree::fillOtherMounts() {
   mcastMounts->staticMrouteConfigIs( make< McastCommon::StaticMrouteConfigColl >( "mroute/static" ) );
   mcastMounts->staticMroute6ConfigIs( make< McastCommon::StaticMrouteConfigColl >( "mroute6/static" ) );
   mcastMounts->mfibVrfConfigIs( make< Routing::Multicast::Fib::VrfConfig >( "mfib/vrf/config" ) );

   vrfMounts->allVrfStatusGlobalIs( make< Ip::AllVrfStatusGlobal >( "ip/vrf/status/global" ) );
   vrfMounts->allVrfStatusLocalIs( allVrfStatusLocal );
   vrfMounts->routingVrfInfoDirIs( make< Gant::Dir >( "routing/vrf/info" ) );
   vrfMounts->routing6VrfInfoDirIs( make< Gant::Dir >( "routing6/vrf/info" ) );

   bfdMounts->bfdAllPeerStatusDirIs( make< Bfd::StatusPeer >( "bfd/status/peer" ) );
   bfdMounts->bfdAllPeerStatusIs( "vex" );
   bfdMounts->allIntfStatusLocalDirIs( make< Interface::AllIntfStatusLocalDir >( "interface/status/local" ) );

   tunnelMounts->hulTunnelConfigDirIs( make< Hul::HulTunnelConfigDir >( "hul/tunnel/config" ) );
   tunnelMounts->vtiStatusDirIs( make< Vxlan::VtiStatusDir >( "vxlan/vti/status" ) );

   ipsecMounts->ipsecStatusIs( make< Ipsec::Ike::Status >( "ipsec/ike/status" ) );
   ipsecMounts->connectionTableIs( make< Ipsec::Ike::ConnectionTable >( "ipsec/ike/connection" ) );

   ip4TunnelMounts->tunnelIntfStatusDirIs( tunnelIntfStatusDir );
   ip4TunnelMounts->tunnelIntfStatusLocalDirIs(
        make< Interface::TunnelIntfStatusLocalDir >( "interface/tunnel/status/local" ) );

   fhrpMounts->virtualMacStatusInIs( virtualMacStatus );
}

void StateTree::fillQosMounts() {
   // A tick of a tenth of a second is the measure of counters that people read; the wheel turns once in a minute.
   constexpr U32 tickMsecs = 100, ticks = 600, bucketSize = 8;
   qosMounts->clockIs( Gant::activityManager()->clock(), tickMsecs, ticks, true, bucketSize );
   qosMounts->qosStatusIs( qosStatus );
   qosMounts->qosPdpHwCfgIs( make< Qos::Input::Config >( "qos/input/config/pdp" ) );
   qosMounts->qosCliCounterConfigIs( make< Qos::CounterConfig >( "qos/input/counter/cli" ) );
   qosMounts->qosCounterConfigDirIs( make< Gant::Dir >( "qos/input/counter" ) );
}

} // namespace Host
