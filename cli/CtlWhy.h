// The page that tells why packets to an address go where they go.
#pragma once

#include "CtlShows.h"

namespace Ctl {

Show whyShow();

} // namespace Ctl
