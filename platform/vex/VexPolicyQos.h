// The quality-of-service policy of one interface, on its way in.
#pragma once

#include "VexModule.h"

namespace Vex {

// Points at a rule table of the KyAclDb, and sets DSCP and traffic class by it. Gate 0 leads on.
class PolicyQos : public Module {
 public:
   // Takes a vex::pb::PolicyQosArg.
   PolicyQos( Gant::String name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
              Gant::Ptr< ModuleConfigStatusPair > pair );
   const char * fwkType() const override { return "Vex::PolicyQos"; }

   // The table must be there. The data plane has the version from the module's creation.
   void applyServicePolicy( U32 policyId, U32 policyVersion );
   GANT_ATTR( U32, policyId )
   GANT_ATTR( U32, policyVersion )
};

} // namespace Vex
