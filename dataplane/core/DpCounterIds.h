// The counters that a module was told to count in by its "setCounterIds". Their number is the field's number in the
// message, every field of which is the id of a counter.
#pragma once

#include "DpModule.h"

#include <google/protobuf/message.h>

#include <array>
#include <memory>

namespace Vexdp {

class CounterIds {
 public:
   CounterIds() { ids_.fill( kNoCounter ); }

   // Fields that are absent stay as they were. ERANGE: an id over the table, other than kNoCounter.
   Outcome set( const google::protobuf::Message & arg );
   // kNoCounter when it was never set. REQUIRES: field is one of the message's
   CounterId operator[]( int field ) const { return ids_[ std::size_t( field ) ]; }
   // Tells the command that set them, if any is set.
   CommandSource command() const;

 private:
   std::array< CounterId, 8 > ids_;
   std::shared_ptr< google::protobuf::Message > set_; // all of the fields that were ever set
};

} // namespace Vexdp
