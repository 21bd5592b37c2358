// The VLANs that the router is told, with their members.
#pragma once

#include "HostStateTree.h"
#include "HostVrfBook.h"

namespace Host {

// A member is a port, or "Cpu". Ports need not be interfaces of the router: they may be told later, or never.
class VlanBook {
 public:
   using Vlans = std::map< Bridging::VlanId, Told< VlanFact > >;

   explicit VlanBook( StateTree & tree ) : tree_( tree ) {}

   ChangeResult vlanIs( const VlanFact & fact, Teller teller );
   ChangeResult vlanDel( Bridging::VlanId vlanId );

   const Vlans & vlans() const { return vlans_; }

 private:
   StateTree & tree_;
   Vlans vlans_;
};

} // namespace Host
