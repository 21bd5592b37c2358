// The gRPC channel below a transport. For the channel's sources only.
#pragma once

#include "VexPeer.h"

#include <grpcpp/channel.h>
#include <memory>

namespace Vex {

// A connection of its own, with no limit on the size of messages. With files of TLS that cannot be read, it is one that
// every call on it fails.
std::shared_ptr< grpc::Channel > transportChannel( const Peer & peer );

} // namespace Vex
