#include "VexMcast.h"

#include "vex/port.pb.h"
#include "VexMessage.h"

namespace VexL3Mcast {

namespace {

constexpr U32 gatesMax = 8192;

bool isIpv4( Kynet::AddressFamily af ) { return af == Kynet::AddressFamily::ipv4_; }

vex::pb::McastFibArg * initArg( const L3::VrfName & vrfName ) {
   auto * const arg = new vex::pb::McastFibArg;
   arg->set_vrfname( vrfName.value() );
   return arg;
}

} // namespace

MfibAf::MfibAf( Kynet::AddressFamily af, const L3::VrfName & vrfName, Gant::Ptr< Vex::ModuleConfigStatusPair > pair ) :
     Module( ( isIpv4( af ) ? "mfib4_" : "mfib6_" ) + vrfName.value(),
             isIpv4( af ) ? Vex::VexModule::McastFibIpv4 : Vex::VexModule::McastFibIpv6, gatesMax, gatesMax, 0, 1,
             initArg( vrfName ), std::move( pair ) ) {}

MfaAgent::MfaAgent( Kynet::AddressFamily af, Gant::Ptr< Quorl::EntityManager > em,
                    Gant::Ptr< Vex::ModuleConfigStatusPair > pair,
                    // NOLINTNEXTLINE(performance-unnecessary-value-param)
                    Gant::Ptr< Vex::ModuleGlobalCmdConfig > globalCmdConfig, Gant::Ptr< Vex::VexCommonSmData > vexcsd,
                    bool ) :
     af_( af ),
     em_( std::move( em ) ),
     pair_( globalCmdConfig ? globalCmdConfig->moduleConfigStatusPairIs( "mfa" ) : std::move( pair ) ),
     vexcsd_( std::move( vexcsd ) ) {}

MfaAgent::~MfaAgent() = default;

void MfaAgent::startMfibSm( const L3::VrfName & vrfName ) {
   if ( !mfibModuleHas( vrfName ) ) mfibModuleIs( vrfName, Gant::make< MfibAf >( af(), vrfName, pair_ ) );
}

void MfaAgent::stopMfibSm( const L3::VrfName & vrfName ) { mfibModuleDel( vrfName ); }

} // namespace VexL3Mcast
