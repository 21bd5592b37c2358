// Which interface of a VRF has an address on one of its subnets.
#pragma once

#include "KynetAddr.h"
#include "KynetIntfId.h"

#include <array>
#include <map>
#include <optional>

namespace Host {

// Subnets of one VRF do not overlap.
class Subnets {
 public:
   void subnetIs( U32 vrfId, Kynet::Prefix subnet, Kynet::IntfId intfId );
   void subnetDel( U32 vrfId, Kynet::Prefix subnet );
   // The interface that has the address on a subnet.
   std::optional< Kynet::IntfId > intf( U32 vrfId, Kynet::IpAddr addr ) const;
   // A subnet of another interface that has an address in common with this one.
   struct Overlap {
      Kynet::Prefix subnet;
      Kynet::IntfId intfId;
   };
   std::optional< Overlap > overlap( U32 vrfId, Kynet::Prefix subnet, Kynet::IntfId except ) const;

 private:
   struct Vrf {
      std::map< Kynet::Prefix, Kynet::IntfId > intfs;
      std::array< U32, 33 > lengths{}; // subnets by prefix length
   };
   std::map< U32, Vrf > vrfs_;
};

// The prefix without its host bits.
Kynet::Prefix subnetOf( Kynet::Prefix address );

} // namespace Host
