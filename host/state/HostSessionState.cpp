#include "HostSessionState.h"

#include "HulCapacity.h"
#include "HulTunnelSm.h"
#include "StateAcl.h"
#include "StateFhrp.h"
#include "StateIpNat.h"
#include "StateIpsec.h"
#include "StateQos.h"
#include "StateRouting.h"
#include "StateSystem.h"
#include "StateTunnel.h"
#include "VexCounterDb.h"
#include "VexL3Mounts.h"

namespace Host {

using Gant::make;

SessionState::SessionState( const StateTree & tree ) :
     unprogrammed( make< Mirel::Fib::UnprogrammedRouteStatus >( "routing/fib/unprogrammed" ) ),
     unprogrammed6( make< Mirel::Fib6::UnprogrammedRouteStatus >( "routing6/fib/unprogrammed" ) ),
     vrfSeqStatusDir( make< Gant::Dir >( "routing/vrf/sequence/status" ) ),
     capacityStatus( make< HulCapacity::TableCapacity >( "hardware/capacity/status" ) ),
     aclConfig( make< Acl::Config >( "acl/config" ) ),
     counterMirel( make< VexModules::MirelCounterDbStatus >( "vex/counter" ) ), tree_( tree ) {
   mount( true );
}

SessionState::~SessionState() { mount( false ); }

void SessionState::mount( bool present ) const {
   const auto made = [ present ]< typename T >( std::type_identity< T >, const Gant::String & name ) {
      return present ? make< T >( name ) : Gant::Ptr< T >();
   };
   const auto path = [ & ]< typename T >( std::type_identity< T > type, const Gant::String & name ) {
      tree_.em->entityIs( name, made( type, name ) );
   };
   using std::type_identity;
   path( type_identity< Acl::StatusDp >(), Gant::format( "cell/%d/acl/status/dp/vex", StateTree::cellId ) );
   path( type_identity< Errdisable::CauseStatus >(), "interface/errdisable/cause/acl" );
   path( type_identity< Ip::Nat::HwStatus >(), "ip/nat/hwStatus" );
   path( type_identity< Ip::Nat::HwCapabilities >(), "ip/nat/hwCapabilities" );
   path( type_identity< Arp::MonitoredNexthop::Input::Status >(), "arp/monitorednexthop/input/status/vex" );
   path( type_identity< Arp::MonitoredNexthop::Input::VrfStatusDir >(), "arp/monitorednexthop/vrf/input/status/vex" );

   auto & routing = *tree_.routingMounts;
   routing.unprogrammedRouteStatusIs( present ? unprogrammed : nullptr );
   routing.unprogrammedRoute6StatusIs( present ? unprogrammed6 : nullptr );
   routing.routingHwStatusIs( made( type_identity< Routing::Hardware::Status >(), "routing/hardware/status" ) );
   routing.routingHwRouteStatusIs(
        made( type_identity< Routing::Hardware::RouteStatus >(), "routing/hardware/route/status" ) );
   routing.routing6HwStatusIs( made( type_identity< Routing6::Hardware::Status >(), "routing6/hardware/status" ) );
   routing.routing6HwRouteStatusIs(
        made( type_identity< Routing6::Hardware::RouteStatus >(), "routing6/hardware/route/status" ) );
   routing.routingHwNexthopGroupStatusIs(
        made( type_identity< Routing::Hardware::NexthopGroupStatus >(), "routing/hardware/nexthopgroup/status" ) );
   routing.arpHardwareStatusIs( made( type_identity< Arp::Hardware::Status >(), "arp/hardware/status" ) );
   tree_.mcastMounts->mfibHwStatusIs(
        made( type_identity< Routing::Multicast::Fib::Hardware::Status >(), "mfib/hardware/status" ) );
   tree_.tunnelMounts->hulTunnelStatusDirIs( made( type_identity< Hul::HulTunnelStatusDir >(), "hul/tunnel/status" ) );
   tree_.tunnelMounts->vxlanHwStatusDirIs(
        made( type_identity< Vxlan::VxlanHwStatusDir >(), "vxlan/hardware/status" ) );
   tree_.ipsecMounts->ipsecCapabilitiesStatusIs(
        made( type_identity< Ipsec::Capabilities::Status >(), "ipsec/capabilities/status" ) );
   tree_.ip4TunnelMounts->hwTunnelTerminationStatusIs(
        made( type_identity< Interface::TunnelIntfHwStatusDir >(), "interface/tunnel/hardware/status" ) );
   tree_.fhrpMounts->fhrpHwStatusIs(
        made( type_identity< Routing::Fhrp::Hardware::Status >(), "fhrp/hardware/status" ) );
   auto & qos = *tree_.qosMounts;
   qos.qosHwStatusIs( made( type_identity< Qos::HwStatus >(), "qos/hardware/status" ) );
   qos.qosSliceHwStatusDirIs( made( type_identity< Gant::Dir >(), "qos/hardware/status/slice" ) );
   qos.qosSliceHwStatusIs( made( type_identity< Qos::SliceHwStatus >(), "qos/hardware/status/slice/vex" ) );
   qos.qosAclHwStatusIs( made( type_identity< Qos::AclHwStatus >(), "qos/acl/hardware/status" ) );
   qos.qosAclSliceHwStatusIs( made( type_identity< Qos::AclSliceHwStatus >(), "qos/acl/hardware/status/slice" ) );
}

} // namespace Host
