// The gRPC channel below a transport. For the channel's sources only.
#pragma once

#include "GantTypes.h"

#include <grpcpp/channel.h>
#include <memory>

namespace Vex {

// A connection of its own, with no limit on the size of messages.
std::shared_ptr< grpc::Channel > transportChannel( const Gant::String & address );

} // namespace Vex
