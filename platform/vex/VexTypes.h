// Numbers of the data-plane graph.
#pragma once

#include "GantValue.h"

namespace Vex {

// A gate of a module; meaningful only together with the module. -1: none.
class GateId {
   GANT_SCALAR( GateId, U32, -1 )
};

// A slot of the counter table. -1: no counter.
class CounterId {
   GANT_SCALAR( CounterId, U32, -1 )
};

// What a counter counts, and in which unit.
enum class CounterType : U8 { packets = 1 };
enum class CounterUnit : U8 { count = 1 };

inline constexpr U16 etherTypeIpv4 = 2048;
inline constexpr U16 etherTypeIpv6 = 34525;

// The chains of a layer-2 interface.
enum class L2PortType : U8 { network = 0, controlPlane = 1 };

// True when this process runs as a namespaced device under test ("VEX_NAMESPACE_DUT" is set and not empty).
bool isNamespaceDut();
// Physical memory of the machine in bytes.
U64 getSystemPhysMemSize();

} // namespace Vex
