// What becomes of a packet at an entry of a next-hop table: the values of `pkt_cmd` in next_hop.proto.
#pragma once

#include <cstdint>

namespace vex::next_hop_command {

inline constexpr std::int32_t kPunt = 0;    // to the router itself
inline constexpr std::int32_t kForward = 1; // out, to the entry's MAC
inline constexpr std::int32_t kDrop = 2;

} // namespace vex::next_hop_command
