#include "HulSeqStatus.h"

#include "HulCommonSmData.h"
#include "StateIp.h"

namespace Hul {

struct HulSeqStatusCreatorSm::GantAllVrfStatusLocal : Ip::AllVrfStatusLocal::Notifiee {
   GantAllVrfStatusLocal( HulSeqStatusCreatorSm * owner ) :
        Notifiee( owner, owner->args_.allVrfStatusLocal ), owner( owner ) {}
   void onVrfStatus( const L3::VrfName & name ) override { owner->review( name ); }
   void onRenotify() override { owner->reviewAll(); }
   HulSeqStatusCreatorSm * owner;
};

HulSeqStatusCreatorSm::HulSeqStatusCreatorSm( Args args ) :
     args_( std::move( args ) ), reactor_( std::make_unique< GantAllVrfStatusLocal >( this ) ) {
   reviewAll();
}

HulSeqStatusCreatorSm::~HulSeqStatusCreatorSm() = default;

void HulSeqStatusCreatorSm::reviewAll() {
   if ( !args_.allVrfStatusLocal || !args_.vrfSeqStatusDir ) return;
   for ( const auto & name : args_.vrfSeqStatusDir->entityKeys() ) review( L3::VrfName( name ) );
   for ( const auto & name : args_.allVrfStatusLocal->vrfStatusKeys() ) review( name );
}

void HulSeqStatusCreatorSm::review( const L3::VrfName & name ) {
   if ( !args_.vrfSeqStatusDir ) return;
   if ( !args_.allVrfStatusLocal->vrfStatusHas( name ) )
      args_.vrfSeqStatusDir->entityDel( name.value() );
   else if ( !args_.vrfSeqStatusDir->entityHas( name.value() ) )
      args_.vrfSeqStatusDir->entityIs( name.value(), Gant::make< VrfSeqStatus >( name.value() ) );
}

} // namespace Hul
