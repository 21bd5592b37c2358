// The state tree of the router: every entity that outlives an agent, and the mounts by which an agent finds them. What
// an agent writes of its data plane is not here: it is in SessionState, which dies with the session.
#pragma once

#include "GantAttr.h"
#include "GantEntity.h"
#include "GantValue.h"
#include "HostDevice.h"
#include "HulTypes.h"
#include "KynetIntfId.h"
#include "MirelFib.h"
#include "QuorlEntityManager.h"
#include "StateArp.h"
#include "StateBridging.h"
#include "StateInterface.h"
#include "StateIp.h"
#include "VexL2Intf.h"

namespace Acl {
class Config;
class IntfConfig;
namespace Input {
class Config;
}
} // namespace Acl
namespace HulCapacity {
class TableCapacity;
}
namespace Interface {
class VlanIntfConfigDir;
}
namespace Ip::Nat {
class Status;
}
namespace Routing::Fhrp {
class VirtualRouterMacStatus;
}
namespace Qos {
class Status;
}
namespace Tunnel::TunnelTable {
class EvpnVxlanTunnelTable;
}
namespace VexL3Unicast {
class BfdMounts;
class FhrpMounts;
class Ip4TunnelMounts;
class IpsecMounts;
class McastMounts;
class QosMounts;
class RoutingMounts;
class TunnelMounts;
class VrfMounts;
} // namespace VexL3Unicast
namespace VexMcast {
class McastVifStatus;
}
namespace VexModules {
class MirelCounterDbStatus;
}
namespace VexVif {
class PortVifStatus;
}

namespace Host {

// What the engine makes of an interface: a port, or a tunnel with its ends.
class Port {
   GANT_VALUE( "Host::Port", Port, ( Vex::EncapType, encapType ), ( Kynet::EthAddr, macAddr ),
               ( Interface::TunnelIntfStatus, tunnel ), ( Hul::VrfId, underlayVrfId ), ( Hul::VrfId, overlayVrfId ),
               ( U32, ipsecEncapId ), ( bool, enabled ) )
};

// The ports and tunnels that the engine is to have.
class PortDir : public Gant::Entity {
 public:
   using Ports = Gant::OrderedMap< Kynet::IntfId, Port >;
   class Notifiee : public Gant::NotifieeOf< PortDir > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onPort( const Kynet::IntfId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( Ports, port, onPort )
};

class StateTree {
 public:
   // Number of this cell in the paths of the tree.
   static constexpr U16 cellId = 1;

   StateTree();
   ~StateTree();

   const Gant::Ptr< Quorl::EntityManager > em;
   const Gant::Ptr< PortDir > portDir;
   const Gant::Ptr< DeviceDir > deviceDir;

   // Interfaces and VRFs. Written by IntfBook, VlanBook and VrfBook; portDir and deviceDir, too, by IntfBook.
   const Gant::Ptr< Bridging::Config > bridgingConfig;
   const Gant::Ptr< Bridging::Status > bridgingStatus;
   const Gant::Ptr< Bridging::VlanStatusDir > vlanStatusDir;
   const Gant::Ptr< Interface::AllIntfStatusDir > allIntfStatusDir;
   const Gant::Ptr< Interface::EthIntfStatusDir > ethIntfStatusDir;
   const Gant::Ptr< Interface::TunnelIntfStatusDir > tunnelIntfStatusDir;
   const Gant::Ptr< Interface::VlanIntfConfigDir > vlanIntfConfigDir;
   const Gant::Ptr< Interface::VlanIntfStatusDir > vlanIntfStatusDir;
   const Gant::Ptr< Ip::Status > ipStatus;
   const Gant::Ptr< Ip::AllVrfStatusLocal > allVrfStatusLocal;

   // Neighbours and routes. Written by IntfBook, RouteBook and FecBook. The directory of wanted sequences is empty.
   const Gant::Ptr< Arp::Table::Status > arp;
   const Gant::Ptr< Mirel::Fib::RouteStatus > fib;
   const Gant::Ptr< Mirel::Fib6::RouteStatus > fib6;
   const Gant::Ptr< Gant::Dir > vrfSeqConfigDir;

   // Access lists and quality of service. Written by AclBook.
   const Gant::Ptr< Acl::Input::Config > aclCliConfig;
   const Gant::Ptr< Acl::IntfConfig > aclIntfConfig;
   const Gant::Ptr< Qos::Status > qosStatus;
   // Virtual routers, and translations. Written by VirtualMacBook and NatBook.
   const Gant::Ptr< Routing::Fhrp::VirtualRouterMacStatus > virtualMacStatus;
   const Gant::Ptr< Ip::Nat::Status > natStatus;

   // Handed through: nobody writes them here.
   const Gant::Ptr< VexVif::PortVifStatus > portVifStatus;
   const Gant::Ptr< VexMcast::McastVifStatus > mcastVifStatus;
   const Gant::Ptr< Gant::Dir > hulCliCommandRequestDir;
   const Gant::Ptr< Tunnel::TunnelTable::EvpnVxlanTunnelTable > evpnVxlanTunnelTable;

   const Gant::Ptr< VexL3Unicast::RoutingMounts > routingMounts;
   const Gant::Ptr< VexL3Unicast::McastMounts > mcastMounts;
   const Gant::Ptr< VexL3Unicast::VrfMounts > vrfMounts;
   const Gant::Ptr< VexL3Unicast::BfdMounts > bfdMounts;
   const Gant::Ptr< VexL3Unicast::TunnelMounts > tunnelMounts;
   const Gant::Ptr< VexL3Unicast::IpsecMounts > ipsecMounts;
   const Gant::Ptr< VexL3Unicast::Ip4TunnelMounts > ip4TunnelMounts;
   const Gant::Ptr< VexL3Unicast::FhrpMounts > fhrpMounts;
   const Gant::Ptr< VexL3Unicast::QosMounts > qosMounts;

 private:
   void mountPaths();
   void fillRoutingMounts();
   void fillOtherMounts();
   void fillQosMounts();
};

} // namespace Host
