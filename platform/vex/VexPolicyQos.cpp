#include "VexPolicyQos.h"

#include "vex/acl.pb.h"
#include "VexMessage.h"

namespace Vex {

PolicyQos::PolicyQos( Gant::String name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
                      Gant::Ptr< ModuleConfigStatusPair > pair ) :
     Module( std::move( name ), VexModule::PolicyQos, maxInGate, maxOutGate, 0, 0, initArgs, std::move( pair ) ) {}

void PolicyQos::applyServicePolicy( U32 policyId, U32 policyVersion ) {
   policyIdIs( policyId );
   policyVersionIs( policyVersion );
   auto * const arg = newMessage< vex::pb::PolicyApplyArg >( *this );
   arg->set_policy_id( policyId );
   enqueueChange( *this, "applyServicePolicy", arg );
}

} // namespace Vex
