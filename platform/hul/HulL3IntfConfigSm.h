// Gives layer-3 interfaces their ids.
#pragma once

#include "HulL3Intf.h"

#include <memory>

namespace Interface {
class VlanIntfStatusDir;
}

namespace HulL3Intf {

//   watches  Table::routedIntf                       who asks for an id
//            VlanIntfStatusDir::intfStatus           VLAN interfaces have one unasked
//            Bridging::Config::vlanConfig            VLANs that are taken
//   writes   Table::intfL3Index
//
// A VLAN interface's VLAN is its own number. Any other interface gets an internal VLAN, the highest that is neither
// configured nor a VLAN interface's nor internal to another, and keeps it until it gives up its id or somebody with a
// right to the VLAN comes; then it gets another one first.
class ConfigSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< const Bridging::Config > bridgingConfig{};
      Gant::Ptr< const Interface::VlanIntfStatusDir > vlanIntfStatusDir{};
      Gant::Ptr< const Gant::Dir > l3IndexDir{}; // ids that others give; a data plane without such has none
      Gant::Ptr< Table > hulL3IntfTable{};
      bool internalVlansAllowed = true; // false: only VLAN interfaces get an id
   };
   explicit ConfigSm( Args args );
   ~ConfigSm() override;

 private:
   struct GantBridgingConfig;
   struct GantVlanIntfStatusDir;
   struct GantTable;
   void reviewAll();
   void review( Kynet::IntfId intfId );
   void handleVlanConfig( U16 vlanId );
   bool wanted( Kynet::IntfId intfId ) const;
   bool configured( U16 vlanId ) const;
   U16 freeVlan();
   void vacate( U16 vlanId );
   void vlanIs( Kynet::IntfId intfId, U16 vlanId );

   Args args_;
   static constexpr U16 highestVlan = 4094;
   Gant::OrderedMap< U16, Kynet::IntfId > used_; // by VLAN, own and internal ones
   U16 freeUpTo_ = highestVlan;                  // no higher one is free
   Gant::OrderedSet< Kynet::IntfId > waiting_;   // found no free one
   std::unique_ptr< GantBridgingConfig > bridgingReactor_;
   std::unique_ptr< GantVlanIntfStatusDir > vlanIntfReactor_;
   std::unique_ptr< GantTable > tableReactor_;
};

} // namespace HulL3Intf
