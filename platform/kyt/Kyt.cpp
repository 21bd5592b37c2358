#include "KytAttrLog.h"
#include "KytHashMix.h"
#include "KytTimerWheel.h"

namespace Gant::NboAttrLog {

Ptr< SocketOutSm > OutManagerSm::socketOutSm( const Name & name ) {
   auto & sm = socketOutSms_[ name ];
   if ( !sm ) sm = make< SocketOutSm >( name );
   return sm;
}

const Ptr< OutManagerSm > & top() {
   // Never destroyed: objects with static lifetime may still hold logs.
   static auto * const manager = new Ptr< OutManagerSm >( make< OutManagerSm >() );
   return *manager;
}

} // namespace Gant::NboAttrLog
