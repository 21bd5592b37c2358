// The common state of the engine, shared by all its agents.
#pragma once

#include "GantAttr.h"
#include "HulCommonSmData.h"
#include "KynetIntfId.h"
#include "VexAckSm.h"
#include "VexCounterInfo.h"
#include "VexL3Intf.h"
#include "VexTunnelEnds.h"

namespace Vex {

class KyAclDb;

class VexCommonSmData : public Hul::HulCommonSmData {
 public:
   using L3Intfs = Gant::OrderedMap< Kynet::IntfId, Gant::Ptr< L3Intf > >;
   using L2Intfs = Gant::OrderedMap< Kynet::IntfId, Gant::Ptr< L2Intf > >;
   class Notifiee : public Gant::NotifieeOf< VexCommonSmData > {
    public:
      using NotifieeOf::NotifieeOf;
      // Made, changed or gone. When it is gone, its chains have been taken down.
      virtual void onL3Intf( const Kynet::IntfId & ) {}
      virtual void onL2Intf( const Kynet::IntfId & ) {}
   };
   GANT_NOTIFIER( Notifiee )

   VexCommonSmData( Gant::Ptr< ModuleGlobalCmdConfig > moduleGlobalCmdConfig, Gant::Ptr< Module > trapModule,
                    Gant::Ptr< BessCounterInfo > bessCounterInfo );
   ~VexCommonSmData() override;
   const char * fwkType() const override { return "Vex::VexCommonSmData"; }

   GANT_CONST( Gant::Ptr< ModuleGlobalCmdConfig >, moduleGlobalCmdConfig )
   GANT_CONST( Gant::Ptr< Module >, trapModule )
   GANT_CONST( Gant::Ptr< BessCounterInfo >, bessCounterInfo )
   GANT_CONST( Gant::Ptr< CliSm >, cliSm )
   GANT_ATTR( Gant::Ptr< KyAclDb >, kyAclDb ) // set once, by whoever makes the trap module
   GANT_COLLECTION( L2Intfs, l2Intf )
   const Gant::Ptr< L2Intf > & l2Intf( Kynet::IntfId intfId ) const { return Gant::valueOf( l2Intf_, intfId ); }
   // The layer's `port` follows.
   Gant::Ptr< L2Intf > l2IntfIs( Kynet::IntfId intfId, Gant::Ptr< L2Intf > l2Intf );
   Gant::Ptr< L2Intf > l2IntfDel( Kynet::IntfId intfId );
   void l2IntfDelAll();

   Gant::Ptr< L3Intf > l3Intf( Kynet::IntfId intfId ) const { return Gant::valueOf( l3Intfs_, intfId ); }
   bool l3IntfHas( Kynet::IntfId intfId ) const { return l3Intfs_.contains( intfId ); }
   const L3Intfs & l3IntfIteratorConst() const { return l3Intfs_; }
   // Makes the interface. One that is there with the same VRF and layer-2 interface only takes the MTU; otherwise it is
   // replaced.
   Gant::Ptr< L3Intf > l3IntfIs( Kynet::IntfId intfId, Hul::VrfId vrfId, const Gant::Ptr< L2Intf > & l2Intf,
                                 U32 ipMtu );
   void l3IntfDel( Kynet::IntfId intfId );

 private:
   L3Intfs l3Intfs_;
   TunnelEnds tunnelEnds_;
};

} // namespace Vex
