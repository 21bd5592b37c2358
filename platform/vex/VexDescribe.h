// Requests in words, for people: errors, queue, tests.
#pragma once

#include "VexChannel.h"

#include <functional>
#include <memory>

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

// Calls `each` for the requests of the batch from number `first` on, until it returns false.
void describe( const vex::pb::Batch & batch, size_t first, const std::function< bool( DescribedRequest ) > & each );

} // namespace Vex
