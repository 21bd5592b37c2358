#include "VexL3Intf.h"

namespace Vex {

ModuleChain & L3Intf::ingress( U16 etherType ) {
   const auto [ at, added ] = ingress_.try_emplace( etherType );
   if ( added && l2Intf_ ) {
      const auto & classify = l2Intf_->ingressClassify();
      const auto gate = classify->getOutGate();
      at->second.sourceIs( classify, gate );
      classify->setEtherTypeGate( etherType, gate );
   }
   return at->second;
}

ModuleChain & L3Intf::egress( U16 etherType ) {
   const auto [ at, added ] = egress_.try_emplace( etherType );
   if ( added && l2Intf_ ) at->second.exitIs( l2Intf_->txModule() );
   return at->second;
}

void L3Intf::connectIngressModule( const Gant::Ptr< Module > & module, U16 etherType, U32 priority ) {
   ingress( etherType ).place( module, priority );
}

void L3Intf::disconnectIngressModule( const Gant::Ptr< Module > & module, U16 etherType ) {
   if ( module ) ingress( etherType ).remove( module.get() );
}

void L3Intf::connectEgressModule( const Gant::Ptr< Module > & module, U16 etherType, U32 priority ) {
   egress( etherType ).place( module, priority );
}

void L3Intf::disconnectEgressModule( const Gant::Ptr< Module > & module, U16 etherType ) {
   if ( module ) egress( etherType ).remove( module.get() );
}

void L3Intf::connectEgressSourceModule( const Gant::Ptr< Module > & module, U16 etherType, GateId gate ) {
   egress( etherType ).sourceIs( module, gate );
}

void L3Intf::disconnectEgressSourceModule( const Gant::Ptr< Module > & module, U16 etherType ) {
   if ( module ) egress( etherType ).sourceDel( module.get() );
}

void L3Intf::takeDown() {
   for ( const auto & [ etherType, chain ] : ingress_ )
      if ( l2Intf_ ) l2Intf_->ingressClassify()->clearEtherTypeGate( etherType );
   ingress_.clear();
   egress_.clear();
}

} // namespace Vex
