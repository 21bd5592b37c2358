// How the MACs and the VLANs are followed. The tables that would take them are in VexRoutingStatusSmTables.cpp.
#include "GantAssert.h"
#include "GantTrace.h"
#include "VexRoutingStatusSmReactors.h"

#include <cstdlib>

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexRoutingStatusSm" );

namespace {

// In a control-MAC table, behind the router's MAC.
constexpr U32 virtualRouterMacIndex = 17;
const Bridging::VlanIdOrNone allVlans( 0 );

bool isCpu( Kynet::IntfId intf ) { return intf.stringValue() == "Cpu"; }

} // namespace

bool isVlanIntf( const Gant::Ptr< const Bridging::Config > & bridgingConfig, Bridging::VlanId vlanId ) {
   static const auto cpu = Kynet::IntfId::fromString( "Cpu" ).value();
   const auto & vlanConfig = bridgingConfig->vlanConfig( vlanId );
   if ( !vlanConfig ) {
      GANT_TRACE( 5, "isVlanIntf ", vlanId, " Vlan config doesn't exist" );
      return false;
   }
   if ( vlanConfig->intfHas( cpu ) ) return true;
   GANT_TRACE( 5, "isVlanIntf ", vlanId, " SVI not enabled in vlan" );
   return false;
}

bool isVlanRouted( const Gant::Ptr< const RoutingStatus > & routingStatus, Bridging::VlanId vlanId ) {
   const auto & vrs = routingStatus->vlanRoutingStatus( vlanId );
   if ( !vrs || vrs->genId() == 0 || !vrs->routingStateValid() || !vrs->vrfIdValid() ) return false;
   const auto & state = vrs->routingState();
   return state.routingEnabled() || state.routing6Enabled() || state.mplsRoutingEnabled();
}

void RoutingStatusSm::GantVlanConfig::handleVlanMember( Kynet::IntfId intf ) {
   if ( !isCpu( intf ) ) {
      GANT_TRACE( 5, "GantVlanConfig::handleVlanMember ", intf, "   Not cpu port. Nothing to do." );
      return;
   }
   sm_->handleVlanConfig( notifier()->vlanId() );
}

RoutingStatusSm::RoutingStatusSm( const Gant::Ptr< Hul::HulCommonSmData > & hulcsd,
                                  const Gant::Ptr< const RoutingStatus > & routingStatus,
                                  const Gant::Ptr< const Bridging::Config > & bridgingConfig ) :
     hulcsd_( hulcsd ),
     routingStatus_( routingStatus ), bridgingConfig_( bridgingConfig ),
     gantRoutingStatus_( std::make_unique< GantRoutingStatus >( this ) ),
     gantBridgingConfig_( std::make_unique< GantBridgingConfig >( this ) ) {
   for ( const auto & vlanId : Gant::keysOf( routingStatus->vlanRoutingStatusIterator() ) )
      followVlanRoutingStatus( vlanId );
   for ( const auto & vlanId : bridgingConfig->vlanConfigKeys() ) followVlanConfig( vlanId );
   if ( hulcsd ) verifyDataIs( hulcsd->verifyData() );
   gantVerifyData_ = std::make_unique< GantVerifyData >( this );
   handleInitialized();
}

RoutingStatusSm::~RoutingStatusSm() = default;

void RoutingStatusSm::hasNotificationActiveIs( bool active ) {
   StateMachine::hasNotificationActiveIs( active );
   for ( const auto & vlanId : vlanRoutingStatusKeys() )
      if ( const auto reactor = vlanRoutingStatus( vlanId ) ) reactor->hasNotificationActiveIs( active );
   for ( const auto & vlanId : vlanConfigKeys() )
      if ( const auto reactor = vlanConfig( vlanId ) ) reactor->hasNotificationActiveIs( active );
}

void RoutingStatusSm::followVlanRoutingStatus( Bridging::VlanId vlanId ) {
   const auto & status = routingStatus()->vlanRoutingStatus( vlanId );
   const auto & reactor = vlanRoutingStatus( vlanId );
   if ( !status )
      vlanRoutingStatusDel( vlanId );
   else if ( !reactor || reactor->notifier() != status )
      vlanRoutingStatusIs( vlanId, Gant::make< GantVlanRoutingStatus >( this, status ) );
}

void RoutingStatusSm::followVlanConfig( Bridging::VlanId vlanId ) {
   const auto & config = bridgingConfig()->vlanConfig( vlanId );
   const auto & reactor = vlanConfig( vlanId );
   if ( !config )
      vlanConfigDel( vlanId );
   else if ( !reactor || reactor->notifier() != config )
      vlanConfigIs( vlanId, Gant::make< GantVlanConfig >( this, config ) );
}

