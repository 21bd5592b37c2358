// Who counts what: the slots of the data plane's counter table.
#pragma once

#include "GantAttr.h"
#include "VexModule.h"

namespace VexModules {
class MirelCounterDbStatus;
}

namespace Vex {

class BessCounterInfo : public Gant::PtrInterface {
 public:
   struct Counter {
      Gant::String module;
      Gant::String name; // as given, module and all
      friend bool operator==( const Counter &, const Counter & ) = default;
   };
   using Counters = Gant::OrderedMap< CounterId, Counter >;

   // `slots`: how many the table has.
   explicit BessCounterInfo( U32 slots );
   ~BessCounterInfo() override;

   // The lowest free slot, or no counter when all are taken.
   CounterId allocCounterId( const Gant::Ptr< Module > & module, const Gant::String & name, CounterType type,
                             CounterUnit unit );
   // Nothing for a counter that is not allocated.
   void freeCounterId( CounterId id );

   GANT_CONST( U32, slots )
   // The table that the counters are read from: told of each slot that is given out.
   GANT_ATTR( Gant::Ptr< VexModules::MirelCounterDbStatus >, counterMirel )
   const Counters & counterIterator() const { return counters_; }

 private:
   Counters counters_;
   Gant::OrderedSet< CounterId > free_; // slots below next_
   U32 next_ = 0;
};

} // namespace Vex
