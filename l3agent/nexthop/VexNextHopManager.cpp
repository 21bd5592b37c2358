#include "VexNextHopManager.h"

#include "GantAssert.h"
#include "GantTrace.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexNextHopManager" );

Gant::String U64Collection::strep() const {
   Gant::String out = "Value('VexL3Unicast::U64Collection', ** {'data': {";
   const char * comma = "";
   for ( const auto & [ index, value ] : data_ ) {
      out += Gant::textsOf( comma, index, ": ", value );
      comma = ", ";
   }
   return out += "}})";
}

void NextHopCallback::updateNextHopAction( U16, U16, U16 ) {
   GANT_TRACE( 3, "NextHopCallback::updateNextHopAction TODO" );
   GANT_ASSERT( 0 );
}

class DefragManager::GantDefragScheduler : public Gant::Clock::Notifiee {
 public:
   explicit GantDefragScheduler( DefragManager * manager ) :
        Notifiee( manager, manager->defragScheduler() ), manager_( manager ) {}
   void onTime() override { manager_->handleDefragSchedulerTimeOut(); }

 private:
   DefragManager * manager_;
};

DefragManager::DefragManager( NextHopManager * nextHopManager ) : nextHopManager_( nextHopManager ) {
   handleDefragInitialized();
}

DefragManager::~DefragManager() = default;

const Gant::Ptr< Gant::Clock > & DefragManager::defragSchedulerIs( const Gant::Ptr< Gant::Clock > & clock ) {
   defragScheduler_ = clock;
   gantDefragScheduler_ = clock ? std::make_unique< GantDefragScheduler >( this ) : nullptr;
   return defragScheduler_;
}

void DefragManager::handleDefragInitialized() { GANT_TRACE( 3, "DefragManager::handleDefragInitialized TODO" ); }

void DefragManager::handleDefragSchedulerTimeOut() {
   GANT_TRACE( 3, "DefragManager::handleDefragSchedulerTimeOut TODO" );
}

void DefragManager::defragment() { GANT_TRACE( 3, "DefragManager::defragment TODO" ); }

void DefragManager::defragNarrowBlock() { GANT_TRACE( 3, "DefragManager::defragNarrowBlock TODO" ); }

void DefragManager::defragWideBlock() { GANT_TRACE( 3, "DefragManager::defragWideBlock TODO" ); }

NextHopManager::NextHopManager() { initHandler(); }

NextHopManager::~NextHopManager() = default;

Gant::Ptr< DefragManager > NextHopManager::newDefragManager() { return Gant::make< DefragManager >( this ); }

const Gant::Ptr< DefragManager > & NextHopManager::defragManagerIs() { return defragManager_ = newDefragManager(); }

void NextHopManager::defragManagerDel() { defragManager_ = nullptr; }

S32 NextHopManager::updateNextHopHWIndex( U16 index, bool allocate ) {
   GANT_TRACE( 3, "NextHopManager::updateNextHopHWIndex ", "NextHop at ", index, "allocate: ", allocate );
   return 0;
}

S32 NextHopManager::findAvailableBlock( U16 length, bool wide ) {
   GANT_TRACE( 3, "NextHopManager::findAvailableBlock", " length: ", length, " Wide: ", wide );
   return 0;
}

S32 NextHopManager::findAvailableNarrowBlock( U16 length ) {
   GANT_TRACE( 3, "NextHopManager::findAvailableNarrowBlock ", "Length: ", length );
   return 0;
}

S32 NextHopManager::allocateBlock( U16 start, U16 length ) {
   GANT_TRACE( 3, "NextHopManager::allocateBlock", " at ", start, " of length ", length );
   return 0;
}

S32 NextHopManager::freeBlock( U16 start, U16 length ) {
   GANT_TRACE( 3, "NextHopManager::freeBlock", " at ", start, " of length ", length );
   return 0;
}

void NextHopManager::showFreeEntrySummary( U32 ) { GANT_TRACE( 3, "NextHopManager::showFreeEntrySummary TODO" ); }

void NextHopManager::setSimulationMode( bool on, U16 ) {
   GANT_TRACE( 3, "NextHopManager::setSimulationMode ", "Setting simMode to ", on );
}

void NextHopManager::handleSimulationMode() { GANT_TRACE( 3, "NextHopManager::handleSimulationMode TODO" ); }

void NextHopManager::initHandler() { GANT_TRACE( 3, "NextHopManager::initHandler" ); }

} // namespace VexL3Unicast