// A MAC that went from one value to another meanwhile passed zero unseen.
void RoutingStatusSm::renotifyRoutingStatus() {
   for ( const auto & vlanId : vlanRoutingStatusKeys() ) followVlanRoutingStatus( vlanId );
   for ( const auto & vlanId : Gant::keysOf( routingStatus()->vlanRoutingStatusIterator() ) ) {
      followVlanRoutingStatus( vlanId );
      handleVlanRoutingStatus( vlanId );
   }
   if ( routingStatus()->routerMac() != routerMac() ) {
      if ( !!routingStatus()->routerMac() ) routerMacDel();
      handleRouterMac();
   }
   if ( routingStatus()->virtualRouterMac() != virtualRouterMac() ) {
      if ( !!routingStatus()->virtualRouterMac() ) virtualRouterMacDel();
      handleVirtualRouterMac();
   }
}

void RoutingStatusSm::renotifyBridgingConfig() {
   for ( const auto & vlanId : vlanConfigKeys() ) followVlanConfig( vlanId );
   for ( const auto & vlanId : bridgingConfig()->vlanConfigKeys() ) {
      followVlanConfig( vlanId );
      handleVlanConfig( vlanId );
   }
   if ( bridgingConfig()->bridgeMacAddr() == bridgeMac() ) return;
   if ( !!bridgingConfig()->bridgeMacAddr() ) bridgeMacDel();
   handleBridgeMacAddr();
}

void RoutingStatusSm::handleInitialized() {
   doSetL3EcmpHashPolynomial();
   for ( const auto & [ vlanId, status ] : routingStatus()->vlanRoutingStatusIterator() ) doMaybeProgramBd( vlanId );
   bridgeMacIs( bridgingConfig()->bridgeMacAddr() );
   handleBridgeMacAddr();
   routerMacIs( routingStatus()->routerMac() );
   handleVirtualRouterMac();
   initializedIs( true );
}

void RoutingStatusSm::handleVlanRoutingStatus( Bridging::VlanId vlanId ) {
   doMaybeProgramBd( vlanId );
   doMaybeProgramEgressBd( vlanId );
   handleVlanConfig( vlanId );
}

void RoutingStatusSm::handleVlanConfig( Bridging::VlanId vlanId ) {
   const bool add = isVlanIntf( bridgingConfig(), vlanId );
   if ( !!bridgingConfig()->bridgeMacAddr() )
      doMaybeProgramFdb( bridgingConfig()->bridgeMacAddr(), vlanId, false, add );
   if ( !!virtualRouterMac() ) doMaybeProgramFdb( virtualRouterMac(), vlanId, true, add );
}

void RoutingStatusSm::doProgramRMacOnAllVlans( const Kynet::EthAddr & rmac, bool isAnygwMac, bool add ) {
   for ( const auto & [ vlanId, config ] : bridgingConfig()->vlanConfigIterator() )
      if ( isVlanIntf( bridgingConfig(), vlanId ) ) doMaybeProgramFdb( rmac, vlanId, isAnygwMac, add );
}

void RoutingStatusSm::handleRouterMac() {
   Kynet::EthAddr rmac = routingStatus()->routerMac();
   if ( !!rmac ) {
      GANT_ASSERT( routerMac() == Kynet::EthAddr::ethAddrZero(), " routerMac ", routerMac(), " rmac ", rmac );
   } else {
      GANT_ASSERT( routerMac() != Kynet::EthAddr::ethAddrZero() );
      rmac = routerMac();
   }
   routerMacIs( routingStatus()->routerMac() );
   if ( !bridgingConfig()->bridgeMacAddr() ) {
      doProgramRMacOnAllVlans( rmac, false, false );
      return;
   }
   GANT_ASSERT( rmac == bridgingConfig()->bridgeMacAddr(), " rmac ", rmac, " bridgeMacAddr ",
                bridgingConfig()->bridgeMacAddr() );
   doProgramRMacOnAllVlans( rmac, false, true );
}

void RoutingStatusSm::handleVirtualRouterMac() {
   Kynet::EthAddr mac = routingStatus()->virtualRouterMac();
   const bool add = !!mac;
   if ( add ) {
      GANT_ASSERT( virtualRouterMac() == Kynet::EthAddr::ethAddrZero(), " virtualRouterMac ", virtualRouterMac(),
                   " mac ", mac );
   } else {
      // At start both may be zero.
      if ( initialized() ) GANT_ASSERT( virtualRouterMac() != Kynet::EthAddr::ethAddrZero() );
      mac = virtualRouterMac();
   }
   doProgramMacInCtrlMacTbl( mac, allVlans, virtualRouterMacIndex, add );
   virtualRouterMacIs( routingStatus()->virtualRouterMac() );
   doProgramRMacOnAllVlans( mac, true, add );
}

