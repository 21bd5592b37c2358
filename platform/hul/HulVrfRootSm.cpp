#include "HulVrfRootSm.h"

#include "GantAssert.h"
#include "HulAdjSm.h"
#include "HulCommonSmData.h"
#include "HulL2AdjHelper.h"
#include "HulL2AdjRequest.h"
#include "HulL3IntfSm.h"
#include "HulRouteReactor.h"
#include "HulRouteSm.h"
#include "HulRoutingSm.h"
#include "StateArp.h"
#include "StateFhrp.h"
#include "StateInterface.h"
#include "StateIp.h"
#include "StateIp6.h"

#include <array>

namespace Hul {

namespace {

// Stands in for an entity that was not given.
template < typename T >
void orEmpty( Gant::Ptr< T > & entity ) {
   if ( !entity ) entity = Gant::make< std::remove_const_t< T > >();
}

VrfRootSm::Args completed( VrfRootSm::Args args ) {
   GANT_ASSERT( args.vrfHelper && args.routingStatusHelper && args.route4Helper && args.route6Helper );
   GANT_ASSERT( args.hulL3Status && args.hulL3IntfTable && args.hulL2AdjHelper );
   auto packed = args.packedArgs ? args.packedArgs->args : PackedArgs::Args();
   orEmpty( packed.routeStatus );
   orEmpty( packed.route6Status );
   orEmpty( packed.unprogrammedRouteStatus );
   orEmpty( packed.unprogrammedRoute6Status );
   args.packedArgs = packedArgsFactory( std::move( packed ) );
   orEmpty( args.allVrfStatusLocal );
   orEmpty( args.ipStatus );
   orEmpty( args.ip6Status );
   orEmpty( args.bridgingConfig );
   orEmpty( args.virtualMacStatusIn );
   orEmpty( args.allIntfStatusDir );
   orEmpty( args.l3Config );
   orEmpty( args.hulRouteReactorConfig );
   orEmpty( args.arpMirel );
   orEmpty( args.vexcsd );
   return args;
}

} // namespace

// The order of the members is the order of the machines.
struct VrfRootSm::Machines {
   explicit Machines( const Args & args );

   Gant::Ptr< RoutingSm > routingSm;
   Gant::Ptr< VrfSm > vrfSm;
   Gant::Ptr< L3IntfSm > l3IntfSm;
   Gant::Ptr< RoutePathSm > routePathSm;
   Gant::Ptr< AdjSm > adjSm;
   Gant::Ptr< RouteSm > routeSm;
   Gant::Ptr< Route6Sm > route6Sm;
   Gant::Ptr< AddrResolverSm > addrResolverSm;

