// The slices into which a translating data plane divides its rules, and how a rule is reached:
//
//   prioTrapAcl[ priority ]  vlanTrapAcl[ vlan ]  trapAcl[ name ]  aclRule[ key ]    the rule's index
//   trapAclData[ index ]                                                             back to the list
//
// The trap slice sends the packets of new translations to the CPU. The address-only slice is for translations that
// match no port, with a deny-all rule behind them in each VLAN. A (VLAN, list) pair has one priority.
#pragma once

#include "GantEntity.h"
#include "HulTunnelTypes.h"
#include "VexNatTypes.h"

namespace VexL3Unicast {

// No index is held.
inline constexpr U16 noAclRule = 65535;

class VlanAclKey {
   GANT_VALUE( "VexL3Unicast::VlanAclKey", VlanAclKey, ( U16, vlan ), ( Gant::String, acl ) )
};

// A port of 0 is any port.
class TrapAclRuleKey {
   GANT_VALUE( "VexL3Unicast::TrapAclRuleKey", TrapAclRuleKey, ( U32, seq ), ( Kynet::IpAddrWithFullMask, srcAddr ),
               ( U16, srcPort ), ( Kynet::IpAddrWithFullMask, dstAddr ), ( U16, dstPort ), ( bool, deny ),
               ( bool, reverse ) )
};

// A list within a VLAN.
class TrapAclData : public Gant::Entity {
 public:
   using AclRules = Gant::OrderedMap< TrapAclRuleKey, U16 >;
   using Entity::Entity;
   const char * fwkType() const override { return "VexL3Unicast::TrapAclData"; }
   GANT_MAP( AclRules, aclRule )
   GANT_COUNTER( U32, nextSeq )
   GANT_ATTR( bool, trapAll, false )
   GANT_ATTR( bool, denyAll, false )
   GANT_ATTR( bool, addrOnly, false )
};

class VlanTrapAcl : public Gant::PtrInterface {
 public:
   using TrapAcls = Gant::HashMap< Gant::Name, Gant::Ptr< TrapAclData > >;
   explicit VlanTrapAcl( U16 vlan ) : vlan_( vlan ) {}
   const char * fwkType() const override { return "VexL3Unicast::VlanTrapAcl"; }
   GANT_CONST( U16, vlan )
   GANT_INSTANTIATING( TrapAcls, trapAcl )
   GANT_ATTR( U32, nextHopId, Hul::HulNextHopId::invalidNextHopId() )
   GANT_ATTR( U32, shift, 0 )
   GANT_ATTR( U32, select, 0 )
   GANT_ATTR( U32, baseIndex, 0 )
};

class PriorityTrapAcl : public Gant::PtrInterface {
 public:
   using VlanTrapAcls = Gant::HashMap< U16, Gant::Ptr< VlanTrapAcl > >;
   explicit PriorityTrapAcl( U32 priority ) : priority_( priority ) {}
   const char * fwkType() const override { return "VexL3Unicast::PriorityTrapAcl"; }
   GANT_CONST( U32, priority )
   GANT_INSTANTIATING( VlanTrapAcls, vlanTrapAcl )
};

class SliceRules : public Gant::PtrInterface {
 public:
   using PrioTrapAcls = Gant::OrderedMap< U32, Gant::Ptr< PriorityTrapAcl > >;
   using VlanAclPriorities = Gant::HashMap< VlanAclKey, U32 >;
   using TrapAclDatas = Gant::HashMap< U16, Gant::Ptr< TrapAclData > >;
   using Rules = Gant::OrderedMap< U16, bool >;
   const char * fwkType() const override { return "VexL3Unicast::SliceRules"; }
   // The lowest number first.
   GANT_INSTANTIATING( PrioTrapAcls, prioTrapAcl )
   GANT_MAP( VlanAclPriorities, vlanAclPriority )
   GANT_MAP( TrapAclDatas, trapAclData )
   // Rules have changed since the last commit.
   GANT_ATTR( bool, needCommit, false )
};

class TrapSliceRules : public SliceRules {
 public:
   using NatAclDatas = Gant::HashMap< U16, Gant::Ptr< NatAclData > >;
   const char * fwkType() const override { return "VexL3Unicast::TrapSliceRules"; }
   GANT_ATTR( S16, maxTrapRule, -1 )
   GANT_COUNTER( U16, addrOnlyCount )
   GANT_COUNTER( U16, nonAddrOnlyCount )
   GANT_MAP( Rules, dynTrapRule )
   GANT_MAP( Rules, addrOnlyTrapRule )
   GANT_MAP( NatAclDatas, natAclData )
   GANT_MAP( Rules, dynRule )
   GANT_MAP( Rules, freeDynRule )
};

class AddrOnlyAclSliceRules : public SliceRules {
 public:
   const char * fwkType() const override { return "VexL3Unicast::AddrOnlyAclSliceRules"; }
   GANT_COUNTER( U16, addrOnlyAclCount )
   GANT_COUNTER( U16, serviceTrapCount )
   GANT_MAP( Rules, addrOnlyAclRule )
   GANT_MAP( Rules, serviceTrapRule )
   // Additions of the deny-all rule. A removal of a list takes back one of them, however many it had.
   GANT_COUNTER( U32, addrOnlyDenyAllRefCnt )
};

class AclRuleColl : public Gant::PtrInterface {
 public:
   using Rules = Gant::HashMap< U16, bool >;
   const char * fwkType() const override { return "VexL3Unicast::AclRuleColl"; }
   GANT_MAP( Rules, aclRuleSet )
};

} // namespace VexL3Unicast
