// Overwriting of the keys in requests that are done.
#pragma once

#include "vex/engine.pb.h"

#include "bess/control.pb.h"

namespace grpc {
class Slice;
} // namespace grpc

namespace Vexdp {

// The serialized arguments of commands, in place: a setter would leave the old bytes to the allocator. They keep their
// length.
void cleanse( const vex::pb::Batch & done );
void cleanse( const bess::pb::CommandRequest & done );
// What came over the wire. REQUIRES: nobody reads it any more.
void cleanse( const grpc::Slice & done );
// The keys of a parsed argument, if it is one that has them.
void cleanse( const google::protobuf::Message & arg );

} // namespace Vexdp
