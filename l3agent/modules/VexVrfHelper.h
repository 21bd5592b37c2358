// The life cycle of VRFs in the data plane: the FIB, the multicast modules, and the routes that every VRF has from
// birth.
#pragma once

#include "HulHelper.h"
#include "HulL3Status.h"
#include "VexL3Export.h"
#include "VexL3Modules.h"
#include "VexMcast.h"

namespace VexL3Unicast {

// Packets for the broadcast address and for 224.0.0.0/24 go through FIB gate 0 to the for-us classifier, the rest of
// the multicast range goes to the VRF's multicast module. The three FECs are shared by all VRFs and written again for
// each, so that of the multicast data leads to the module of the VRF that was created last.
class VexVrfHelper : public HulHelper::VrfHelper {
 public:
   VexVrfHelper( const Gant::Name & name, const Gant::Ptr< Vex::VexCommonSmData > & vexcsd,
                 const Gant::Ptr< L3Modules > & l3Modules, const Gant::Ptr< Hul::L3Status > & hulL3Status,
                 const Gant::Ptr< Vex::ModuleConfigStatusPair > & configStatusPair,
                 const Gant::Ptr< VexL3Mcast::MfaAgent > & mfa4, const Gant::Ptr< VexL3Mcast::MfaAgent > & mfa6 );
   ~VexVrfHelper() override;
   const char * fwkType() const override { return "VexL3Unicast::VexVrfHelper"; }

   GANT_CONST( Gant::Ptr< Vex::VexCommonSmData >, vexcsd )
   GANT_CONST( Gant::Ptr< L3Modules >, l3Modules )
   GANT_CONST( Gant::Ptr< Hul::L3Status >, hulL3Status )
   GANT_CONST( Gant::Ptr< Vex::ModuleConfigStatusPair >, configStatusPair )
   GANT_CONST( Gant::Ptr< VexL3Mcast::MfaAgent >, mfa4 )
   GANT_CONST( Gant::Ptr< VexL3Mcast::MfaAgent >, mfa6 )

   void createVrf( Hul::VrfId vrf ) override;
   // The VRF's routes go with it in the data plane; the shared FECs stay.
   void deleteVrf( Hul::VrfId vrf ) override;
   void verifyVrf( Hul::VrfId vrf ) override;
   void createMfib6Module( Hul::VrfId vrf );

 private:
   void addBroadcastRoute( Hul::VrfId vrf );
   void addMulticastRoutes( Hul::VrfId vrf, const Gant::Ptr< VexL3Mcast::MfibAf > & mfibModule );
};

VEXL3_EXPORT Gant::Ptr< VexVrfHelper > vexVrfHelperFactory(
     const Gant::Name & name, const Gant::Ptr< Vex::VexCommonSmData > & vexcsd,
     const Gant::Ptr< L3Modules > & l3Modules, const Gant::Ptr< Hul::L3Status > & hulL3Status,
     const Gant::Ptr< Vex::ModuleConfigStatusPair > & configStatusPair, const Gant::Ptr< VexL3Mcast::MfaAgent > & mfa4,
     const Gant::Ptr< VexL3Mcast::MfaAgent > & mfa6 );

} // namespace VexL3Unicast
