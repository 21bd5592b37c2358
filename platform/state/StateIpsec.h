// IPsec: key exchange and its connections.
#pragma once

#include "GantEntity.h"
#include "GantValue.h"

namespace Ipsec::Ike {

// Names a connection within its VRF.
class EncapId {
   // `type` 0: a policy of GRE packets; 1: a tunnel of its own.
   GANT_VALUE( "Ipsec::Ike::EncapId", EncapId, ( U32, reqid ), ( U8, type ) )
};

class Status : public Gant::Entity {
 public:
   using Entity::Entity;
};

class ConnectionTable : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Ipsec::Ike

namespace Ipsec::Capabilities {

class Status : public Gant::Entity {
 public:
   using Entity::Entity;
   GANT_ATTR( bool, ipsecSupported, false )
};

} // namespace Ipsec::Capabilities
