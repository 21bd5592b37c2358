// The VRFs: from the host's list to the helper, and to the other machines of the layer.
#pragma once

#include "HulL3Status.h"
#include "HulPending.h"

#include <memory>

namespace HulHelper {
class VrfHelper;
}
namespace Ip {
class AllVrfStatusLocal;
}

namespace Hul {

class HulCommonSmData;

// absent:  the helper does not know the VRF.
// active:  it does, and the VRF takes interfaces and routes.
// leaving: the VRF is not wanted any more; its users take away what they told of it.
GANT_ENUM( VrfPhase, U8, ( absent, 0 ), ( active, 1 ), ( leaving, 2 ) )

// The VRFs as the machines of the layer see them. Written by VrfSm.
class VrfDir : public Gant::Entity {
 public:
   using VrfPhases = Gant::OrderedMap< VrfId, VrfPhase >;
   class Notifiee : public Gant::NotifieeOf< VrfDir > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onVrfPhase( const VrfId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( VrfPhases, vrfPhase, onVrfPhase )
   bool active( VrfId vrfId ) const { return vrfPhase( vrfId ) == VrfPhase::active_; }
};

//   watches  Ip::AllVrfStatusLocal::vrfStatus         name -> id, active
//            VrfL3Status::sequenceProgrammed          of each VRF, copied to the host's directory of sequences once the
//                                                     data plane has answered what was told up to then
//   calls    VrfHelper::createVrf, deleteVrf, verifyVrf
//   writes   L3Status::vrfL3Status, vrfName           around the helper's calls, which read them
//            VrfDir                                   after createVrf, before deleteVrf
//
// A VRF's events: wanted (active in the host's list), unwanted, unused (its last user is done). absent -wanted->
// active; active -unwanted-> leaving; leaving -wanted-> active; leaving -unused-> absent. A VRF that comes under an id
// or with an id that another one still has waits until that one is absent.
class VrfSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< const Ip::AllVrfStatusLocal > allVrfStatusLocal{};
      Gant::Ptr< L3Status > hulL3Status{};
      Gant::Ptr< HulHelper::VrfHelper > vrfHelper{};
      Gant::Ptr< const Gant::Dir > vrfSeqStatusDir{};
      Gant::Ptr< const HulCommonSmData > common{};
   };
   explicit VrfSm( Args args );
   ~VrfSm() override;

   const Gant::Ptr< VrfDir > & vrfDir() const { return vrfDir_; }
   // Something of the VRF has been told to a helper, and nothing is left of it. REQUIRES: the VRF is not absent; it
   // stays until its uses are given back.
   void useInc( VrfId vrfId );
   void useDec( VrfId vrfId );

   void verify();
   void pending( Pendings & out ) const;

 private:
   struct Told;
   struct GantAllVrfStatusLocal;
   struct GantVrfL3Status;
   struct GantProgress;
   void handleAcknowledged();
   void reviewAll();
   void review( const L3::VrfName & name );
   void create( const L3::VrfName & name, VrfId vrfId );
   void leave( VrfId vrfId );
   void maybeDelete( VrfId vrfId );

   Args args_;
   Gant::Ptr< VrfDir > vrfDir_;
   Gant::OrderedMap< VrfId, std::unique_ptr< Told > > told_;
   std::unique_ptr< GantAllVrfStatusLocal > reactor_;
   std::unique_ptr< GantProgress > progressReactor_;
};

} // namespace Hul
