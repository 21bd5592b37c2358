#include "VexL3Mounts.h"

#include "KytTimerWheel.h"
#include "StateBfd.h"

namespace VexL3Unicast {

BfdMounts::~BfdMounts() { bfdAllPeerStatusDel(); }

Gant::Ptr< Bfd::AppStatus > BfdMounts::newBfdAllPeerStatus( const Gant::Name & name ) {
   return Gant::make< Bfd::AppStatus >( name );
}

const Gant::Ptr< Bfd::AppStatus > & BfdMounts::bfdAllPeerStatusIs( const Gant::Name & name ) {
   if ( !bfdAllPeerStatus_ || bfdAllPeerStatus_->name() != name ) bfdAllPeerStatus_ = newBfdAllPeerStatus( name );
   return bfdAllPeerStatus_;
}

void BfdMounts::bfdAllPeerStatusDel() { bfdAllPeerStatus_ = nullptr; }

QosMounts::~QosMounts() { clockDel(); }

Gant::String QosMounts::qosName() const { return "VexQos"; }

Gant::Ptr< Kyt::TimerWheel > QosMounts::newClock( const Gant::Ptr< Gant::Clock > & systemClock, U32 tickMsecs,
                                                  U32 initialMaxTicks, bool preserveOrder, U32 defaultBucketSize ) {
   return Gant::make< Kyt::TimerWheel >( systemClock, tickMsecs, initialMaxTicks, preserveOrder, defaultBucketSize );
}

const Gant::Ptr< Kyt::TimerWheel > & QosMounts::clockIs( const Gant::Ptr< Gant::Clock > & systemClock, U32 tickMsecs,
                                                         U32 initialMaxTicks, bool preserveOrder,
                                                         U32 defaultBucketSize ) {
   const bool same = clock_ && clock_->systemClock() == systemClock && clock_->tickMsecs() == tickMsecs &&
                     clock_->initialMaxTicks() == initialMaxTicks && clock_->preserveOrder() == preserveOrder &&
                     clock_->defaultBucketSize() == defaultBucketSize;
   if ( !same ) clock_ = newClock( systemClock, tickMsecs, initialMaxTicks, preserveOrder, defaultBucketSize );
   return clock_;
}

void QosMounts::clockDel() { clock_ = nullptr; }

Gant::Ptr< RoutingMounts > routingMountsFactory() { return Gant::make< RoutingMounts >(); }
Gant::Ptr< McastMounts > mcastMountsFactory() { return Gant::make< McastMounts >(); }
Gant::Ptr< VrfMounts > vrfMountsFactory() { return Gant::make< VrfMounts >(); }
Gant::Ptr< BfdMounts > bfdMountsFactory() { return Gant::make< BfdMounts >(); }
Gant::Ptr< TunnelMounts > tunnelMountsFactory() { return Gant::make< TunnelMounts >(); }
Gant::Ptr< IpsecMounts > ipsecMountsFactory() { return Gant::make< IpsecMounts >(); }
Gant::Ptr< Ip4TunnelMounts > ip4TunnelMountsFactory() { return Gant::make< Ip4TunnelMounts >(); }
Gant::Ptr< FhrpMounts > fhrpMountsFactory() { return Gant::make< FhrpMounts >(); }
Gant::Ptr< QosMounts > qosMountsFactory() { return Gant::make< QosMounts >(); }

} // namespace VexL3Unicast
