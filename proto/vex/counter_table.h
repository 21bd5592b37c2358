// Layout of the counter table: a file that the data plane writes and the agent's side maps read-only.
//
// A header, padded to `offset`, then one array of `slots` 64-bit counts for each writer. A counter's value is the sum
// over the writers. A writer stores with relaxed atomics and nothing is locked: a reader sees a recent value of every
// count, and no torn one.
#pragma once

#include <cstdint>

namespace vex::counters {

inline constexpr std::uint64_t kMagic = 0x3130544E43584556; // "VEXCNT01"
inline constexpr std::uint32_t kSlots = 1u << 20;
inline constexpr std::uint32_t kOffset = 4096;

struct Header {
   std::uint64_t magic;
   std::uint32_t writers;
   std::uint32_t slots;
   std::uint32_t offset; // of the first writer's counts, in bytes
};

} // namespace vex::counters
