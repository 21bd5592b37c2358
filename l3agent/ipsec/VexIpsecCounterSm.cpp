#include "VexIpsecCounterSm.h"

#include "GantTrace.h"

namespace Vex::Ipsec {

static Gant::TraceHandle traceHandle( "IpsecVexCounter" );

class IpsecCounterSm::GantClock : public Gant::Clock::Notifiee {
 public:
   explicit GantClock( IpsecCounterSm * sm ) : Notifiee( sm, sm->clock() ), sm_( sm ) {}
   void onTime() override { sm_->handleCountersTimer(); }

 private:
   IpsecCounterSm * sm_;
};

IpsecCounterSm::IpsecCounterSm( const Gant::Ptr< Gant::Clock > & clock,
                                const Gant::Ptr< ::Ipsec::Ike::ConnectionTable > & connectionTable ) :
     clock_( clock ),
     connectionTable_( connectionTable ), gantClock_( std::make_unique< GantClock >( this ) ) {
   handleInitialized();
}

IpsecCounterSm::~IpsecCounterSm() = default;

Gant::Ptr< IpsecCounterSm > ipsecCounterSmFactory(
     const Gant::Ptr< Gant::Clock > & clock, const Gant::Ptr< ::Ipsec::Ike::ConnectionTable > & connectionTable ) {
   return Gant::make< IpsecCounterSm >( clock, connectionTable );
}

void IpsecCounterSm::handleInitialized() { initializedIs( true ); }

void IpsecCounterSm::handleCountersTimer() { GANT_TRACE( 3, "IpsecCounterSm::handleCountersTimer TODO" ); }

} // namespace Vex::Ipsec
