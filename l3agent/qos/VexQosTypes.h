// Policies in the data plane: a tree of policy, class and list, with the interfaces beside the classes.
#pragma once

#include "HulQosTypes.h"
#include "VexAclCommon.h"
#include "VexPolicyQos.h"

namespace Vex {

// A class's list, with the counters of its rules.
class VexQosAclData : public VexAclCommonData {
 public:
   explicit VexQosAclData( Hul::AclKey key ) : key_( std::move( key ) ) {}
   const char * fwkType() const override { return "Vex::VexQosAclData"; }
   GANT_CONST( Hul::AclKey, key )
};

class VexQosClassData : public Gant::PtrInterface {
 public:
   using QosAcls = Gant::OrderedMap< Hul::AclKey, Gant::Ptr< VexQosAclData > >;
   explicit VexQosClassData( Hul::QosClassDataKey key ) : key_( std::move( key ) ) {}
   const char * fwkType() const override { return "Vex::VexQosClassData"; }
   GANT_CONST( Hul::QosClassDataKey, key )
   GANT_MAP( QosAcls, qosAcl )
};

class VexQosPolicyAttachedIntf : public Gant::PtrInterface {
 public:
   explicit VexQosPolicyAttachedIntf( Kynet::IntfId intfId ) : intfId_( intfId ) {}
   const char * fwkType() const override { return "Vex::VexQosPolicyAttachedIntf"; }
   GANT_CONST( Kynet::IntfId, intfId )
   GANT_ATTR( Gant::Ptr< PolicyQos >, policyModule )
   GANT_ATTR( bool, connected, false ) // the module stands in the interface's ingress chain
};

// One rule table, made of the rules of all classes.
class VexQosPolicyData : public Gant::PtrInterface {
 public:
   using QosClasses = Gant::OrderedMap< Hul::QosClassDataKey, Gant::Ptr< VexQosClassData > >;
   using AttachedIntfs = Gant::OrderedMap< Kynet::IntfId, Gant::Ptr< VexQosPolicyAttachedIntf > >;
   explicit VexQosPolicyData( Hul::QosPolicyMapKey key ) : key_( std::move( key ) ) {}
   const char * fwkType() const override { return "Vex::VexQosPolicyData"; }
   GANT_CONST( Hul::QosPolicyMapKey, key )
   GANT_ATTR( U16, hwPolicyId )
   GANT_ATTR( KyIpAclMessagePtr, kyIpPolicyArg ) // null once it was sent
   GANT_MAP( QosClasses, qosClass )
   GANT_MAP( AttachedIntfs, attachedIntf )
};

// How far a look-up came: what is null was not found, nor what stands behind it.
class VexQosReturnCode {
   GANT_VALUE( "Vex::VexQosReturnCode", VexQosReturnCode, ( Gant::Ptr< VexQosPolicyData >, qospolicy ),
               ( Gant::Ptr< VexQosClassData >, qosclass ), ( Gant::Ptr< VexQosAclData >, qosacl ) )
};

// The layer's side of a list.
class VexHulQosReturnCode {
   GANT_VALUE( "Vex::VexHulQosReturnCode", VexHulQosReturnCode, ( Gant::Ptr< Hul::QosClassMatchData >, matchData ),
               ( Hul::AclDataPtr, aclData ) )
};

} // namespace Vex
