// Private VLANs. Bridging has none here, so that the library's state stays empty.
#pragma once

#include "GantEntity.h"
#include "StateBridging.h"

namespace PrivateVlanLib {

// Secondary VLANs with their primary ones.
class LibState : public Gant::Entity {
 public:
   using PrimaryVlans = Gant::OrderedMap< Bridging::VlanId, Bridging::VlanId >;
   using Entity::Entity;
   GANT_MAP( PrimaryVlans, primaryVlan )
};

class LibSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< const Bridging::Config > bridgingConfig{};
      Gant::Ptr< LibState > privateVlanLibState{};
   };
   explicit LibSm( Args args ) : args_( std::move( args ) ) {}
   const Args & args() const { return args_; }

 private:
   Args args_;
};

} // namespace PrivateVlanLib
