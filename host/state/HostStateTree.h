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

   // The paths by which an agent finds what no mount holds. Written here, and by SessionState.
   const Gant::Ptr< Quorl::EntityManager > em;

   // Behind each entity, who writes it: nobody else does.

   // Interfaces and VRFs.
   const Gant::Ptr< PortDir > portDir;                                    // IntfBook
   const Gant::Ptr< DeviceDir > deviceDir;                                // IntfBook
   const Gant::Ptr< Bridging::Config > bridgingConfig;                    // VlanBook; the router's MAC, IntfBook
   const Gant::Ptr< Bridging::Status > bridgingStatus;                    // nobody
   const Gant::Ptr< Bridging::VlanStatusDir > vlanStatusDir;              // VlanBook
   const Gant::Ptr< Interface::AllIntfStatusDir > allIntfStatusDir;       // IntfBook
   const Gant::Ptr< Interface::EthIntfStatusDir > ethIntfStatusDir;       // IntfBook
   const Gant::Ptr< Interface::TunnelIntfStatusDir > tunnelIntfStatusDir; // IntfBook
   const Gant::Ptr< Interface::VlanIntfConfigDir > vlanIntfConfigDir;     // nobody
   const Gant::Ptr< Interface::VlanIntfStatusDir > vlanIntfStatusDir;     // IntfBook
   const Gant::Ptr< Ip::Status > ipStatus;                                // IntfBook
   const Gant::Ptr< Ip::AllVrfStatusLocal > allVrfStatusLocal;            // VrfBook

   // Neighbours and routes.
   const Gant::Ptr< Arp::Table::Status > arp;        // IntfBook
   const Gant::Ptr< Mirel::Fib::RouteStatus > fib;   // routes RouteBook, FECs FecBook
   const Gant::Ptr< Mirel::Fib6::RouteStatus > fib6; // the same
   const Gant::Ptr< Gant::Dir > vrfSeqConfigDir;     // nobody: no sequence is asked for

   // Access lists, quality of service, virtual routers, translations.
   const Gant::Ptr< Acl::Input::Config > aclCliConfig; // AclBook
   const Gant::Ptr< Acl::IntfConfig > aclIntfConfig;   // IntfBook
   const Gant::Ptr< Qos::Status > qosStatus;           // AclBook; what is applied where, IntfBook
   const Gant::Ptr< Routing::Fhrp::VirtualRouterMacStatus > virtualMacStatus; // VirtualMacBook
   const Gant::Ptr< Ip::Nat::Status > natStatus;                              // NatBook

   // Handed through: nobody writes them here.
   const Gant::Ptr< VexVif::PortVifStatus > portVifStatus;
   const Gant::Ptr< VexMcast::McastVifStatus > mcastVifStatus;
   const Gant::Ptr< Gant::Dir > hulCliCommandRequestDir;
   const Gant::Ptr< Tunnel::TunnelTable::EvpnVxlanTunnelTable > evpnVxlanTunnelTable;

   // The mounts, filled here and by SessionState. Of what only they hold, IpsecBook writes the table of connections;
   // the rest stays empty.
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
