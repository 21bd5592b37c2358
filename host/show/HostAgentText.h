// Shows that the data plane answers, and that the agent writes as text: its own form, which vexctl reads.
#pragma once

#include "HostAnswer.h"

namespace Host {

// The FIB of the VRFs, as the data plane holds it. The answer is one message for a VRF and is written in one turn of
// the loop: beyond `textRoutesMax` routes it is refused.
inline constexpr size_t textRoutesMax = 200000;
std::unique_ptr< Answer > fibText( const Asked & asked, const std::string & vrf );

// The next hops of the interface, or of every interface when the name is empty.
std::unique_ptr< Answer > nexthopText( const Asked & asked, const std::string & intfName );

} // namespace Host
