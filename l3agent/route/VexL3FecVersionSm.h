// Has the FECs done again whose surroundings have changed: an interface, a port or a flood set came, changed or went,
// without an update of the adjacencies that depend on it. So a FEC that was programmed in part, or as a drop, is
// repaired once what it lacked is there.
//
//   watches   PortVifStatus::intfToPortVifMap           the FECs on the interface
//             McastVifStatus::vlanFloodsetEgressVif     the FECs that flood the VLAN
//             VexCommonSmData::l3Intf                   the FECs on the interface
//             VlanStatusDir::vlanStatus, VlanStatus::vlanPortStatus   only traced
//   reads     RouteDb::intfToFecSet, vlanToFloodingFecSet, fecToAdjIdx
//   calls     Hul::AdjSm::schedulePrefixWalk, which leads to an update of the adjacency in a later turn of the loop
#pragma once

#include "HulL3Status.h"
#include "StateVexVif.h"
#include "VexCommonSmData.h"
#include "VexL3Export.h"
#include "VexL3Types.h"

#include <memory>

namespace Hul {
class VrfRootSm;
}

namespace VexL3Unicast {

class FecVersionSm : public Gant::StateMachine {
 public:
   class GantVlanStatus;
   using VlanStatuses = Gant::OrderedMap< Bridging::VlanId, Gant::Ptr< GantVlanStatus > >;
   using PendingFecs = FecSet::Fecs;

   // Any but `routeDb` may be null: that input is then never seen.
   FecVersionSm( Gant::String name, const Gant::Ptr< RouteDb > & routeDb,
                 const Gant::Ptr< const VexVif::PortVifStatus > & portVifStatus,
                 const Gant::Ptr< const VexMcast::McastVifStatus > & mcastVifStatus,
                 const Gant::Ptr< const Bridging::VlanStatusDir > & vlanStatusDir,
                 const Gant::Ptr< Hul::L3Status > & hulL3Status, const Gant::Ptr< Hul::VrfRootSm > & hulVrfRootSm,
                 const Gant::Ptr< Vex::VexCommonSmData > & vexcsd );
   ~FecVersionSm() override;
   const char * fwkType() const override { return "VexL3Unicast::FecVersionSm"; }

   GANT_CONST( Gant::String, name )
   GANT_CONST( Gant::Ptr< RouteDb >, routeDb )
   GANT_CONST( Gant::Ptr< const VexVif::PortVifStatus >, portVifStatus )
   GANT_CONST( Gant::Ptr< const VexMcast::McastVifStatus >, mcastVifStatus )
   GANT_CONST( Gant::Ptr< const Bridging::VlanStatusDir >, vlanStatusDir )
   GANT_CONST( Gant::Ptr< Hul::L3Status >, hulL3Status )
   GANT_CONST( Gant::Ptr< Hul::VrfRootSm >, hulVrfRootSm )
   GANT_COUNTER( U64, numUpdatePortVif )        // changes of a port's virtual interface
   GANT_COUNTER( U64, numUpdateFloodVif )       // changes of a flood set that concerned a FEC
   GANT_COUNTER( U64, numUpdateVlanPortStatus ) // reported, and always 0
   GANT_COUNTER( U64, numScheduledPrefixWalk )  // runs of schedulePrefixWalk, one for each FEC
   GANT_KEYED( VlanStatuses, vlanStatus )
   // Watches the VLAN. A null `status` is a range error.
   const Gant::Ptr< GantVlanStatus > & vlanStatusIs( const Gant::Ptr< const Bridging::VlanStatus > & status );
   GANT_CONST( Gant::Ptr< Vex::VexCommonSmData >, vexcsd )
   // FECs that wait for a walk: empty between events.
   GANT_SET( PendingFecs, pendingFecSet )

   // Asks for a walk of every pending FEC, and counts its version up. A FEC without an adjacency is passed over.
   void schedulePrefixWalk();
   void processFecForIntf( Kynet::IntfId intfId );
   void handlePortVif( Kynet::IntfId intfId );
   void handleFloodVif( Bridging::VlanId vlanId );
   void handleL3Intf( Kynet::IntfId intfId );
   // Follows the directory.
   void handleVlanStatus( Bridging::VlanId vlanId );
   void handleVlanStatus();
   void showSoftwareSummary( unsigned fd ) const;

 private:
   class GantPortVifStatus;
   class GantMcastVifStatus;
   class GantVlanStatusDir;
   class GantVexcsd;

   void schedulePrefixWalk( const FecSet & fecSet );

   std::unique_ptr< GantPortVifStatus > gantPortVifStatus_;
   std::unique_ptr< GantMcastVifStatus > gantMcastVifStatus_;
   std::unique_ptr< GantVlanStatusDir > gantVlanStatusDir_;
   std::unique_ptr< GantVexcsd > gantVexcsd_;
};

// The watcher of one VLAN.
class FecVersionSm::GantVlanStatus : public Gant::StateMachine {
 public:
   explicit GantVlanStatus( Bridging::VlanId vlanId );
   ~GantVlanStatus() override;
   const char * fwkType() const override { return "VexL3Unicast::FecVersionSm::GantVlanStatus"; }
   GANT_CONST( Bridging::VlanId, vlanId )
   // Goes over the ports of a status that it did not watch before.
   void notifierIs( const Gant::Ptr< const Bridging::VlanStatus > & status );
   void handleVlanPortStatus() const;
   // No FEC depends on it.
   void handleVlanPortStatus( Kynet::IntfId intfId ) const;

 private:
   class Reactor;
   std::unique_ptr< Reactor > reactor_;
};

VEXL3_EXPORT Gant::Ptr< FecVersionSm > fecVersionSmFactory(
     Gant::String name, const Gant::Ptr< RouteDb > & routeDb,
     const Gant::Ptr< const VexVif::PortVifStatus > & portVifStatus,
     const Gant::Ptr< const VexMcast::McastVifStatus > & mcastVifStatus,
     const Gant::Ptr< const Bridging::VlanStatusDir > & vlanStatusDir, const Gant::Ptr< Hul::L3Status > & hulL3Status,
     const Gant::Ptr< Hul::VrfRootSm > & hulVrfRootSm, const Gant::Ptr< Vex::VexCommonSmData > & vexcsd );

} // namespace VexL3Unicast
