// Overlay tunnels.
#pragma once

#include "GantEntity.h"

namespace Tunnel::TunnelTable {

class EvpnVxlanTunnelTable : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Tunnel::TunnelTable

namespace Vxlan {

class VtiStatusDir : public Gant::Entity {
 public:
   using Entity::Entity;
};

class VxlanHwStatusDir : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Vxlan
