// In which VLANs each interface is.
#pragma once

#include "GantEntity.h"
#include "KynetIntfId.h"
#include "StateBridging.h"

#include <memory>

namespace PrivateVlanLib {
class LibState;
}

namespace IntfVlanIdSet {

// Written by ConfigSm.
class Table : public Gant::Entity {
 public:
   using VlanIds = Gant::OrderedSet< Bridging::VlanId >;
   using IntfVlanIds = Gant::OrderedMap< Kynet::IntfId, VlanIds >;
   class Notifiee : public Gant::NotifieeOf< Table > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onIntfVlanIds( const Kynet::IntfId & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( IntfVlanIds, intfVlanIds, onIntfVlanIds )
};

//   watches  Bridging::Config::vlanConfig, and intf of each
//   writes   Table::intfVlanIds
class ConfigSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< const Bridging::Config > bridgingConfig{};
      Gant::Ptr< const PrivateVlanLib::LibState > privateVlanLibState{};
      Gant::Ptr< Table > intfVlanIdSetTable{};
   };
   explicit ConfigSm( Args args );
   ~ConfigSm() override;

 private:
   struct GantBridgingConfig;
   struct GantVlanConfig;
   void reviewAll();
   void review( Bridging::VlanId vlanId );
   void memberIs( Kynet::IntfId intfId, Bridging::VlanId vlanId, bool member );

   Args args_;
   Gant::OrderedMap< Bridging::VlanId, std::unique_ptr< GantVlanConfig > > vlanReactors_;
   std::unique_ptr< GantBridgingConfig > reactor_;
};

} // namespace IntfVlanIdSet
