// Access lists as the layer hands them to its helpers.
#pragma once

#include "GantAttr.h"
#include "StateAcl.h"

namespace Hul {

GANT_ENUM( AclCreateError, U8, ( aclCreateErrorNone, 0 ), ( aclCreateErrorUnsupportedRule, 1 ),
           ( aclCreateErrorTooManyAcls, 2 ) )
inline constexpr auto aclCreateErrorNone = AclCreateError::aclCreateErrorNone_;
inline constexpr auto aclCreateErrorUnsupportedRule = AclCreateError::aclCreateErrorUnsupportedRule_;
inline constexpr auto aclCreateErrorTooManyAcls = AclCreateError::aclCreateErrorTooManyAcls_;

// One use of a list. Lists are applied by direction, so one list has up to two of them.
class AclKey {
   GANT_VALUE( "Hul::AclKey", AclKey, ( Gant::String, name ), ( Acl::AclType, type ), ( Acl::AclDirection, direction ),
               ( U32, vlanId ) )
};

// The list behind a key: the version to program, and the interfaces where it is applied. The layer writes it, helpers
// read it.
class AclData : public Gant::PtrInterface {
 public:
   using Intfs = Gant::OrderedSet< Kynet::IntfId >;
   explicit AclData( AclKey key ) : key_( std::move( key ) ) {}
   const char * fwkType() const override { return "Hul::AclData"; }
   GANT_CONST( AclKey, key )
   GANT_ATTR( Acl::UniqueId, version )
   GANT_SET( Intfs, activeIntf )
};
using AclDataPtr = Gant::Ptr< const AclData >;

// What became of it.
class AclDataStatus : public Gant::PtrInterface {
 public:
   const char * fwkType() const override { return "Hul::AclDataStatus"; }
   GANT_ATTR( AclCreateError, error )
};
using AclDataStatusPtr = Gant::Ptr< AclDataStatus >;

// What one subrule matches in the transport header and in the length, beyond its rule's own fields. A field is in use
// when its mask or its range is not zero; the value and the mask are the form for hardware that has no ranges.
struct SubruleMatch {
   U16 srcL4Port = 0;
   U16 srcL4PortMask = 0;
   U16 dstL4Port = 0;
   U16 dstL4PortMask = 0;
   U16 srcPortLow = 0;
   U16 srcPortHigh = 0;
   U16 dstPortLow = 0;
   U16 dstPortHigh = 0;
   U16 ipLen = 0;
   U16 ipLenMask = 0;
   U16 ipLenLow = 0;
   U16 ipLenHigh = 0;
   U8 extraTcpFlags = 0; // a bit that must be set; 0: whatever they are
   bool l4Rule = false;  // something of the transport header is matched
   friend bool operator==( const SubruleMatch &, const SubruleMatch & ) = default;
};

} // namespace Hul
