// The address translations that the router is told.
#pragma once

#include "HostIntfBook.h"

namespace Host {

// Rules are taken and handed to the layers above, which accept them. This data plane has no translation: whoever tells
// a rule is told so. A static rule goes with its interface.
class NatBook {
 public:
   using Statics = std::map< Ip::Nat::StaticKey, Told< NatStaticFact > >;
   using Dynamics = std::map< Ip::Nat::DynamicKey, Told< NatDynamicFact > >;

   NatBook( StateTree & tree, const IntfBook & intfs ) : tree_( tree ), intfs_( intfs ) {}

   ChangeResult staticIs( const NatStaticFact & fact, Teller teller );
   ChangeResult dynamicIs( const NatDynamicFact & fact, Teller teller );
   ChangeResult staticDel( const Ip::Nat::StaticKey & key );
   ChangeResult dynamicDel( const Ip::Nat::DynamicKey & key );
   // The interface has gone.
   void intfDel( Kynet::IntfId intfId );

   const Statics & statics() const { return statics_; }
   const Dynamics & dynamics() const { return dynamics_; }

 private:
   StateTree & tree_;
   const IntfBook & intfs_;
   Statics statics_;
   Dynamics dynamics_;
};

// "NAT of source 10.0.0.1:80 on Ethernet1", "NAT of list inside in VLAN 10"
Gant::String textOf( const Ip::Nat::StaticKey & key );
Gant::String textOf( const Ip::Nat::DynamicKey & key );

} // namespace Host
