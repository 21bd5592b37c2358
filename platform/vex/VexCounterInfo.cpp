#include "VexCounterInfo.h"

#include "GantTrace.h"
#include "VexCounterDb.h"

namespace Vex {

static Gant::TraceHandle traceHandle( "VexCounterInfo" );

BessCounterInfo::BessCounterInfo( U32 slots ) : slots_( slots ) {}
BessCounterInfo::~BessCounterInfo() = default;

CounterId BessCounterInfo::allocCounterId( const Gant::Ptr< Module > & module, const Gant::String & name, CounterType,
                                           CounterUnit ) {
   CounterId id;
   if ( !free_.empty() ) {
      id = *free_.begin();
      free_.erase( free_.begin() );
   } else if ( next_ < slots_ ) {
      id = CounterId( next_++ );
   } else {
      GANT_TRACE( 0, "no free counter of ", slots_, " for ", name );
      return id;
   }
   if ( counterMirel() ) counterMirel()->restarted( VexModules::MirelCounterId( id ) );
   counters_[ id ] = { module->name(), name };
   return id;
}

void BessCounterInfo::freeCounterId( CounterId id ) {
   if ( counters_.erase( id ) != 0 ) free_.insert( id );
}

} // namespace Vex
