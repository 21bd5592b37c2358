// How full the data plane's tables are.
#pragma once

#include "GantActivity.h"
#include "GantEntity.h"
#include "GantValue.h"

namespace HulCapacity {

// A table, a use of it, and the device that has it.
class TableKey {
   GANT_VALUE( "HulCapacity::TableKey", TableKey, ( Gant::String, table ), ( Gant::String, feature ),
               ( Gant::String, chip ) )
};

class TableEntry {
   // In table entries.
   GANT_VALUE( "HulCapacity::TableEntry", TableEntry, ( U32, used ), ( U32, free ), ( U32, committed ),
               ( U32, maxLimit ) )
};

class TableCapacity : public Gant::Entity {
 public:
   using Entries = Gant::OrderedMap< TableKey, TableEntry >;
   class Notifiee : public Gant::NotifieeOf< TableCapacity > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onEntry( const TableKey & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( Entries, entry, onEntry )
};

} // namespace HulCapacity

namespace Hardware::Capacity {

using HulCapacity::TableKey;

// Base of the machines that report a data plane's capacity. The virtual operations stand in slot order.
class CapacityHelperSm : public Gant::StateMachine {
 public:
   CapacityHelperSm( Gant::Ptr< HulCapacity::TableCapacity > capacityStatus, Gant::Ptr< const Gant::Clock > clock ) :
        capacityStatus_( std::move( capacityStatus ) ), clock_( std::move( clock ) ) {}
   GANT_CONST( Gant::Ptr< HulCapacity::TableCapacity >, capacityStatus )
   GANT_CONST( Gant::Ptr< const Gant::Clock >, clock )

   virtual void updateCapacityEntry( TableKey key, U32 used, U32 free, U32 committed, U32 maxLimit );
   // Declares a use of a table, with nothing in it yet.
   virtual void initCapacityTableFeature( Gant::String table, Gant::String feature, Gant::String chip );
   virtual void initCapacityTableFeatureMaps() {}
   virtual void updateCapacityTable() {}
   virtual void handleClock() { updateCapacityTable(); }
   // Called by the constructor of the class that is no one's base.
   virtual void handleInitialized();
};

} // namespace Hardware::Capacity
