// Quality of service.
#pragma once

#include "GantEntity.h"

namespace Qos {

class Status : public Gant::Entity {
 public:
   using Entity::Entity;
};

class HwStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

class SliceHwStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

class AclHwStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

class AclSliceHwStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

class CounterConfig : public Gant::Entity {
 public:
   using Entity::Entity;
};

namespace Input {

class Config : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Input

} // namespace Qos
