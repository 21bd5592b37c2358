#include "TestRouter.h"

#include "HostRouterState.h"

#include "StateAcl.h"
#include "StateIpNat.h"
#include "StateIpsec.h"
#include "StateRouting.h"
#include "StateSystem.h"
#include "VexCounterDb.h"
#include "VexManagementSm.h"

namespace Test {

DataPlane::DataPlane( const Directory & directory ) :
     Process( VEXDP_PROGRAM, { "--die-with-parent", std::to_string( getpid() ), "--log-level", "off", "--listen",
                               "unix:" + directory.path( "dataplane" ), "--counters", directory.path( "counters" ) } ),
     address( "unix:" + directory.path( "dataplane" ) ) {}

TestRouter::TestRouter() : dataPlane_( std::make_unique< DataPlane >( directory_ ) ) {
   mount();
   // A data plane that is still starting ends the session: the next one may find it.
   do {
      channel_ = Gant::make< Vex::GrpcChannel >( dataPlane_->address );
      runUntil( [ & ] { return channel_->running() || channel_->lost(); } );
   } while ( channel_->lost() );
   const auto global = Gant::make< Vex::ModuleGlobalCmdConfig >( channel_ );
   enginePair_ = global->moduleConfigStatusPairIs( "engine" );
   vexcsd_ = Gant::make< Vex::VexCommonSmData >( global, Gant::make< Vex::TrapModule >( enginePair_ ),
                                                 Gant::make< Vex::BessCounterInfo >( 1000 ) );
   agent_ = VexL3Unicast::agentSmFactory(
        1, em_, bridgingConfig_, nullptr, nullptr, nullptr, routingMounts_, nullptr, vrfMounts_, nullptr, nullptr,
        ipsecMounts_, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, Gant::make< Gant::Dir >(), nullptr,
        nullptr, nullptr, nullptr, vexcsd_, nullptr, nullptr, Gant::make< Vex::ManagementSm >() );
   agent_->initializedIs( true );
   vrf( "default", 0 );
   agent_->maybeStartProcessing();
}

TestRouter::~TestRouter() { agent_ = nullptr; }

void TestRouter::mount() {
   em_->entityIs( "ip/nat/hwCapabilities", Gant::make< Ip::Nat::HwCapabilities >() );
   em_->entityIs( "cell/1/acl/status/dp/vex", Gant::make< Acl::StatusDp >() );
   em_->entityIs( "interface/errdisable/cause/acl", Gant::make< Errdisable::CauseStatus >() );
   routingMounts_->routeStatusIs( fib );
   routingMounts_->route6StatusIs( fib6 );
   routingMounts_->unprogrammedRouteStatusIs( Gant::make< Mirel::Fib::UnprogrammedRouteStatus >() );
   routingMounts_->unprogrammedRoute6StatusIs( Gant::make< Mirel::Fib6::UnprogrammedRouteStatus >() );
   routingMounts_->routingHwStatusIs( Gant::make< Routing::Hardware::Status >() );
   routingMounts_->routing6HwStatusIs( Gant::make< Routing6::Hardware::Status >() );
   routingMounts_->arpHardwareStatusIs( Gant::make< Arp::Hardware::Status >() );
   routingMounts_->ipStatusIs( ipStatus );
   routingMounts_->allIntfStatusDirIs( intfs );
   routingMounts_->arpMirelIs( arp );
   vrfMounts_->allVrfStatusLocalIs( vrfs );
   ipsecMounts_->connectionTableIs( Gant::make< Ipsec::Ike::ConnectionTable >() );
   ipsecMounts_->ipsecCapabilitiesStatusIs( Gant::make< Ipsec::Capabilities::Status >() );
   status_.phase = Host::Phase::running;
   status_.dataPlane = dataPlane_->address;
   status_.dataPlanePid = dataPlane_->pid();
}

// Nobody has told it anything: the facts are written to the entities themselves.
Host::RouterState & TestRouter::state() {
   if ( !state_ ) state_ = std::make_unique< Host::RouterState >();
   return *state_;
}

Host::ChangeResult TestRouter::change( Host::ChangeOp op, const std::string & kind, const std::string & entry ) {
   changes += std::to_string( static_cast< int >( op ) ) + " " + kind + " " + entry + "\n";
   using Code = Host::ChangeResult::Code;
   if ( entry.find( "unknown" ) != std::string::npos ) return { Code::notFound, "there is no VRF \"unknown\"" };
   if ( entry.find( "wrong" ) != std::string::npos ) return { Code::invalid, "vrf: \"wrong\"" };
   if ( entry.find( "taken" ) != std::string::npos ) return { Code::refused, "VRF \"taken\" is there already" };
   return {};
}

void TestRouter::intf( const char * name, const char * address, const char * vrfName ) {
   const auto id = Test::intf( name );
   const bool tunnel = Kynet::TunnelIntfId::isTunnelIntfId( id );
   if ( !tunnel )
      vexcsd_->l2IntfIs(
           id, Gant::make< Vex::L2Intf >( id, Vex::EncapType::ethernet_,
                                          Kynet::EthAddr( { 2, 0, 0, 0, 0, static_cast< U8 >( id.first() ) } ),
                                          enginePair_, vexcsd_->trapModule() ) );
   ipStatus->intfAddrIs( Ip::IntfAddr( id, prefix( address ) ), true );
   RouterFacts::intf( name, vrfName );
}

void TestRouter::intfGone( const char * name ) {
   ipStatus->intfStatusDel( Test::intf( name ) );
   vexcsd_->l2IntfDel( Test::intf( name ) );
}

void TestRouter::tunnel( const char * name, const char * source, const char * destination ) {
   const auto id = Test::intf( name );
   const auto l2Intf =
        Gant::make< Vex::L2Intf >( id, Vex::EncapType::gre_, Kynet::EthAddr(), enginePair_, vexcsd_->trapModule() );
   l2Intf->srcIpIs( ip( source ) );
   l2Intf->dstIpIs( ip( destination ) );
   vexcsd_->l2IntfIs( id, l2Intf );
   Interface::TunnelIntfStatus status;
   status.srcAddrIs( ip( source ) );
   status.dstAddrIs( ip( destination ) );
   tunnels->intfStatusIs( id, status );
   intf( name, "10.255.0.1/30" );
}

void TestRouter::route6( const char * prefix, U64 fecId ) {
   fib6->routeIs( 0, Kynet::Ip6Prefix::fromString( prefix ).value(),
                  Mirel::Route( Mirel::RouteType::forward(), fecId, 0 ) );
}

void TestRouter::settle() {
   runUntil( [ this ] {
      return Gant::activityManager()->poll() == 0 && channel_->requestsAcknowledged() == channel_->requestsQueued();
   } );
}

void TestRouter::lose() {
   ++status_.restarts;
   status_.phase = Host::Phase::waiting;
   agent_ = nullptr;
   vexcsd_ = nullptr;
   channel_ = nullptr;
}

} // namespace Test
