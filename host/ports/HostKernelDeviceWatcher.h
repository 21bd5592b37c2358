// Where the routers' devices in the host's kernel are told to whoever looks after them there.
#pragma once

#include "HostFacts.h"

namespace Host {

// A device that the data plane has made: a TAP, or of a tunnel a TUN.
struct KernelDevice {
   Kynet::IntfId intfId;
   Gant::String name{};  // of the device
   Gant::String netns{}; // the name of its network namespace; empty: the data plane's own
   L3::VrfName vrf{};
   bool tunnel = false;
   bool enabled = true;
   bool linkUp = true;   // of the interface's port; of an interface that has none, true
   Kynet::EthAddr mac{}; // zero: of a tunnel
   U32 mtu = 0;
   std::vector< Kynet::Prefix > addresses{}; // with host bits
   friend bool operator==( const KernelDevice &, const KernelDevice & ) = default;
};

// Called on the loop.
class KernelDeviceWatcher {
 public:
   virtual ~KernelDeviceWatcher() = default;
   // It is there, or something about it is different from what was told before. Another name or namespace comes after
   // the end of the one before.
   virtual void kernelDeviceIs( const KernelDevice & device ) = 0;
   // It goes, or is gone with the data plane.
   virtual void kernelDeviceDel( Kynet::IntfId intfId ) = 0;
};

} // namespace Host
