#include "HulRoutingSm.h"

#include "HulHelper.h"
#include "StateFhrp.h"

namespace Hul {

struct RoutingSm::GantL3Config : L3::Config::Notifiee {
   explicit GantL3Config( RoutingSm * owner ) : Notifiee( owner, owner->args_.l3Config ), owner( owner ) {}
   void onRouting() override {
      if ( owner->routing_ != notifier()->routing() || owner->routing6_ != notifier()->routing6() )
         owner->handleRouting();
   }
   void onRenotify() override { onRouting(); }
   RoutingSm * owner;
};

struct RoutingSm::GantBridgingConfig : Bridging::Config::Notifiee {
   explicit GantBridgingConfig( RoutingSm * owner ) : Notifiee( owner, owner->args_.bridgingConfig ), owner( owner ) {}
   void onBridgeMacAddr() override { owner->handleRouterMac(); }
   void onRenotify() override { owner->handleRouterMac(); }
   RoutingSm * owner;
};

struct RoutingSm::GantVirtualMacStatus : Routing::Fhrp::VirtualRouterMacStatus::Notifiee {
   explicit GantVirtualMacStatus( RoutingSm * owner ) :
        Notifiee( owner, owner->args_.virtualMacStatusIn ), owner( owner ) {}
   void onAnygwMac() override { owner->handleVirtualRouterMac(); }
   void onRenotify() override { owner->handleVirtualRouterMac(); }
   RoutingSm * owner;
};

RoutingSm::RoutingSm( Args args ) :
     args_( std::move( args ) ), l3Reactor_( std::make_unique< GantL3Config >( this ) ),
     bridgingReactor_( std::make_unique< GantBridgingConfig >( this ) ),
     virtualMacReactor_( std::make_unique< GantVirtualMacStatus >( this ) ) {
   args_.routingStatusHelper->l3Init( true );
   handleRouting();
   handleRouterMac();
   handleVirtualRouterMac();
}

RoutingSm::~RoutingSm() = default;

void RoutingSm::handleRouting() {
   routing_ = args_.l3Config->routing();
   routing6_ = args_.l3Config->routing6();
   args_.routingStatusHelper->handleRouting( routing_, routing6_ );
   args_.routeHelper->handleRouting( routing_ );
   args_.route6Helper->handleRouting( routing6_ );
}

void RoutingSm::handleRouterMac() {
   const auto mac = args_.bridgingConfig->bridgeMacAddr();
   if ( mac == routerMac_ ) return;
   const auto old = std::exchange( routerMac_, mac );
   if ( !!old ) args_.routingStatusHelper->handleRouterMac( old, false );
   if ( !!mac ) args_.routingStatusHelper->handleRouterMac( mac, true );
}

void RoutingSm::handleVirtualRouterMac() {
   const auto mac = args_.virtualMacStatusIn->anygwMac();
   if ( mac == virtualRouterMac_ ) return;
   const auto old = std::exchange( virtualRouterMac_, mac );
   if ( !!old.addr() ) args_.routingStatusHelper->handleVirtualRouterMac( old, false );
   if ( !!mac.addr() ) args_.routingStatusHelper->handleVirtualRouterMac( mac, true );
}

void RoutingSm::verify() {
   args_.routingStatusHelper->verifyL3();
   args_.routeHelper->verifyRouting( routing_ );
   args_.route6Helper->verifyRouting( routing6_ );
}

} // namespace Hul
