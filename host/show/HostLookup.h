// Look-ups in the data plane's own FIB.
#pragma once

#include "HostAnswer.h"

namespace Host {

// The longest match of an address, or a prefix itself, in the VRFs.
std::unique_ptr< Answer > dataPlaneLookup( const Asked & asked, const std::string & vrf, const std::string & text );

} // namespace Host
