// The host's view of how far each VRF's routes have come.
#pragma once

#include "GantEntity.h"
#include "StateL3.h"

#include <memory>

namespace Ip {
class AllVrfStatusLocal;
}

namespace Hul {

class HulCommonSmData;

// A VRF's entry in the directory of sequences. Sequence numbers are those of the VRF's FIBs (MirelFib.h): every change
// up to them has reached the data plane's helper.
class VrfSeqStatus : public Gant::Entity {
 public:
   class Notifiee : public Gant::NotifieeOf< VrfSeqStatus > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onSequenceProgrammed() {}
      virtual void onSequence6Programmed() {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED( U64, sequenceProgrammed, onSequenceProgrammed )
   GANT_WATCHED( U64, sequence6Programmed, onSequence6Programmed )
};

// Keeps one entry for each VRF of the host's list.
//
//   watches  Ip::AllVrfStatusLocal::vrfStatus
//   writes   vrfSeqStatusDir                   VRF name -> VrfSeqStatus
class HulSeqStatusCreatorSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< HulCommonSmData > vexcsd{};
      Gant::Ptr< const Ip::AllVrfStatusLocal > allVrfStatusLocal{};
      Gant::Ptr< Gant::Dir > vrfSeqStatusDir{};
   };
   explicit HulSeqStatusCreatorSm( Args args );
   ~HulSeqStatusCreatorSm() override;

 private:
   struct GantAllVrfStatusLocal;
   void reviewAll();
   void review( const L3::VrfName & name );

   Args args_;
   std::unique_ptr< GantAllVrfStatusLocal > reactor_;
};

} // namespace Hul
