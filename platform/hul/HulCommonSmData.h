// State that the state machines of the layer share.
#pragma once

#include "GantAttr.h"

namespace Hul {

class VerifyData;

class HulCommonSmData : public Gant::PtrInterface {
 public:
   GANT_ATTR( Gant::Ptr< VerifyData >, verifyData )
};

} // namespace Hul
