// Flat hash containers for the tables that hold a router's routes. Not for public headers.
#pragma once

#include "GantCollection.h"

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

namespace Gant {

template < typename K, typename V >
using FlatMap = absl::flat_hash_map< K, V, Hasher >;
template < typename K >
using FlatSet = absl::flat_hash_set< K, Hasher >;

} // namespace Gant
