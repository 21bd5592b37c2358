// Keeps the router's MACs in step with their sources, decides for each VLAN which MAC would go into a switching table,
// and compares on request. The data plane has no such tables: what would write one only traces, and no command goes out
// from here.
//
//   watches   RoutingStatus::routerMac, virtualRouterMac, vlanRoutingStatus
//             VlanRoutingStatus::genId
//             Bridging::Config::bridgeMacAddr, vlanConfig, VlanConfig::intf
//             Hul::VerifyData::verify
//   writes    routerMac, virtualRouterMac, bridgeMac      its copies of the sources
//             Hul::VerifyData                             a copy that differs from its source
//
// Each of the three MACs goes from zero to a value and back to zero. A change from one value to another ends the
// process, and so does a router MAC that is not the bridge MAC while there is one: whoever feeds the sources clears
// first.
#pragma once

#include "HulCommonSmData.h"
#include "VexRoutingStatusTypes.h"

#include <memory>

namespace VexLib {

// Where the router's MAC stands in a control-MAC table.
inline U32 routerMacIndex() { return 16; }

} // namespace VexLib

namespace VexL3Unicast {

// What a MAC's entry in a forwarding database leads to.
GANT_ENUM( FdbEntryType, U8, ( entryTypeUnknown, 0 ), ( entryTypeCpu, 1 ), ( entryTypeRouter, 2 ) )

class RoutingStatusSm : public Gant::StateMachine {
 public:
   class GantVlanRoutingStatus;
   class GantVlanConfig;
   using VlanRoutingStatuses = Gant::OrderedMap< Bridging::VlanId, Gant::Ptr< GantVlanRoutingStatus > >;
   using VlanConfigs = Gant::OrderedMap< Bridging::VlanId, Gant::Ptr< GantVlanConfig > >;

   RoutingStatusSm( const Gant::Ptr< Hul::HulCommonSmData > & hulcsd,
                    const Gant::Ptr< const RoutingStatus > & routingStatus,
                    const Gant::Ptr< const Bridging::Config > & bridgingConfig );
   ~RoutingStatusSm() override;
   void hasNotificationActiveIs( bool active ) override;
   const char * fwkType() const override { return "VexL3Unicast::RoutingStatusSm"; }

   GANT_CONST( Gant::Ptr< Hul::HulCommonSmData >, hulcsd )
   GANT_CONST( Gant::Ptr< const RoutingStatus >, routingStatus )
   GANT_CONST( Gant::Ptr< const Bridging::Config >, bridgingConfig )
   // One reactor for each entry of the two.
   GANT_MAP( VlanRoutingStatuses, vlanRoutingStatus )
   GANT_MAP( VlanConfigs, vlanConfig )
   GANT_ATTR( Kynet::EthAddr, routerMac )
   GANT_ATTR( Kynet::EthAddr, virtualRouterMac )
   GANT_ATTR( Kynet::EthAddr, bridgeMac )
   GANT_ATTR( Gant::Ptr< Hul::VerifyData >, verifyData )
   GANT_ATTR( bool, initialized, false )

   void handleRouterMac();
   void handleVirtualRouterMac();
   void handleBridgeMacAddr();
   void handleVlanRoutingStatus( Bridging::VlanId vlanId );
   void handleVlanConfig( Bridging::VlanId vlanId );
   // Reports the first copy that differs from its source, otherwise goes over the tables. With "SIMULATION_VMID" in the
   // environment a difference ends the process.
   void handleVerify();
   // Replays everything onto a device.
   void initTables();
   void doHandleDevice();

   // The tables that the data plane does not have.
   void doMaybeProgramBd( Bridging::VlanId vlanId );
   void doMaybeProgramEgressBd( Bridging::VlanId vlanId );
   void doMaybeProgramFdb( const Kynet::EthAddr & mac, Bridging::VlanId vlanId, bool isAnygwMac, bool add );
   void doProgramSingleFdbEntry( U32 deviceId, Bridging::VlanId vlanId, const Kynet::EthAddr & mac, bool isAnygwMac,
                                 bool add, bool isRouterMac );
   void doProgramBdEntry( U32 deviceId, Bridging::VlanId vlanId, const Gant::Ptr< VlanRoutingStatus > & vrs );
   void doProgramEgressBdEntry( U32 deviceId, Bridging::VlanId vlanId, const Gant::Ptr< VlanRoutingStatus > & vrs );
   void doProgramEgressRMacHigh40Bits( const Kynet::EthAddr & mac );
   void doProgramMacInCtrlMacTbl( const Kynet::EthAddr & mac, Bridging::VlanIdOrNone vlanId, U32 index, bool add );
   void doSetL3EcmpHashPolynomial();
   void verifyFdbEntry( const Kynet::EthAddr & mac, Bridging::VlanId vlanId, FdbEntryType entryType, bool isAnygwMac );
   void verifyCtrlMacEntry( const Kynet::EthAddr & mac, Bridging::VlanIdOrNone vlanId, U32 index );
   void verifyBdEntry( Bridging::VlanId vlanId );

 private:
   class GantRoutingStatus;
   class GantBridgingConfig;
   class GantVerifyData;

   void handleInitialized();
   void doProgramRMacOnAllVlans( const Kynet::EthAddr & rmac, bool isAnygwMac, bool add );
   void verifyTables();
   void reportMismatch( const Gant::String & text, U32 lineNum );
   void followVlanRoutingStatus( Bridging::VlanId vlanId );
   void followVlanConfig( Bridging::VlanId vlanId );
   void renotifyRoutingStatus();
   void renotifyBridgingConfig();

   std::unique_ptr< GantRoutingStatus > gantRoutingStatus_;
   std::unique_ptr< GantBridgingConfig > gantBridgingConfig_;
   std::unique_ptr< GantVerifyData > gantVerifyData_;
};

// A VLAN has a switched virtual interface when the CPU's port is one of its members.
bool isVlanIntf( const Gant::Ptr< const Bridging::Config > & bridgingConfig, Bridging::VlanId vlanId );
// Multicast routing alone does not count.
bool isVlanRouted( const Gant::Ptr< const RoutingStatus > & routingStatus, Bridging::VlanId vlanId );

Gant::Ptr< RoutingStatusSm > RoutingStatusSmIs( const Gant::Ptr< Hul::HulCommonSmData > & hulcsd,
                                                const Gant::Ptr< const RoutingStatus > & routingStatus,
                                                const Gant::Ptr< const Bridging::Config > & bridgingConfig );

} // namespace VexL3Unicast
