// Encodes requests into the wire form of vex.pb.Batch as they come, so that a waiting command is as small as it will be
// on the wire and is not encoded twice. Arguments may hold keys, so nothing written stays behind in memory.
#pragma once

#include "GantCleanse.h"
#include "GantTypes.h"

#include <string>
#include <string_view>

namespace google::protobuf {
class Message;
}

namespace Vex {

class BatchWriter {
 public:
   using Message = google::protobuf::Message;

   // Appends to the present run of commands, or begins a new one.
   void command( std::string_view module, std::string_view cmd, const Message & arg );
   // Appends a vex.pb.Request that is no command.
   void request( const Message & request );

   bool empty() const { return requests_ == 0; }
   U32 requests() const { return requests_; }
   size_t bytes() const { return batch_.size() + run_.size(); }
   // The wire form with this number, and an empty batch again. `inStep`: the data plane is to change over behind it.
   Gant::CleansedString take( U64 number, bool inStep = false );

 private:
   void endRun();

   Gant::CleansedString batch_; // whole requests
   Gant::CleansedString run_;   // the body of a CommandRun under construction; empty: there is none
   std::string module_;
   std::string cmd_;
   U32 requests_ = 0;
};

} // namespace Vex
