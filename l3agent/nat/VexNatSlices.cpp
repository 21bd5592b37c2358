// The bookkeeping of rules that is real.
#include "GantAssert.h"
#include "VexNatHelper.h"
#include "VexNatTrace.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexNatHelper" );

bool NatHelper::addAddrOnlyDenyAllAcl( U32 vlanId, Gant::String aclName, U32 priority, NatTarget ) {
   GANT_TRACE( 3, "NatHelper::addAddrOnlyDenyAllAcl", " vlanId: ", vlanId, " aclName: ", aclName,
               " priority: ", priority );
   const auto vlan = static_cast< U16 >( vlanId );
   const VlanAclKey vlanAclKey( vlan, aclName );
   if ( aoaSlice()->vlanAclPriorityHas( vlanAclKey ) )
      GANT_ASSERT( priority == aoaSlice()->vlanAclPriority( vlanAclKey ), " vlan ", vlan, " acl ", aclName );
   else
      aoaSlice()->vlanAclPriorityIs( vlanAclKey, priority );
   const auto trapAcl = aoaSlice()->prioTrapAclIs( priority )->vlanTrapAclIs( vlan )->trapAclIs( aclName );
   if ( aoaSlice()->addrOnlyDenyAllRefCnt() != 0 && trapAcl->denyAll() )
      GANT_TRACE( 3, "NatHelper::addAddrOnlyDenyAllAcl ", "Incrementing addr only deny all ref cnt" );
   else
      NAT_PLACEHOLDER();
   trapAcl->denyAllIs( true );
   trapAcl->addrOnlyIs( true );
   aoaSlice()->addrOnlyDenyAllRefCntInc( 1 );
   GANT_TRACE( 3, "NatHelper::addAddrOnlyDenyAllAcl ", "addrOnlyDenyAllRefCnt: ", aoaSlice()->addrOnlyDenyAllRefCnt() );
   return true;
}

bool NatHelper::delAddrOnlyAclSliceRule( U32 vlanId, Gant::String aclName ) {
   GANT_TRACE( 3, "NatHelper::delAddrOnlyAclSliceRule", " vlanId: ", vlanId, " aclName: ", aclName );
   const auto vlan = static_cast< U16 >( vlanId );
   const VlanAclKey vlanAclKey( vlan, aclName );
   if ( !aoaSlice()->vlanAclPriorityHas( vlanAclKey ) ) return true;
   const auto priority = aoaSlice()->vlanAclPriority( vlanAclKey );
   const auto priorityTrapAcl = aoaSlice()->prioTrapAcl( priority );
   if ( !priorityTrapAcl ) return true;
   const auto vlanTrapAcl = priorityTrapAcl->vlanTrapAcl( vlan );
   if ( !vlanTrapAcl ) return true;
   const auto trapAcl = vlanTrapAcl->trapAcl( aclName );
   if ( !trapAcl ) return true;
   GANT_ASSERT( trapAcl->addrOnly(), " vlan ", vlan, " acl ", aclName );
   delAclRules( *trapAcl );
   // One reference goes, however many this list has taken.
   if ( trapAcl->denyAll() ) {
      aoaSlice()->addrOnlyDenyAllRefCntDec( 1 );
      disableEgressVlanFilter( vlanId );
      GANT_TRACE( 3, "NatHelper::delAddrOnlyAclSliceRule ", "Decrementing addrOnlyDenyAll ref cnt ",
                  aoaSlice()->addrOnlyDenyAllRefCnt() );
      doMaybeDelAddrOnlyDenyAllAcl();
   }
   vlanTrapAcl->trapAclDel( aclName );
   aoaSlice()->vlanAclPriorityDel( vlanAclKey );
   if ( vlanTrapAcl->trapAcls() == 0 ) {
      GANT_TRACE( 3, "NatHelper::delAddrOnlyAclSliceRule ", "Deleting aoaSlice vlan collection:", vlan );
      priorityTrapAcl->vlanTrapAclDel( vlan );
      if ( priorityTrapAcl->vlanTrapAcls() == 0 ) aoaSlice()->prioTrapAclDel( priority );
   }
   aoaSlice()->needCommitIs( true );
   return true;
}

// A rule counts also without an index.
void NatHelper::delAclRules( TrapAclData & trapAcl ) {
   for ( const auto & key : trapAcl.aclRuleKeys() ) {
      const bool serviceTrap = key.srcPort() != 0 || key.dstPort() != 0;
      const auto rule = trapAcl.aclRule( key );
      if ( rule < noAclRule ) {
         if ( serviceTrap ) {
            GANT_TRACE( 3, "NatHelper::delAclRules ", "Freeing Service Trap rule ", rule );
            aoaSlice()->serviceTrapRuleDel( rule );
         } else {
            GANT_TRACE( 3, "NatHelper::delAclRules ", "Freeing AddrOnly Acl rule ", rule );
            aoaSlice()->addrOnlyAclRuleDel( rule );
         }
         aoaSlice()->trapAclDataDel( rule );
      }
      trapAcl.aclRuleDel( key );
      if ( serviceTrap ) {
         GANT_ASSERT( aoaSlice()->serviceTrapCount(), " acl ", trapAcl.name() );
         aoaSlice()->serviceTrapCountDec( 1 );
      } else {
         GANT_ASSERT( aoaSlice()->addrOnlyAclCount(), " acl ", trapAcl.name() );
         aoaSlice()->addrOnlyAclCountDec( 1 );
      }
   }
}

void NatHelper::addNextHopId2AclRule( U32 nextHopId, U16 rule ) {
   NAT_PLACEHOLDER();
   auto aclRules = nextHopId2AclRule( nextHopId );
   if ( !aclRules ) aclRules = Gant::make< AclRuleColl >();
   aclRules->aclRuleSetIs( rule, true );
   nextHopId2AclRuleIs( nextHopId, aclRules );
}

} // namespace VexL3Unicast
