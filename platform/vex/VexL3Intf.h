// A routed interface: the chains that its packets pass, in and out, for each EtherType.
#pragma once

#include "VexL2Intf.h"

namespace Vex {

class L3Intf : public Gant::PtrInterface {
 public:
   class Notifiee : public Gant::NotifieeOf< L3Intf > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onIpMtu() {}
   };
   GANT_NOTIFIER( Notifiee )

   L3Intf( Kynet::IntfId intfId, Hul::VrfId vrfId, Gant::Ptr< L2Intf > l2Intf, U32 ipMtu ) :
        intfId_( intfId ), vrfId_( vrfId ), l2Intf_( std::move( l2Intf ) ), ipMtu_( ipMtu ) {}
   ~L3Intf() override { takeDown(); }
   const char * fwkType() const override { return "Vex::L3Intf"; }

   GANT_CONST( Kynet::IntfId, intfId )
   GANT_CONST( Hul::VrfId, vrfId )
   GANT_CONST( Gant::Ptr< L2Intf >, l2Intf )
   GANT_WATCHED( U32, ipMtu, onIpMtu, 0 ) // bytes

   // Placing a module where it stands already changes nothing. A lower priority comes first.
   void connectIngressModule( const Gant::Ptr< Module > & module, U16 etherType, U32 priority );
   void disconnectIngressModule( const Gant::Ptr< Module > & module, U16 etherType );
   // The last module of an egress chain leads out of the interface.
   void connectEgressModule( const Gant::Ptr< Module > & module, U16 etherType, U32 priority );
   void disconnectEgressModule( const Gant::Ptr< Module > & module, U16 etherType );
   // Packets that leave `module` by the gate, which was taken with getOutGate, go out of this interface.
   void connectEgressSourceModule( const Gant::Ptr< Module > & module, U16 etherType, GateId gate );
   void disconnectEgressSourceModule( const Gant::Ptr< Module > & module, U16 etherType );

   // Takes the chains down: nothing leads in or out any more.
   void takeDown();

   using Chains = std::map< U16, ModuleChain >;
   const Chains & ingressChains() const { return ingress_; }
   const Chains & egressChains() const { return egress_; }

 private:
   ModuleChain & ingress( U16 etherType );
   ModuleChain & egress( U16 etherType );

   Chains ingress_;
   Chains egress_;
};

} // namespace Vex
