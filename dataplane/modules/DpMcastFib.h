// McastFibIpv4, McastFibIpv6: the multicast forwarding of a VRF. It has no (S,G) state yet: every packet goes to the
// trap, by gate 0; the others lead to the interfaces.
#pragma once

#include "DpModule.h"

#include "vex/port.pb.h"

namespace Vexdp {

class McastFib : public Module {
 public:
   static Outcome check( const vex::pb::McastFibArg & ) { return {}; }
   McastFib( Identity identity, const vex::pb::McastFibArg & init ) :
        Module( std::move( identity ) ), vrfname_( init.vrfname() ) {}

   Fate process( Packet & packet, Context & context ) override;
   std::string desc() const override { return vrfname_; }

 private:
   const std::string vrfname_;
};

class McastFibIpv4 : public McastFib {
 public:
   static const ModuleClass & moduleClass();
   using McastFib::McastFib;
};

class McastFibIpv6 : public McastFib {
 public:
   static const ModuleClass & moduleClass();
   using McastFib::McastFib;
};

} // namespace Vexdp
