#include "VexL3Sm.h"

#include "GantAssert.h"
#include "GantTrace.h"
#include "vex/fib_ipv4.pb.h"
#include "VexL3Counters.h"
#include "VexL3SmReactors.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexL3Sm" );

VexL3Sm::VexL3Sm( const Gant::Ptr< Vex::ModuleConfigStatusPair > & configStatusPair,
                  const Gant::Ptr< Vex::VexCommonSmData > & vexcsd, const Gant::Ptr< L3Modules > & l3Modules,
                  const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< const Bridging::Config > & bridgingConfig,
                  const Gant::Ptr< Hul::L3Status > & hulL3Status,
                  const Gant::Ptr< const VexVif::PortVifStatus > & portVifStatus,
                  const Gant::Ptr< const Bridging::VlanStatusDir > & vlanStatusDir,
                  const Gant::Ptr< TunnelDb > & tunnelDb, const Gant::Ptr< VexL3Mcast::MfaAgent > & mfa4,
                  const Gant::Ptr< VexL3Mcast::MfaAgent > & mfa6, const Gant::Ptr< IpsecHelper > & ipsecHelper ) :
     configStatusPair_( configStatusPair ),
     vexcsd_( vexcsd ), l3Modules_( l3Modules ), routeDb_( routeDb ), bridgingConfig_( bridgingConfig ),
     hulL3Status_( hulL3Status ), portVifStatus_( portVifStatus ), vlanStatusDir_( vlanStatusDir ),
     tunnelDb_( tunnelDb ), mfa4_( mfa4 ), mfa6_( mfa6 ), ipsecHelper_( ipsecHelper ),
     gantVexcsd_( std::make_unique< GantVexcsd >( this, vexcsd ) ),
     gantBridgingConfig_( std::make_unique< GantBridgingConfig >( this, bridgingConfig ) ),
     gantConfigStatusPair_( std::make_unique< GantConfigStatusPair >( this, configStatusPair ) ) {
   handleInitialized();
   bindModuleStatus();
}

VexL3Sm::~VexL3Sm() { gantDoZombieReactors( true ); }

Gant::Ptr< VexL3Sm > vexL3SmFactory(
     const Gant::Ptr< Vex::ModuleConfigStatusPair > & configStatusPair,
     const Gant::Ptr< Vex::VexCommonSmData > & vexcsd, const Gant::Ptr< L3Modules > & l3Modules,
     const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< const Bridging::Config > & bridgingConfig,
     const Gant::Ptr< Hul::L3Status > & hulL3Status, const Gant::Ptr< const VexVif::PortVifStatus > & portVifStatus,
     const Gant::Ptr< const Bridging::VlanStatusDir > & vlanStatusDir, const Gant::Ptr< TunnelDb > & tunnelDb,
     const Gant::Ptr< VexL3Mcast::MfaAgent > & mfa4, const Gant::Ptr< VexL3Mcast::MfaAgent > & mfa6,
     const Gant::Ptr< IpsecHelper > & ipsecHelper ) {
   return Gant::make< VexL3Sm >( configStatusPair, vexcsd, l3Modules, routeDb, bridgingConfig, hulL3Status,
                                 portVifStatus, vlanStatusDir, tunnelDb, mfa4, mfa6, ipsecHelper );
}

void VexL3Sm::handleInitialized() {
   GANT_TRACE( 1, "VexL3Sm::handleInitialized" );
   nhIndexManagerIs( Gant::make< NhIndexManager >() );
   initializedIs( true );
   l3Modules()->bcastFecKeyIs( routeDb()->allocateFecKey() );
   l3Modules()->mcastLinkLocalFecKeyIs( routeDb()->allocateFecKey() );
   l3Modules()->mcastDataFecKeyIs( routeDb()->allocateFecKey() );
   createFib();
}

void VexL3Sm::createFib() {
   constexpr U32 gatesMax = 8192;
   auto * const arg = new vex::pb::FibIpv4Arg;
   arg->set_max_rules( 1048576 );
   arg->set_max_tbl8s( 2048 );
   const auto fib = l3Modules()->fibIpv4Is( "fibIpv4", gatesMax, gatesMax, arg, configStatusPair(), this );
   GANT_ASSERT( fib );
   addFibCounters( fib, vexcsd() );
   const auto classifier =
        l3Modules()->forUsClassifyIpv4Is( "ForUsClassifyIpv4", 1, 5, 0, 5, nullptr, configStatusPair() );
   classifier->connectViaReservedGate( vexcsd()->trapModule(), Vex::GateId( 0 ) );
   addForUsClassifyIpv4Counters( classifier, vexcsd() );
   fib->connectViaReservedGate( classifier, Vex::GateId( 0 ) );
   fib->intfIdToOutGateIs( Kynet::IntfId(), Vex::GateId( 0 ) );
}

void VexL3Sm::bindModuleStatus() {
   gant_ModuleStatusIn_ = std::make_unique< GantModuleStatus >( this, configStatusPair()->moduleStatus() );
}

const Gant::Ptr< FibIpv4 > & VexL3Sm::getFibModule() const {
   const auto & fibModule = l3Modules()->fibIpv4();
   GANT_ASSERT( fibModule );
   return fibModule;
}

void VexL3Sm::handleRouterMacAddr() {
   const auto & bridgeMacAddr = bridgingConfig()->bridgeMacAddr();
   GANT_TRACE( 2, "VexL3Sm::handleRouterMacAddr ", bridgeMacAddr );
   for ( const auto & [ intfId, module ] : l3Modules()->nextHopModIterator() ) module->setSrcMacAddr( bridgeMacAddr );
}

} // namespace VexL3Unicast
