#include "HulVrfSm.h"

#include "GantAssert.h"
#include "GantTrace.h"
#include "HulCommonSmData.h"
#include "HulHelper.h"
#include "HulSeqStatus.h"
#include "StateIp.h"

#include <deque>

namespace Hul {

static Gant::TraceHandle traceHandle( "HulVrfSm" );

// A sequence number on its way to where the host reads it.
class SeqInFlight {
 public:
   void told( U64 sequence, const Progress & progress ) {
      if ( told_ >= sequence ) return;
      told_ = sequence;
      // Of many that wait, some are told together with the next one.
      if ( waiting_.size() >= waitingMost || ( !waiting_.empty() && waiting_.back().number == progress.told() ) )
         waiting_.back() = { progress.told(), sequence };
      else
         waiting_.push_back( { progress.told(), sequence } );
   }
   // The last one of which everything is answered; 0: there is no new one.
   U64 take( const Progress & progress ) {
      U64 sequence = 0;
      for ( ; !waiting_.empty() && waiting_.front().number <= progress.acknowledged(); waiting_.pop_front() )
         sequence = waiting_.front().sequence;
      return sequence;
   }

 private:
   static constexpr size_t waitingMost = 1024;
   struct Waiting {
      U64 number; // of the last command before it was told
      U64 sequence;
   };
   U64 told_ = 0;
   std::deque< Waiting > waiting_;
};

// Copies a VRF's progress to where the host reads it.
struct VrfSm::GantVrfL3Status : VrfL3Status::Notifiee {
   GantVrfL3Status( VrfSm * owner, const Gant::Ptr< VrfL3Status > & status, Gant::Ptr< VrfSeqStatus > seqStatus ) :
        Notifiee( owner, status ), owner( owner ), seqStatus( std::move( seqStatus ) ) {}
   void onSequenceProgrammed() override {
      inFlight.told( notifier()->sequenceProgrammed(), progress() );
      copy();
   }
   void onSequence6Programmed() override {
      inFlight6.told( notifier()->sequence6Programmed(), progress() );
      copy();
   }
   void onRenotify() override {
      onSequenceProgrammed();
      onSequence6Programmed();
   }
   void copy() {
      if ( const auto sequence = inFlight.take( progress() ) ) seqStatus->sequenceProgrammedIs( sequence );
      if ( const auto sequence = inFlight6.take( progress() ) ) seqStatus->sequence6ProgrammedIs( sequence );
   }
   const Progress & progress() const { return *owner->args_.common->progress(); }
   VrfSm * owner;
   Gant::Ptr< VrfSeqStatus > seqStatus;
   SeqInFlight inFlight;
   SeqInFlight inFlight6;
};

struct VrfSm::GantProgress : Progress::Notifiee {
   explicit GantProgress( VrfSm * owner ) : Notifiee( owner, owner->args_.common->progress() ), owner( owner ) {}
   void onAcknowledged() override { owner->handleAcknowledged(); }
   void onRenotify() override { owner->handleAcknowledged(); }
   VrfSm * owner;
};

struct VrfSm::Told {
   L3::VrfName name;
   U32 uses = 0;
   std::unique_ptr< GantVrfL3Status > reactor;
};

struct VrfSm::GantAllVrfStatusLocal : Ip::AllVrfStatusLocal::Notifiee {
   explicit GantAllVrfStatusLocal( VrfSm * owner ) :
        Notifiee( owner, owner->args_.allVrfStatusLocal ), owner( owner ) {}
   void onVrfStatus( const L3::VrfName & name ) override { owner->review( name ); }
   void onRenotify() override { owner->reviewAll(); }
   VrfSm * owner;
};

VrfSm::VrfSm( Args args ) :
     args_( std::move( args ) ), vrfDir_( Gant::make< VrfDir >( "vrfDir" ) ),
     reactor_( std::make_unique< GantAllVrfStatusLocal >( this ) ),
     progressReactor_( std::make_unique< GantProgress >( this ) ) {
   reviewAll();
}

VrfSm::~VrfSm() = default;

void VrfSm::handleAcknowledged() {
   for ( const auto & [ vrfId, told ] : told_ )
      if ( told->reactor ) told->reactor->copy();
}

void VrfSm::reviewAll() {
   // Those that go first: an id may be free then for one that comes.
   for ( const auto & vrfId : Gant::keysOf( told_ ) )
      if ( const auto at = told_.find( vrfId ); at != told_.end() ) review( L3::VrfName( at->second->name ) );
   for ( const auto & name : args_.allVrfStatusLocal->vrfStatusKeys() ) review( name );
}

void VrfSm::review( const L3::VrfName & name ) {
   const auto wanted = args_.allVrfStatusLocal->vrfStatus( name );
   const VrfId wantedId( wanted.vrfId() );
   if ( const auto status = args_.hulL3Status->vrfL3Status( name ) ) {
      if ( wanted.active() && status->vrfId() == wantedId )
         vrfDir_->vrfPhaseIs( wantedId, VrfPhase::active() );
      else
         leave( status->vrfId() );
   } else if ( wanted.active() && !told_.contains( wantedId ) ) {
      create( name, wantedId );
   }
}

void VrfSm::create( const L3::VrfName & name, VrfId vrfId ) {
   GANT_TRACE( 2, "VrfSm::create ", name, " vrf ", vrfId );
   const auto status = Gant::make< VrfL3Status >( name, vrfId );
   auto told = std::make_unique< Told >();
   told->name = name;
   const auto entity = args_.vrfSeqStatusDir ? args_.vrfSeqStatusDir->entity( name.value() ) : nullptr;
   if ( const Gant::Ptr< VrfSeqStatus > seqStatus( dynamic_cast< VrfSeqStatus * >( entity.get() ) ); seqStatus )
      told->reactor = std::make_unique< GantVrfL3Status >( this, status, seqStatus );
   told_[ vrfId ] = std::move( told );
   args_.hulL3Status->vrfL3StatusIs( name, status );
   args_.hulL3Status->vrfNameIs( vrfId, name );
   args_.vrfHelper->createVrf( vrfId );
   vrfDir_->vrfPhaseIs( vrfId, VrfPhase::active() );
}

void VrfSm::leave( VrfId vrfId ) {
   {
      // Its users give it back while they are told; it must not go before all of them have been.
      const auto at = told_.find( vrfId );
      ++at->second->uses;
      vrfDir_->vrfPhaseIs( vrfId, VrfPhase::leaving() );
      --at->second->uses;
   }
   maybeDelete( vrfId );
}

void VrfSm::maybeDelete( VrfId vrfId ) {
   const auto at = told_.find( vrfId );
   if ( at->second->uses != 0 || vrfDir_->vrfPhase( vrfId ) != VrfPhase::leaving_ ) return;
   const L3::VrfName name = at->second->name;
   GANT_TRACE( 2, "VrfSm::delete ", name, " vrf ", vrfId );
   vrfDir_->vrfPhaseDel( vrfId );
   args_.vrfHelper->deleteVrf( vrfId );
   args_.hulL3Status->vrfNameDel( vrfId );
   args_.hulL3Status->vrfL3StatusDel( name );
   told_.erase( vrfId );
   // The name may be wanted with another id, and the id under another name.
   for ( const auto & waiting : args_.allVrfStatusLocal->vrfStatusKeys() )
      if ( waiting == name || args_.allVrfStatusLocal->vrfStatus( waiting ).vrfId() == vrfId ) review( waiting );
}

void VrfSm::useInc( VrfId vrfId ) {
   const auto at = told_.find( vrfId );
   GANT_ASSERT( at != told_.end(), " vrf ", vrfId );
   ++at->second->uses;
}

void VrfSm::useDec( VrfId vrfId ) {
   const auto at = told_.find( vrfId );
   GANT_ASSERT( at != told_.end() && at->second->uses != 0, " vrf ", vrfId );
   --at->second->uses;
   maybeDelete( vrfId );
}

void VrfSm::verify() {
   for ( const auto & [ vrfId, told ] : told_ ) args_.vrfHelper->verifyVrf( vrfId );
}

void VrfSm::pending( Pendings & out ) const {
   for ( const auto & [ name, wanted ] : args_.allVrfStatusLocal->vrfStatusIterator() ) {
      if ( !wanted.active() ) continue;
      const VrfId wantedId( wanted.vrfId() );
      const auto status = args_.hulL3Status->vrfL3Status( name );
      if ( status && status->vrfId() == wantedId ) continue;
      const auto object = "VRF " + name.value();
      const auto holder = told_.find( wantedId );
      if ( status )
         out.push_back(
              { object, "its routes and interfaces under id " + status->vrfId().strep() + " are still going" } );
      else if ( holder != told_.end() )
         out.push_back( { object, "id " + wantedId.strep() + " belongs to VRF " + holder->second->name.value() } );
   }
   for ( const auto & [ vrfId, told ] : told_ )
      if ( vrfDir_->vrfPhase( vrfId ) == VrfPhase::leaving_ )
         out.push_back( { "deletion of VRF " + told->name.value(), "its routes and interfaces are still going" } );
}

} // namespace Hul
