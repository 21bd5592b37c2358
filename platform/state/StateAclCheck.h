// Whether what a user wrote can be programmed. Call it before the lists enter the state: the layer refuses what is
// wrong here too, but only the source knows the line.
#pragma once

#include "StateAcl.h"
#include "StateQos.h"

#include <vector>

namespace Acl {

struct Problem {
   enum class Severity {
      error, // the list is not programmed: what was programmed of it stays
      note   // it is accepted, and does less than it says
   };
   Severity severity = Severity::error;
   Gant::String object; // "access-list web, sequence 20", "policy-map p, class c"
   Gant::String text;   // what is wrong with it
   friend bool operator==( const Problem &, const Problem & ) = default;
};
using Problems = std::vector< Problem >;

bool hasError( const Problems & problems );

// A rule becomes at most this many records.
inline constexpr size_t subrulesMax = 1024;

// In order of the sequence numbers.
Problems validate( const ListKey & key, const Entries & entries );

// A class map matches by the permits of a list alone: what a deny matches is of the class all the same when a permit
// behind it does. A note on `object` for each such deny, with the first permit that has packets in common with it.
Problems deniesLeftOut( const Gant::String & object, const ListKey & key, const Entries & entries );

} // namespace Acl

namespace Qos {

Acl::Problems validate( const Gant::String & name, const ClassMapConfig & classMap );
// Also that its class maps are there and right, and that their lists are in `aclConfig`.
Acl::Problems validate( const Gant::String & name, const PolicyMapConfig & policyMap, const Status & status,
                        const Acl::ConfigBase & aclConfig );

} // namespace Qos
