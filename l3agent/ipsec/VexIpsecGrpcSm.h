// The errors of the IPsec command group.
#pragma once

#include "VexL3Export.h"
#include "VexModuleConfig.h"

#include <memory>

namespace VexL3Unicast {

//   watches  ModuleConfigStatusPair::moduleStatus, and its error queue
//
// Every refused command is taken from the queue and traced. Nothing is undone or tried again: the next change of the
// same connection and direction brings its whole state.
class IpsecGrpcSm : public Gant::StateMachine {
 public:
   explicit IpsecGrpcSm( const Gant::Ptr< Vex::ModuleConfigStatusPair > & configStatusPair );
   ~IpsecGrpcSm() override;
   const char * fwkType() const override { return "VexL3Unicast::IpsecGrpcSm"; }

   void handleGrpcError();

   GANT_CONST( Gant::Ptr< Vex::ModuleConfigStatusPair >, configStatusPair )
   GANT_ATTR( bool, initialized, false )

 private:
   class GantConfigStatusPair;
   class GantModuleStatus;

   // Also of errors from before this machine.
   void handleInitialized();
   void bindModuleStatus();

   std::unique_ptr< GantConfigStatusPair > gantConfigStatusPair_;
   std::unique_ptr< GantModuleStatus > gantModuleStatus_;
};

VEXL3_EXPORT Gant::Ptr< IpsecGrpcSm > ipsecGrpcSmFactory(
     const Gant::Ptr< Vex::ModuleConfigStatusPair > & configStatusPair );

} // namespace VexL3Unicast
