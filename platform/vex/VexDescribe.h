// Requests in words, for people: errors, queue, tests.
#pragma once

#include "VexChannel.h"

#include <functional>
#include <memory>
#include <string_view>

namespace vex::pb {
class Batch;
}

namespace Vex {

// The fields that are set, in the message's order: "vrf 0 prefix 10.0.0.0 prefix_len 8 fec_id 3". Addresses and MACs in
// their usual form; of key material the length only.
Gant::String describe( const google::protobuf::Message & message );

// A command's argument from its type's full name and its wire form; null when it is none.
std::unique_ptr< google::protobuf::Message > messageOf( const std::string & type, const std::string & bytes );

// One request of a batch, with what it is about.
struct DescribedRequest {
   GrpcRequestType type;
   Gant::String module;
   Gant::String action;
   Gant::String argument;
};

// Walks over a batch in wire form, as BatchWriter writes it, and decodes nothing but what is asked for.
class BatchReader {
 public:
   // The bytes outlive it.
   explicit BatchReader( std::string_view bytes ) : batch_{ bytes } {}
   // Goes to a request of the batch, counted from 0. REQUIRES: not one before the present one. False: there is none.
   bool to( U32 index );
   // Counts what lies one after the other in the batch: the commands of one name to one module are one run.
   U32 run() const { return runs_; }
   DescribedRequest described() const;

 private:
   // The fields of a message.
   struct Fields {
      std::string_view bytes;
      // The next field, with nothing in `value` for a number. False: there is none, or the bytes are no message.
      bool next( U32 & field, std::string_view & value );
      bool varint( U64 & value );
   };
   bool next();

   Fields batch_;
   Fields run_{};
   bool command_ = false;
   std::string_view module_, action_, type_, bytes_;
   U32 runs_ = 0;
   U32 requests_ = 0;
};

// Calls `each` for the requests of the batch from number `first` on, until it returns false.
void describe( const vex::pb::Batch & batch, size_t first, const std::function< bool( DescribedRequest ) > & each );

} // namespace Vex
