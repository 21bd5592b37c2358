// The sockets of DPDK's AF_PACKET driver, which it doesn't tell.
#pragma once

#include <vector>

namespace Vexdp {

// Those that have joined a fanout group on this thread since the last call: of a device's queues, in their order.
std::vector< int > takeFanoutSockets();

} // namespace Vexdp
