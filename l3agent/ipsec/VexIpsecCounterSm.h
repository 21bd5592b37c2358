// The task for the counters of IPsec connections.
#pragma once

#include "GantActivity.h"
#include "StateIpsec.h"
#include "VexL3Export.h"

#include <memory>

namespace Vex::Ipsec {

//   watches  Gant::Clock
//
// The data plane counts nothing per connection, so the task reads nothing and does not arm the clock again. Whoever
// made the clock arms it.
class IpsecCounterSm : public Gant::StateMachine {
 public:
   static constexpr double refreshPeriod = 1.0; // seconds

   IpsecCounterSm( const Gant::Ptr< Gant::Clock > & clock,
                   const Gant::Ptr< ::Ipsec::Ike::ConnectionTable > & connectionTable );
   ~IpsecCounterSm() override;
   const char * fwkType() const override { return "Vex::Ipsec::IpsecCounterSm"; }

   void handleCountersTimer();

   GANT_CONST( Gant::Ptr< Gant::Clock >, clock )
   GANT_CONST( Gant::Ptr< ::Ipsec::Ike::ConnectionTable >, connectionTable )
   GANT_ATTR( bool, initialized, false )

 private:
   class GantClock;

   void handleInitialized();

   std::unique_ptr< GantClock > gantClock_;
};

VEXL3_EXPORT Gant::Ptr< IpsecCounterSm > ipsecCounterSmFactory(
     const Gant::Ptr< Gant::Clock > & clock, const Gant::Ptr< ::Ipsec::Ike::ConnectionTable > & connectionTable );

} // namespace Vex::Ipsec
