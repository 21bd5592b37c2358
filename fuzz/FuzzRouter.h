// A router's state with a little in it, as the fuzzers of descriptions and changes tell it more.
#pragma once

#include "FuzzInput.h"
#include "GantActivity.h"
#include "HostDescription.h"

#include <cstring>

namespace Fuzz {

struct Router {
   Router() {
      const auto * const text = reinterpret_cast< const std::uint8_t * >( twoPorts );
      const File file( text, std::strlen( twoPorts ) );
      Host::Description::read( file.path(), errors )->apply( state, errors );
   }
   // What was posted meanwhile runs.
   ~Router() { Gant::activityManager()->poll(); }

   Host::SourceErrors errors{ {} };
   Host::RouterState state;
};

} // namespace Fuzz
