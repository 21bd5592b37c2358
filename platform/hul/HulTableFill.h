// How full a table of the data plane is, as the log is told.
#pragma once

#include "KynetAddr.h"

namespace Hul {

// States: some, nearlyFull, full. Each is told once when it comes; from nearlyFull back to some needs room to spare, so
// that a table at the edge doesn't fill the log.
class TableFill {
 public:
   explicit TableFill( Kynet::AddressFamily af ) : af_( af ) {}

   struct Counts {
      U64 held;     // routes that the table has
      U64 most;     // that it takes, 0: any number
      U64 noRoom;   // that it has refused for want of room
      U64 underWay; // that it hasn't answered yet
   };
   void update( const Counts & counts );

 private:
   enum class State : U8 { some, nearlyFull, full };
   Kynet::AddressFamily af_;
   State state_ = State::some;
};

} // namespace Hul
