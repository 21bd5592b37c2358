#pragma once

#include <chrono>

namespace Vexdp {

// Seconds since 1970.
inline double secondsNow() {
   return std::chrono::duration< double >( std::chrono::system_clock::now().time_since_epoch() ).count();
}

} // namespace Vexdp
