// A packet that a request describes, made for real and walked through the graph.
#pragma once

#include "DpCounterTable.h"
#include "DpGraph.h"
#include "DpPacket.h"

#include "vex/engine.pb.h"

namespace Vexdp {

// An IPv4 packet with a TCP, UDP or ICMP header where the protocol is one of these, right checksums, and zeros for
// payload. A TTL of 0 means 64, a length of 0 as long as the headers. A SYN announces an MSS of 1460 bytes, where its
// length leaves room. ERANGE: a field doesn't hold its value. EINVAL: the length is less than that of the headers.
Outcome describedPacket( const vex::pb::TracePacketRequest & request, Packet & packet );

class PortRx;
class Walk;

// The PortRx of the interface; null: there is none.
const PortRx * sourceOf( const Graph & graph, const std::string & intfname );
// Walks it from there, in a frame to the router where the interface has frames. As describedPacket.
Outcome tracePacket( const Graph & graph, const PortRx & source, Walk & walk,
                     const vex::pb::TracePacketRequest & request, vex::pb::TracePacketReply & reply );

// Walks it from the PortRx of the interface, in a frame to the router where the interface has frames. ENOENT: no PortRx
// has the interface's name.
Outcome tracePacket( const Graph & graph, CounterTable & counters, const vex::pb::TracePacketRequest & request,
                     vex::pb::TracePacketReply & reply );

} // namespace Vexdp
