#include "VexCommonSmData.h"

#include "VexKyAclDb.h"

namespace Vex {

VexCommonSmData::VexCommonSmData( Gant::Ptr< ModuleGlobalCmdConfig > moduleGlobalCmdConfig,
                                  Gant::Ptr< Module > trapModule, Gant::Ptr< BessCounterInfo > bessCounterInfo ) :
     HulCommonSmData( {}, moduleGlobalCmdConfig->channel()->progress() ),
     moduleGlobalCmdConfig_( std::move( moduleGlobalCmdConfig ) ), trapModule_( std::move( trapModule ) ),
     bessCounterInfo_( std::move( bessCounterInfo ) ), cliSm_( Gant::make< CliSm >() ),
     tunnelEnds_( *moduleGlobalCmdConfig_, trapModule_ ) {}

VexCommonSmData::~VexCommonSmData() = default;

Gant::Ptr< L2Intf > VexCommonSmData::l2IntfIs( Kynet::IntfId intfId, Gant::Ptr< L2Intf > l2Intf ) {
   GANT_ON_LOOP();
   auto & held = l2Intf_[ intfId ];
   if ( held == l2Intf ) return l2Intf;
   held = l2Intf;
   notifiees_.tell( &Notifiee::onL2Intf, intfId );
   portIs( intfId, true );
   return l2Intf;
}

Gant::Ptr< L2Intf > VexCommonSmData::l2IntfDel( Kynet::IntfId intfId ) {
   GANT_ON_LOOP();
   if ( !l2IntfHas( intfId ) ) return nullptr;
   portDel( intfId );
   const auto gone = l2Intf_.extract( intfId );
   notifiees_.tell( &Notifiee::onL2Intf, intfId );
   return gone.mapped();
}

void VexCommonSmData::l2IntfDelAll() {
   for ( const auto & intfId : l2IntfKeys() ) l2IntfDel( intfId );
}

Gant::Ptr< L3Intf > VexCommonSmData::l3IntfIs( Kynet::IntfId intfId, Hul::VrfId vrfId,
                                               const Gant::Ptr< L2Intf > & l2Intf, U32 ipMtu ) {
   GANT_ON_LOOP();
   if ( auto present = l3Intf( intfId ) ) {
      if ( present->vrfId() == vrfId && present->l2Intf() == l2Intf ) {
         present->ipMtuIs( ipMtu );
         return present;
      }
      l3IntfDel( intfId );
   }
   auto made = Gant::make< L3Intf >( intfId, vrfId, l2Intf, ipMtu );
   l3Intfs_[ intfId ] = made;
   notifiees_.tell( &Notifiee::onL3Intf, intfId );
   // After everybody has built what is behind it.
   tunnelEnds_.endIs( *made );
   return made;
}

void VexCommonSmData::l3IntfDel( Kynet::IntfId intfId ) {
   GANT_ON_LOOP();
   const auto at = l3Intfs_.find( intfId );
   if ( at == l3Intfs_.end() ) return;
   const auto gone = at->second;
   tunnelEnds_.endDel( intfId );
   l3Intfs_.erase( at );
   // Before anybody deletes modules: packets stop at the edge, not in the middle.
   gone->takeDown();
   notifiees_.tell( &Notifiee::onL3Intf, intfId );
}

} // namespace Vex