   // Whoever depends on another's facts first. A machine that comes back to life so finds those alive that have to hear
   // of what it does.
   std::array< Gant::PtrInterface *, 8 > all() const {
      return { addrResolverSm.get(), route6Sm.get(), routeSm.get(), adjSm.get(),
               routePathSm.get(),    l3IntfSm.get(), vrfSm.get(),   routingSm.get() };
   }
};

VrfRootSm::Machines::Machines( const Args & args ) {
   const auto & packed = args.packedArgs->args;
   routingSm =
        Gant::make< RoutingSm >( RoutingSm::Args{ args.l3Config, args.bridgingConfig, args.virtualMacStatusIn,
                                                  args.routingStatusHelper, args.route4Helper, args.route6Helper } );
   vrfSm = Gant::make< VrfSm >(
        VrfSm::Args{ args.allVrfStatusLocal, args.hulL3Status, args.vrfHelper, args.vrfSeqStatusDir, args.vexcsd } );
   l3IntfSm = Gant::make< L3IntfSm >( L3IntfSm::Args{ args.l3Config, args.ipStatus, args.ip6Status,
                                                      args.allIntfStatusDir, args.hulL3IntfTable, args.hulL3Status,
                                                      vrfSm, args.routingStatusHelper } );
   routePathSm = Gant::make< RoutePathSm >( packed.routeStatus );
   adjSm =
        Gant::make< AdjSm >( AdjSm::Args{ args.hulL3Status, args.hulL2AdjHelper, args.arpMirel, args.allIntfStatusDir,
                                          routePathSm, vrfSm, args.adjReviewEvent, args.vexcsd } );
   routeSm = Gant::make< RouteSm >( RouteSm::Args{ packed.routeStatus, packed.unprogrammedRouteStatus, args.hulL3Status,
                                                   vrfSm, adjSm, args.route4Helper, args.vexcsd } );
   route6Sm =
        Gant::make< Route6Sm >( Route6Sm::Args{ packed.route6Status, packed.unprogrammedRoute6Status, args.hulL3Status,
                                                vrfSm, adjSm, args.route6Helper, args.vexcsd } );
   addrResolverSm = Gant::make< AddrResolverSm >( AddrResolverSm::Args{
        args.hulRouteReactorConfig, args.hulL3Status, args.arpMirel, args.allIntfStatusDir, routePathSm } );
}

struct VrfRootSm::GantVerifyData : VerifyData::Notifiee {
   explicit GantVerifyData( VrfRootSm * owner ) :
        Notifiee( owner, owner->args_.vexcsd ? owner->args_.vexcsd->verifyData() : nullptr ), owner( owner ) {}
   void onVerify() override { owner->verify(); }
   VrfRootSm * owner;
};

VrfRootSm::VrfRootSm( Args args ) : args_( completed( std::move( args ) ) ) {
   if ( !args_.programmingEnabled ) return;
   machines_ = std::make_unique< Machines >( args_ );
   verifyReactor_ = std::make_unique< GantVerifyData >( this );
}

VrfRootSm::~VrfRootSm() {
   // The machines are taken down one by one, and none may hear of the others' end.
   VrfRootSm::gantDoZombieReactors( true );
}

void VrfRootSm::hasNotificationActiveIs( bool active ) {
   if ( machines_ )
      for ( auto * const machine : machines_->all() ) machine->hasNotificationActiveIs( active );
   StateMachine::hasNotificationActiveIs( active );
}

void VrfRootSm::gantDoZombieReactors( bool zombie ) {
   StateMachine::gantDoZombieReactors( zombie );
   if ( !machines_ ) return;
   for ( auto * const machine : machines_->all() ) machine->gantDoZombieReactors( zombie );
}

Gant::Ptr< AdjSm > VrfRootSm::hulAdjSm() const { return machines_ ? machines_->adjSm : nullptr; }

void VrfRootSm::verify() {
   if ( !machines_ || zombie() ) return;
   machines_->routingSm->verify();
   machines_->vrfSm->verify();
   machines_->l3IntfSm->verify();
   machines_->adjSm->verify();
   machines_->routeSm->verify();
   machines_->route6Sm->verify();
}

Pendings VrfRootSm::pending( size_t mostRoutes ) const {
   Pendings out;
   if ( !machines_ ) return out;
   machines_->vrfSm->pending( out );
   machines_->l3IntfSm->pending( out );
   machines_->adjSm->pending( out );
   machines_->routeSm->pending( out, mostRoutes );
   machines_->route6Sm->pending( out, mostRoutes );
   return out;
}

bool VrfRootSm::busy() const { return machines_ && ( machines_->routeSm->busy() || machines_->route6Sm->busy() ); }

U32 VrfRootSm::toldRoutes() const {
   return machines_ ? machines_->routeSm->toldRoutes() + machines_->route6Sm->toldRoutes() : 0;
}

RouteState VrfRootSm::routeState( VrfId vrfId, const Kynet::IpGenPrefix & prefix ) const {
   if ( !machines_ ) return { RouteProgress::pending(), "nothing is told to the data plane" };
   return prefix.af() == Kynet::AddressFamily::ipv4_ ? machines_->routeSm->state( vrfId.value(), prefix.v4Prefix() )
                                                     : machines_->route6Sm->state( vrfId.value(), prefix.v6Prefix() );
}

RouteProgress VrfRootSm::routeProgress( Kynet::AddressFamily af, U32 slot ) const {
   if ( !machines_ ) return RouteProgress::pending();
   return af == Kynet::AddressFamily::ipv4_ ? machines_->routeSm->progress( slot )
                                            : machines_->route6Sm->progress( slot );
}

RouteCounts VrfRootSm::routeCounts( Kynet::AddressFamily af ) const {
   if ( !machines_ ) return {};
   return af == Kynet::AddressFamily::ipv4_ ? machines_->routeSm->counts() : machines_->route6Sm->counts();
}

RouteCounts VrfRootSm::routeCounts( Kynet::AddressFamily af, VrfId vrfId ) const {
   if ( !machines_ ) return {};
   return af == Kynet::AddressFamily::ipv4_ ? machines_->routeSm->counts( vrfId.value() )
                                            : machines_->route6Sm->counts( vrfId.value() );
}

} // namespace Hul
