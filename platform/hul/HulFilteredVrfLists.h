// VRFs whose routes a data plane with several tables keeps out of some of them.
#pragma once

#include "GantEntity.h"

namespace Hul {

class FilteredVrfLists : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Hul
