#pragma once

namespace Vexdp {

// As the control API and a session's Hello tell it.
inline constexpr const char * kVersion = VEXDP_VERSION;

} // namespace Vexdp
