// What interfaces have outside the data plane's graph: their ports, and their devices in the host's kernel.
#pragma once

#include "GantAttr.h"
#include "GantEntity.h"
#include "HostFacts.h"

namespace Host {

struct Device {
   // A device in the kernel by default is one where the interface has a port; for those that never have one (tunnels,
   // loopbacks) where the router has any.
   enum class Kernel { none, byDefault, asked };

   PortFact port{};
   Kernel kernel = Kernel::none;
   L3::VrfName vrf{};
   Gant::String netns{}; // of the VRF
   bool tunnel = false;
   bool enabled = true;
   Kynet::EthAddr mac{}; // zero: a tunnel has none
   U32 mtu = 0;          // bytes of an IPv4 packet
   std::vector< Kynet::Prefix > addresses{};
   KernelOpen open{};
   friend bool operator==( const Device &, const Device & ) = default;
};

// By interface. Written by IntfBook.
class DeviceDir : public Gant::Entity {
 public:
   using Devices = Gant::OrderedMap< Kynet::IntfId, Device >;
   class Notifiee : public Gant::NotifieeOf< DeviceDir > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onDevice( const Kynet::IntfId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( Devices, device, onDevice )
};

} // namespace Host
