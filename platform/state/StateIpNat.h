// Address translation.
#pragma once

#include "GantEntity.h"

namespace Ip::Nat {

class Config : public Gant::Entity {
 public:
   using Entity::Entity;
};

class Status : public Gant::Entity {
 public:
   using Entity::Entity;
};

class HwStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

class HwCapabilities : public Gant::Entity {
 public:
   class Notifiee : public Gant::NotifieeOf< HwCapabilities > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onNatSupported() {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED( bool, natSupported, onNatSupported, false )
};

} // namespace Ip::Nat

namespace MrouteLib {

// Static translations that multicast shares.
class StaticNatInfo : public Gant::PtrInterface {};

} // namespace MrouteLib
