// State that is shared by many features: hardware epochs, error disabling, link aggregation.
#pragma once

#include "GantEntity.h"

namespace HwEpoch {

class Status : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace HwEpoch

namespace Errdisable {

// One cause's view of the ports that it keeps down.
class CauseStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Errdisable

namespace Lag::Input {

class Config : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Lag::Input
