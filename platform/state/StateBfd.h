// Bidirectional forwarding detection (RFC 5880).
#pragma once

#include "GantEntity.h"

namespace Bfd {

// The sessions, by peer.
class StatusPeer : public Gant::Entity {
 public:
   using Entity::Entity;
};

// One application's view of the sessions.
class AppStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Bfd
