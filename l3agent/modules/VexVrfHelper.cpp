#include "VexVrfHelper.h"

#include "GantAssert.h"
#include "GantTrace.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexVrfHelper" );

VexVrfHelper::VexVrfHelper( const Gant::Name & name, const Gant::Ptr< Vex::VexCommonSmData > & vexcsd,
                            const Gant::Ptr< L3Modules > & l3Modules, const Gant::Ptr< Hul::L3Status > & hulL3Status,
                            const Gant::Ptr< Vex::ModuleConfigStatusPair > & configStatusPair,
                            const Gant::Ptr< VexL3Mcast::MfaAgent > & mfa4,
                            const Gant::Ptr< VexL3Mcast::MfaAgent > & mfa6 ) :
     VrfHelper( name ),
     vexcsd_( vexcsd ), l3Modules_( l3Modules ), hulL3Status_( hulL3Status ), configStatusPair_( configStatusPair ),
     mfa4_( mfa4 ), mfa6_( mfa6 ) {}

VexVrfHelper::~VexVrfHelper() = default;

Gant::Ptr< VexVrfHelper > vexVrfHelperFactory( const Gant::Name & name,
                                               const Gant::Ptr< Vex::VexCommonSmData > & vexcsd,
                                               const Gant::Ptr< L3Modules > & l3Modules,
                                               const Gant::Ptr< Hul::L3Status > & hulL3Status,
                                               const Gant::Ptr< Vex::ModuleConfigStatusPair > & configStatusPair,
                                               const Gant::Ptr< VexL3Mcast::MfaAgent > & mfa4,
                                               const Gant::Ptr< VexL3Mcast::MfaAgent > & mfa6 ) {
   return Gant::make< VexVrfHelper >( name, vexcsd, l3Modules, hulL3Status, configStatusPair, mfa4, mfa6 );
}

void VexVrfHelper::createVrf( Hul::VrfId vrf ) {
   const auto & vrfName = hulL3Status()->vrfName( vrf );
   GANT_TRACE( 2, "VexVrfHelper::createVrf ", vrf, " ", vrfName );
   const auto fibModule = l3Modules()->fibIpv4();
   GANT_ASSERT( fibModule, " vrf ", vrf );
   fibModule->addVrf( vrf );
   mfa4()->startMfibSm( vrfName );
   const auto mfibModule = mfa4()->getMfibModule( vrfName );
   GANT_ASSERT( mfibModule, " vrf ", vrf );
   fibModule->ackSmIs( Vex::AckSmIs( fibModule, vexcsd()->cliSm() ) );
   mfibModule->connectViaReservedGate( vexcsd()->trapModule(), Vex::GateId( 0 ) );
   addBroadcastRoute( vrf );
   addMulticastRoutes( vrf, mfibModule );
   createMfib6Module( vrf );
}

void VexVrfHelper::addBroadcastRoute( Hul::VrfId vrf ) {
   const auto & fib = l3Modules()->fibIpv4();
   const auto broadcast = Kynet::Prefix::fromString( "255.255.255.255/32" );
   fib->addRoute( vrf, broadcast->address().value(), broadcast->len(), l3Modules()->bcastFecKey() );
   fib->addFecWithGate( l3Modules()->bcastFecKey(), Vex::GateId( 0 ) );
}

void VexVrfHelper::addMulticastRoutes( Hul::VrfId vrf, const Gant::Ptr< VexL3Mcast::MfibAf > & mfibModule ) {
   const auto & fib = l3Modules()->fibIpv4();
   const auto linkLocal = Kynet::Prefix::fromString( "224.0.0.0/24" );
   const auto data = Kynet::Prefix::fromString( "224.0.0.0/4" );
   fib->addRoute( vrf, linkLocal->address().value(), linkLocal->len(), l3Modules()->mcastLinkLocalFecKey() );
   fib->addRoute( vrf, data->address().value(), data->len(), l3Modules()->mcastDataFecKey() );
   fib->addFecWithGate( l3Modules()->mcastLinkLocalFecKey(), Vex::GateId( 0 ) );
   fib->connectModule( mfibModule );
   const auto gate = fib->findGateByName( mfibModule->name(), false );
   fib->addFecWithGate( l3Modules()->mcastDataFecKey(), gate );
}

void VexVrfHelper::createMfib6Module( Hul::VrfId vrf ) {
   const auto & vrfName = hulL3Status()->vrfName( vrf );
   mfa6()->startMfibSm( vrfName );
   const auto mfibModule = mfa6()->getMfibModule( vrfName );
   GANT_ASSERT( mfibModule, " vrf ", vrf );
   mfibModule->connectViaReservedGate( vexcsd()->trapModule(), Vex::GateId( 0 ) );
}

void VexVrfHelper::deleteVrf( Hul::VrfId vrf ) {
   const auto & vrfName = hulL3Status()->vrfName( vrf );
   GANT_TRACE( 2, "VexVrfHelper::deleteVrf ", vrf, " ", vrfName );
   const auto & fibModule = l3Modules()->fibIpv4();
   GANT_ASSERT( fibModule, " vrf ", vrf );
   if ( const auto mfibModule = mfa4()->getMfibModule( vrfName ) ) fibModule->disconnectModule( mfibModule );
   fibModule->delVrf( vrf );
   mfa4()->stopMfibSm( vrfName );
   mfa6()->stopMfibSm( vrfName );
}

void VexVrfHelper::verifyVrf( Hul::VrfId ) {}

} // namespace VexL3Unicast
