// Holders through which the agents of a process share objects. Who has one sets it, and whoever wants it looks.
#pragma once

#include "GantEntity.h"
#include "VexL3Export.h"

namespace Hul {
class AclSm;
class AdjReviewEvent;
class L2AdjHelper;
} // namespace Hul
namespace HulHelper {
class AclHelper;
}
namespace MrouteLib {
class StaticNatInfo;
}

namespace Vex {

class NatSharedData : public Gant::Entity {
 public:
   using Entity::Entity;
   ~NatSharedData() override;
   const char * fwkType() const override { return "Vex::NatSharedData"; }
   GANT_ATTR( Gant::Ptr< MrouteLib::StaticNatInfo >, staticNatInfo )
};

class L2L3SharedData : public Gant::Entity {
 public:
   using Entity::Entity;
   ~L2L3SharedData() override;
   const char * fwkType() const override { return "Vex::L2L3SharedData"; }
   GANT_ATTR( Gant::Ptr< Hul::L2AdjHelper >, hulL2AdjHelper )
   GANT_ATTR( Gant::Ptr< Hul::AdjReviewEvent >, adjReviewEvent )
};

class AclSharedData : public Gant::Entity {
 public:
   using Entity::Entity;
   ~AclSharedData() override;
   const char * fwkType() const override { return "Vex::AclSharedData"; }
   GANT_ATTR( Gant::Ptr< Hul::AclSm >, aclSm )
   GANT_ATTR( Gant::Ptr< HulHelper::AclHelper >, aclHelper )
};

} // namespace Vex
