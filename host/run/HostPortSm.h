// The engine's ports and tunnels, as the state tree says.
#pragma once

#include "HostStateTree.h"

#include <memory>

namespace Vex {
class ModuleConfigStatusPair;
class VexCommonSmData;
} // namespace Vex

namespace Host {

//   watches  PortDir::port
//   writes   VexCommonSmData::l2Intf, and the attributes of what is in it
//
// The kind of a port does not change while it is there: whoever wants another one takes it away first.
class PortSm : public Gant::StateMachine {
 public:
   // `pair` is that of the engine's own modules.
   PortSm( Gant::Ptr< const PortDir > portDir, Gant::Ptr< Vex::VexCommonSmData > vexcsd,
           Gant::Ptr< Vex::ModuleConfigStatusPair > pair );
   ~PortSm() override;

 private:
   struct GantPortDir;
   void review( Kynet::IntfId intfId );

   Gant::Ptr< const PortDir > portDir_;
   Gant::Ptr< Vex::VexCommonSmData > vexcsd_;
   Gant::Ptr< Vex::ModuleConfigStatusPair > pair_;
   std::unique_ptr< GantPortDir > reactor_;
};

} // namespace Host
