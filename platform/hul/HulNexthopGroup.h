// Next-hop groups that the layer watches for others, and what they resolve to.
#pragma once

#include "GantEntity.h"

namespace Hul {

class WatchedNexthopGroupConfig : public Gant::Entity {
 public:
   using Entity::Entity;
};

class ResolvedNexthopGroupStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Hul
