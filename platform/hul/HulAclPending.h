// What is wrong with lists and maps, as what the layer cannot do yet. Not for public headers.
#pragma once

#include "HulPending.h"
#include "StateAclCheck.h"

namespace Hul {

// Notes are left out.
inline Pendings errorsOf( const Acl::Problems & problems ) {
   Pendings out;
   for ( const auto & problem : problems )
      if ( problem.severity == Acl::Problem::Severity::error ) out.push_back( { problem.object, problem.text } );
   return out;
}

} // namespace Hul
