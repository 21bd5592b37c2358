// The multicast agent, as far as unicast routing meets it: one multicast FIB module per VRF and family.
#pragma once

#include "StateL3.h"
#include "VexCommonSmData.h"

namespace Quorl {
class EntityManager;
}

namespace VexL3Mcast {

class MfibAf : public Vex::Module {
 public:
   using OutGates = Gant::HashMap< Kynet::IntfId, Vex::GateId >;
   MfibAf( Kynet::AddressFamily af, const L3::VrfName & vrfName, Gant::Ptr< Vex::ModuleConfigStatusPair > pair );
   const char * fwkType() const override { return "VexL3Mcast::MfibAf"; }
   // The output gate that leads out of the interface.
   GANT_MAP( OutGates, intfIdToOutGate )
};

class MfaAgent : public Gant::PtrInterface {
 public:
   using MfibModules = Gant::HashMap< L3::VrfName, Gant::Ptr< MfibAf > >;
   // A null `globalCmdConfig`: the modules go with `pair`.
   MfaAgent( Kynet::AddressFamily af, Gant::Ptr< Quorl::EntityManager > em,
             Gant::Ptr< Vex::ModuleConfigStatusPair > pair, Gant::Ptr< Vex::ModuleGlobalCmdConfig > globalCmdConfig,
             Gant::Ptr< Vex::VexCommonSmData > vexcsd, bool standalone );
   ~MfaAgent() override;
   const char * fwkType() const override { return "VexL3Mcast::MfaAgent"; }

   GANT_CONST( Kynet::AddressFamily, af )

   // Makes the VRF's module; the present one stays.
   void startMfibSm( const L3::VrfName & vrfName );
   void stopMfibSm( const L3::VrfName & vrfName );
   // Null for a VRF that was not started.
   Gant::Ptr< MfibAf > getMfibModule( const L3::VrfName & vrfName ) const { return mfibModule( vrfName ); }
   GANT_MAP( MfibModules, mfibModule )

 private:
   Gant::Ptr< Quorl::EntityManager > em_;
   Gant::Ptr< Vex::ModuleConfigStatusPair > pair_;
   Gant::Ptr< Vex::VexCommonSmData > vexcsd_;
};

} // namespace VexL3Mcast
