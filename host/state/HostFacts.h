// What the router is told: its objects as their writers see them, before they become entities of the state tree.
#pragma once

#include "GantEnum.h"
#include "HostTeller.h"
#include "HostWays.h"
#include "StateBridging.h"
#include "StateInterface.h"
#include "StateIpNat.h"
#include "StateL3.h"

#include <optional>
#include <set>
#include <vector>

namespace Host {

struct VrfFact {
   L3::VrfName name;
   // Its number in the FIBs. Nothing: the lowest one that is free. The default VRF has 0.
   std::optional< U32 > id{};
   // The network namespace of its interfaces' devices in the kernel, by its name. Empty: there are none, and of the
   // default VRF the data plane's own.
   Gant::String netns{};
   friend bool operator==( const VrfFact &, const VrfFact & ) = default;
};

// What is applied to an interface's packets, by name; empty: nothing.
struct IntfFilters {
   Gant::String aclIn{}; // access lists
   Gant::String aclOut{};
   Gant::String policyIn{}; // a policy map
   friend bool operator==( const IntfFilters &, const IntfFilters & ) = default;
};

// By what packets come in and go out.
GANT_ENUM( PortKind, U8, ( none, 0 ), // described packets only
           ( afPacket, 1 ),           // a device of the host's kernel, through a packet socket
           ( afXdp, 2 ),              // the same through an XDP socket
           ( vdev, 3 ),               // a virtual device of DPDK, with its arguments
           ( pci, 4 ),                // a device that DPDK has, by its address
           ( portId, 5 ),             // the same, by its number
           ( pcap, 6 ),               // a device of the host's kernel, through libpcap
           ( unixSocket, 7 ) )        // a SOCK_SEQPACKET socket that the port listens on, by its path

struct PortFact {
   PortKind kind{};
   Gant::String device{}; // what the kind names
   U32 queues = 1;        // in each direction
   friend bool operator==( const PortFact &, const PortFact & ) = default;
};

// What of an interface the kernel says by its device there, as nobody else has said it.
struct KernelOpen {
   bool addresses = false;
   bool mtu = false;
   bool mac = false;
   bool enabled = false;
   friend bool operator==( const KernelOpen &, const KernelOpen & ) = default;
};

// What the kernel has said of it. Nothing, or zero: nothing.
struct KernelFacts {
   std::vector< Kynet::Prefix > addresses{};
   std::optional< U32 > mtu{};
   Kynet::EthAddr mac{};
   std::optional< bool > enabled{};
   friend bool operator==( const KernelFacts &, const KernelFacts & ) = default;
};

struct IntfFact {
   Kynet::IntfId intfId;
   L3::VrfName vrf = L3::VrfName::defaultVrf();
   std::vector< Kynet::Prefix > addresses{}; // with host bits: the address and its subnet
   std::optional< U32 > mtu{};               // bytes of an IPv4 packet, from 68 (RFC 791); none: IntfBook::mtu
   U16 mssIngress = 0;                       // bytes of a TCP segment, 0: left alone
   U16 mssEgress = 0;
   Kynet::EthAddr mac{}; // zero: one that follows from the name
   bool enabled = true;
   IntfFilters filters{};
   std::optional< Interface::TunnelIntfStatus > tunnel{}; // of a tunnel interface, and only of one
   PortFact port{};                                       // of an interface that is no tunnel and no loopback
   std::optional< bool > kernel{}; // whether it has a device in the kernel; nothing: where there is a port
   KernelOpen open{};
   friend bool operator==( const IntfFact &, const IntfFact & ) = default;
};

struct NeighborFact {
   Kynet::IntfId intfId;
   Kynet::IpGenAddr addr;
   Kynet::EthAddr mac;
   friend bool operator==( const NeighborFact &, const NeighborFact & ) = default;
};

struct RouteFact {
   L3::VrfName vrf = L3::VrfName::defaultVrf();
   Kynet::IpGenPrefix prefix;
   Ways ways{};
   friend bool operator==( const RouteFact &, const RouteFact & ) = default;
};

// "Cpu" among the members makes the VLAN one in which the router itself takes part.
struct VlanFact {
   Bridging::VlanId vlanId;
   std::set< Kynet::IntfId > members{};
   friend bool operator==( const VlanFact &, const VlanFact & ) = default;
};

// A MAC to which the router answers on an interface beside the interface's own (RFC 5798, section 7.3).
struct VirtualMacFact {
   Kynet::IntfId intfId;
   Kynet::EthAddr mac;
   friend bool operator==( const VirtualMacFact &, const VirtualMacFact & ) = default;
};

struct NatStaticFact {
   Ip::Nat::StaticKey key;
   Ip::Nat::StaticConnection connection;
   friend bool operator==( const NatStaticFact &, const NatStaticFact & ) = default;
};

struct NatDynamicFact {
   Ip::Nat::DynamicKey key;
   Ip::Nat::DynamicRule rule;
   friend bool operator==( const NatDynamicFact &, const NatDynamicFact & ) = default;
};

} // namespace Host
