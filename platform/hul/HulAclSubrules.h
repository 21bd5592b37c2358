// One rule as the records that express it: hardware and data planes match a single range of each number, and flags that
// are all set, so lists of ports, ranges with holes and a choice of flags become several subrules.
#pragma once

#include "HulAclTypes.h"

namespace Hul {

// In ascending order of source port, destination port, length and flag. Their number is the product of the parts; a
// number that matches nothing gives none.
std::vector< SubruleMatch > subrulesOf( const Acl::IpFilter & filter );

} // namespace Hul
