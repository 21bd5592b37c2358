// The data plane's counters, in memory shared with it.
#pragma once

#include "GantCollection.h"
#include "GantEntity.h"
#include "VexTypes.h"

namespace VexModules {

// A slot of the counter table.
class MirelCounterId {
   GANT_SCALAR( MirelCounterId, U32, -1 )
};

// The sum over all writers.
class MirelAggregatedCount {
 public:
   explicit MirelAggregatedCount( U64 value ) : value_( value ) {}
   U64 value() const { return value_; }

 private:
   U64 value_;
};

class MirelCount {
 public:
   explicit MirelCount( U64 value ) : count_( value ) {}
   const MirelAggregatedCount & count() const { return count_; }

 private:
   MirelAggregatedCount count_;
};

// A read-only view of the table (counter_table.h). Reading takes no call and no lock: a recent value of each count.
//
// The data plane never clears a count. A slot that is allocated again counts from what it had then: restarted() notes
// that. Packets that an old rule counts while the new one is on its way count for the new one.
class MirelCounterDbStatus : public Gant::Entity {
 public:
   using Entity::Entity;
   ~MirelCounterDbStatus() override;
   const char * fwkType() const override { return "VexModules::MirelCounterDbStatus"; }

   // Maps the file of a data plane that runs, in place of what was mapped. Otherwise an error that names the path and
   // the reason, empty for none; counts are 0 then.
   Gant::String map( const Gant::String & path );
   bool mapped() const { return memory_ != nullptr; }

   // 0 for a slot beyond the table.
   MirelCount mirelCount( MirelCounterId id ) const;
   // The slot has a new owner, which starts from 0.
   void restarted( MirelCounterId id );

 private:
   void unmap();
   U64 raw( MirelCounterId id ) const;

   void * memory_ = nullptr;
   size_t size_ = 0;
   U64 * counts_ = nullptr; // of the first writer; the memory is read-only
   U32 writers_ = 0;
   U32 slots_ = 0;
   Gant::HashMap< U32, U64 > base_; // by slot; none: 0
};

} // namespace VexModules
