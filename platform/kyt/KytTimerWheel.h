// The settings of a timer wheel, for state machines that poll counters.
#pragma once

#include "GantActivity.h"
#include "GantAttr.h"

namespace Kyt {

class TimerWheel : public Gant::PtrInterface {
 public:
   TimerWheel( Gant::Ptr< Gant::Clock > systemClock, U32 tickMsecs, U32 initialMaxTicks, bool preserveOrder,
               U32 defaultBucketSize ) :
        systemClock_( std::move( systemClock ) ),
        tickMsecs_( tickMsecs ), initialMaxTicks_( initialMaxTicks ), preserveOrder_( preserveOrder ),
        defaultBucketSize_( defaultBucketSize ) {}
   GANT_CONST( Gant::Ptr< Gant::Clock >, systemClock )
   GANT_CONST( U32, tickMsecs )         // milliseconds
   GANT_CONST( U32, initialMaxTicks )   // ticks ahead for which there is a bucket at first
   GANT_CONST( bool, preserveOrder )    // timers of one tick run in the order in which they were set
   GANT_CONST( U32, defaultBucketSize ) // timers for which a bucket has room at first
};

} // namespace Kyt
