// A host in small: it tells an agent of one port, one neighbour and one route, and waits until the data plane has the
// route. What each step is for is in hosting.md.
//
//    example_host unix:/run/vexdp.sock

#include <MirelFib.h>
#include <QuorlEntityManager.h>
#include <StateAcl.h>
#include <StateArp.h>
#include <StateBridging.h>
#include <StateInterface.h>
#include <StateIp.h>
#include <StateIpNat.h>
#include <StateIpsec.h>
#include <StateRouting.h>
#include <StateSystem.h>
#include <VexCommonSmData.h>
#include <VexGrpcChannel.h>
#include <VexL3AgentSmParts.h>

#include <cstdio>

namespace {

using Gant::make;

const auto port = Kynet::IntfId::fromString( "Ethernet1" ).value();
const auto hop = Kynet::IpAddr::fromString( "10.0.1.2" ).value();
const auto wanted = Kynet::Prefix::fromString( "203.0.113.0/24" ).value();
constexpr U32 defaultVrf = 0;
constexpr U16 cellId = 1;

// What the router is: it outlives every session.
struct State {
   State() {
      em->entityIs( "cell/1/acl/status/dp/vex", make< Acl::StatusDp >() );
      em->entityIs( "interface/errdisable/cause/acl", make< Errdisable::CauseStatus >() );
      em->entityIs( "ip/nat/hwCapabilities", make< Ip::Nat::HwCapabilities >() );

      routing->routeStatusIs( fib );
      routing->route6StatusIs( make< Mirel::Fib6::RouteStatus >() );
      routing->unprogrammedRouteStatusIs( make< Mirel::Fib::UnprogrammedRouteStatus >() );
      routing->unprogrammedRoute6StatusIs( make< Mirel::Fib6::UnprogrammedRouteStatus >() );
      routing->routingHwStatusIs( make< Routing::Hardware::Status >() );
      routing->routing6HwStatusIs( make< Routing6::Hardware::Status >() );
      routing->arpHardwareStatusIs( make< Arp::Hardware::Status >() );
      routing->ipStatusIs( ip );
      routing->allIntfStatusDirIs( intfs );
      routing->arpMirelIs( arp );
      vrf->allVrfStatusLocalIs( vrfs );
      ipsec->connectionTableIs( make< Ipsec::Ike::ConnectionTable >() );
      ipsec->ipsecCapabilitiesStatusIs( make< Ipsec::Capabilities::Status >() );

      vrfs->vrfStatusIs( L3::VrfName( "default" ), Ip::VrfStatus( defaultVrf, true ) );
      ip->intfAddrIs( Ip::IntfAddr( port, Kynet::Prefix::fromString( "10.0.1.1/24" ).value() ), true );
      ip->intfStatusIs( port, Ip::IntfStatus( L3::VrfName( "default" ), true, false, false, 1500, 0, 0 ) );
      intfs->intfStatusIs( port, Interface::IntfStatus( true, true ) );
      arp->neighborIs( Arp::NeighborKey( port, hop ), Kynet::EthAddr( { 2, 0, 0, 0, 1, 2 } ) );
      fib->fecIs( 1, { Mirel::Via( Mirel::RouteType::forward(), hop, port, 1 ) } );
      fib->routeIs( defaultVrf, wanted, Mirel::Route( Mirel::RouteType::forward(), 1, 0 ) );
   }
   const Gant::Ptr< Quorl::EntityManager > em = make< Quorl::EntityManager >( "example" );
   const Gant::Ptr< Mirel::Fib::RouteStatus > fib = make< Mirel::Fib::RouteStatus >();
   const Gant::Ptr< Ip::Status > ip = make< Ip::Status >();
   const Gant::Ptr< Ip::AllVrfStatusLocal > vrfs = make< Ip::AllVrfStatusLocal >();
   const Gant::Ptr< Interface::AllIntfStatusDir > intfs = make< Interface::AllIntfStatusDir >();
   const Gant::Ptr< Arp::Table::Status > arp = make< Arp::Table::Status >();
   const Gant::Ptr< VexL3Unicast::RoutingMounts > routing = VexL3Unicast::routingMountsFactory();
   const Gant::Ptr< VexL3Unicast::VrfMounts > vrf = VexL3Unicast::vrfMountsFactory();
   const Gant::Ptr< VexL3Unicast::IpsecMounts > ipsec = VexL3Unicast::ipsecMountsFactory();
};

// One data plane, and the agent that feeds it.
class Session : public Gant::StateMachine {
 public:
   Session( const State & state, const char * address ) :
        state_( state ), channel_( make< Vex::GrpcChannel >( address ) ),
        modules_( make< Vex::ModuleGlobalCmdConfig >( channel_ ) ), reactor_( *this ) {
      const auto pair = modules_->moduleConfigStatusPairIs( "engine" );
      const auto trap = make< Vex::TrapModule >( pair );
      vexcsd_ = make< Vex::VexCommonSmData >( modules_, trap, make< Vex::BessCounterInfo >( 1024 ) );
      vexcsd_->l2IntfIs( port, make< Vex::L2Intf >( port, Vex::EncapType::ethernet_,
                                                    Kynet::EthAddr( { 2, 0, 0, 0, 0, 1 } ), pair, trap ) );
   }
   bool done() const { return done_; }
   const Gant::String & lossReason() const { return channel_->lossReason(); }

 private:
   struct Reactor : Vex::Channel::Notifiee {
      explicit Reactor( Session & session ) : Notifiee( &session, session.channel_ ), session( session ) {}
      void onAcknowledged() override {
         // Not from within the notification.
         Gant::activityManager()->post( [ this ] { session.step(); } );
      }
      void onLost() override { Gant::activityManager()->stop(); }
      Session & session;
   };

   void start() {
      agent_ = VexL3Unicast::agentSmFactory( cellId, state_.em, make< Bridging::Config >( "bridging/config" ), nullptr,
                                             nullptr, nullptr, state_.routing, nullptr, state_.vrf, nullptr, nullptr,
                                             state_.ipsec, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                             nullptr, make< Gant::Dir >(), nullptr, nullptr, nullptr, nullptr, vexcsd_,
                                             nullptr, nullptr, make< Vex::ManagementSm >() );
      agent_->initializedIs( true );
      agent_->maybeStartProcessing();
   }
   // The first acknowledgement says that there is a data plane.
   void step() {
      if ( !agent_ ) start();
      const auto route = agent_->hulVrfRootSm()->routeState( Hul::VrfId( defaultVrf ), wanted );
      if ( route.progress != Hul::RouteProgress::programmed_ ) return;
      done_ = true;
      Gant::activityManager()->stop();
   }

   const State & state_;
   const Gant::Ptr< Vex::GrpcChannel > channel_;
   const Gant::Ptr< Vex::ModuleGlobalCmdConfig > modules_;
   Gant::Ptr< Vex::VexCommonSmData > vexcsd_;
   Gant::Ptr< VexL3Unicast::AgentSm > agent_; // gone first
   bool done_ = false;
   Reactor reactor_;
};

} // namespace

int main( int argc, char ** argv ) {
   if ( argc != 2 ) {
      std::fprintf( stderr, "usage: example_host ADDRESS\n" );
      return 2;
   }
   const State state;
   Session session( state, argv[ 1 ] );
   Gant::activityManager()->run();
   if ( session.done() )
      std::printf( "%s is in the data plane\n", wanted.stringValue().c_str() );
   else
      std::fprintf( stderr, "no data plane: %s\n", session.lossReason().c_str() );
   return session.done() ? 0 : 1;
}