void RoutingStatusSm::handleBridgeMacAddr() {
   const auto bridgeMacAddr = bridgingConfig()->bridgeMacAddr();
   const bool add = !!bridgeMacAddr;
   doProgramEgressRMacHigh40Bits( bridgeMacAddr );
   doProgramMacInCtrlMacTbl( bridgeMacAddr, allVlans, VexLib::routerMacIndex(), add );
   auto rmac = bridgeMacAddr;
   if ( initialized() ) {
      if ( add ) {
         GANT_ASSERT( bridgeMac() == Kynet::EthAddr::ethAddrZero(), " bridgeMac ", bridgeMac(), " bridgeMacAddr ",
                      bridgeMacAddr );
      } else {
         GANT_ASSERT( bridgeMac() != Kynet::EthAddr::ethAddrZero() );
         rmac = bridgeMac();
      }
   }
   bridgeMacIs( bridgeMacAddr );
   doProgramRMacOnAllVlans( rmac, false, add );
}

void RoutingStatusSm::initTables() {
   doHandleDevice();
   doSetL3EcmpHashPolynomial();
}

void RoutingStatusSm::doHandleDevice() {
   const auto bridgeMacAddr = bridgingConfig()->bridgeMacAddr();
   doProgramEgressRMacHigh40Bits( bridgeMacAddr );
   if ( !!bridgeMacAddr ) {
      doProgramRMacOnAllVlans( bridgeMacAddr, false, true );
      doProgramMacInCtrlMacTbl( bridgeMacAddr, allVlans, VexLib::routerMacIndex(), true );
   }
   const auto virtualMac = routingStatus()->virtualRouterMac();
   if ( !!virtualMac ) {
      doProgramRMacOnAllVlans( virtualMac, true, true );
      doProgramMacInCtrlMacTbl( virtualMac, allVlans, virtualRouterMacIndex, true );
   }
   for ( const auto & [ macVlan, index ] : routingStatus()->vrrpMacStateIterator() )
      doProgramMacInCtrlMacTbl( macVlan.mac(), macVlan.vlanId(), index, true );
   for ( const auto & [ vlanId, status ] : routingStatus()->vlanRoutingStatusIterator() ) doMaybeProgramBd( vlanId );
}

void RoutingStatusSm::handleVerify() {
   if ( !initialized() ) return;
   if ( routingStatus()->routerMac() != routerMac() ) {
      reportMismatch( Gant::textsOf( " cached rmac ", routerMac(), " rs->rMac ", routingStatus()->routerMac() ), 493 );
      return;
   }
   if ( routingStatus()->virtualRouterMac() != virtualRouterMac() ) {
      reportMismatch( Gant::textsOf( " cached anygwmac ", virtualRouterMac(), " rs->anygwMac ",
                                     routingStatus()->virtualRouterMac() ),
                      496 );
      return;
   }
   verifyTables();
}

void RoutingStatusSm::verifyTables() {
   const auto bridgeMacAddr = bridgingConfig()->bridgeMacAddr();
   for ( const auto & [ vlanId, config ] : bridgingConfig()->vlanConfigIterator() ) {
      if ( !isVlanIntf( bridgingConfig(), vlanId ) ) continue;
      const FdbEntryType type =
           isVlanRouted( routingStatus(), vlanId ) ? FdbEntryType::entryTypeRouter() : FdbEntryType::entryTypeCpu();
      if ( !!bridgeMacAddr ) verifyFdbEntry( bridgeMacAddr, vlanId, type, false );
      if ( !!virtualRouterMac() ) verifyFdbEntry( virtualRouterMac(), vlanId, type, true );
   }
   verifyCtrlMacEntry( bridgeMacAddr, allVlans, VexLib::routerMacIndex() );
   verifyCtrlMacEntry( virtualRouterMac(), allVlans, virtualRouterMacIndex );
   for ( const auto & [ vlanId, status ] : routingStatus()->vlanRoutingStatusIterator() ) verifyBdEntry( vlanId );
   for ( const auto & [ macVlan, index ] : routingStatus()->vrrpMacStateIterator() )
      verifyCtrlMacEntry( macVlan.mac(), macVlan.vlanId(), index );
}

// The function and the line numbers are names by which tools know the two findings.
void RoutingStatusSm::reportMismatch( const Gant::String & text, U32 lineNum ) {
   if ( !verifyData() ) return;
   if ( std::getenv( "SIMULATION_VMID" ) == nullptr ) {
      verifyData()->updateCliVerifyOutput( text, "void VexL3Unicast::RoutingStatusSm::handleVerify()" );
      return;
   }
   Hul::VerifyOutput output;
   output.descriptionIs( text );
   output.lineNumIs( lineNum );
   output.filenameIs( "VexRoutingStatusSm" );
   output.functionIs( "handleVerify" );
   output.verifyResultIs( HulTypes::verifyFail() );
   verifyData()->verifyOutputIs( output );
   GANT_ASSERT( 0, text );
}

Gant::Ptr< RoutingStatusSm > RoutingStatusSmIs( const Gant::Ptr< Hul::HulCommonSmData > & hulcsd,
                                                const Gant::Ptr< const RoutingStatus > & routingStatus,
                                                const Gant::Ptr< const Bridging::Config > & bridgingConfig ) {
   return Gant::make< RoutingStatusSm >( hulcsd, routingStatus, bridgingConfig );
}

} // namespace VexL3Unicast
