#include "VexNatResolver.h"

#include "VexNatTrace.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexNatResolver" );

class NatRouteResolverSm::GantNhMapConfig : public Hul::NextHopMapConfig::Notifiee {
 public:
   explicit GantNhMapConfig( NatRouteResolverSm * sm ) : Notifiee( sm, sm->nhMapConfig() ), sm_( sm ) {}
   void onRouteResolverRequest( const Kynet::IpAddr & addr ) override { sm_->handleNextHopRequest( addr ); }

 private:
   NatRouteResolverSm * sm_;
};

class NatRouteResolverSm::GantL3Status : public Hul::L3Status::Notifiee {
 public:
   explicit GantL3Status( NatRouteResolverSm * sm ) : Notifiee( sm, sm->l3Status() ), sm_( sm ) {}
   void onResolvedAddr( const Hul::VrfAndIpAddr & key ) override { sm_->handleNextHopUpdate( key ); }

 private:
   NatRouteResolverSm * sm_;
};

NatRouteResolverSm::NatRouteResolverSm( const Gant::Ptr< const Hul::NextHopMapConfig > & nhMapConfig,
                                        const Gant::Ptr< Hul::NextHopMapStatus > & nhMapStatus,
                                        const Gant::Ptr< Hul::RouteReactorConfig > & routeConfig,
                                        const Gant::Ptr< const Hul::L3Status > & l3Status ) :
     nhMapConfig_( nhMapConfig ),
     nhMapStatus_( nhMapStatus ), routeConfig_( routeConfig ), l3Status_( l3Status ),
     gantNhMapConfig_( std::make_unique< GantNhMapConfig >( this ) ),
     gantL3Status_( std::make_unique< GantL3Status >( this ) ) {}

NatRouteResolverSm::~NatRouteResolverSm() = default;

void NatRouteResolverSm::handleNextHopRequest( Kynet::IpAddr ) { NAT_PLACEHOLDER(); }

void NatRouteResolverSm::handleNextHopUpdate( const Hul::VrfAndIpAddr & ) { NAT_PLACEHOLDER(); }

class NatLoopbackSm::GantL3Status : public Hul::L3Status::Notifiee {
 public:
   explicit GantL3Status( NatLoopbackSm * sm ) : Notifiee( sm, sm->l3Status() ), sm_( sm ) {}
   void onIntfRoutingState( const Kynet::IntfId & intfId ) override { sm_->handleIntfRouting( intfId ); }
   void onRenotify() override { sm_->handleIntfRouting(); }

 private:
   NatLoopbackSm * sm_;
};

class NatLoopbackSm::GantHulL3IntfTable : public HulL3Intf::Table::Notifiee {
 public:
   explicit GantHulL3IntfTable( NatLoopbackSm * sm ) : Notifiee( sm, sm->hulL3IntfTable() ), sm_( sm ) {}
   void onIntfL3Index( const Kynet::IntfId & intfId ) override { sm_->handleL3Index( intfId ); }
   void onRenotify() override { sm_->handleL3Index(); }

 private:
   NatLoopbackSm * sm_;
};

NatLoopbackSm::NatLoopbackSm( const Gant::Ptr< Vex::VexCommonSmData > & vexcsd,
                              const Gant::Ptr< const Hul::L3Status > & l3Status ) :
     vexcsd_( vexcsd ),
     l3Status_( l3Status ), hulL3IntfTable_( l3Status ? l3Status->hulL3IntfTable() : nullptr ),
     gantL3Status_( std::make_unique< GantL3Status >( this ) ),
     gantHulL3IntfTable_( std::make_unique< GantHulL3IntfTable >( this ) ) {
   handleInitialized();
}

NatLoopbackSm::~NatLoopbackSm() = default;

void NatLoopbackSm::handleInitialized() {
   NAT_PLACEHOLDER();
   initializedIs( true );
}

U16 NatLoopbackSm::loopbackPortVlanIs( U16 port, U16 vlan ) {
   const auto [ at, added ] = loopbackPortVlan_.try_emplace( port, vlan );
   if ( !added && at->second == vlan ) return vlan;
   at->second = vlan;
   handleLoopbackPortVlan( port );
   return vlan;
}

U16 NatLoopbackSm::loopbackPortVlanDel( U16 port ) {
   const auto at = loopbackPortVlan_.find( port );
   if ( at == loopbackPortVlan_.end() ) return 0;
   const auto vlan = at->second;
   loopbackPortVlan_.erase( at );
   handleLoopbackPortVlan( port );
   return vlan;
}

void NatLoopbackSm::loopbackPortVlanDelAll() {
   for ( const auto port : loopbackPortVlanKeys() ) loopbackPortVlanDel( port );
}

void NatLoopbackSm::handleIntfRouting() { NAT_PLACEHOLDER(); }

void NatLoopbackSm::handleIntfRouting( Kynet::IntfId ) { NAT_PLACEHOLDER(); }

void NatLoopbackSm::handleL3Index() { NAT_PLACEHOLDER(); }

void NatLoopbackSm::handleL3Index( Kynet::IntfId ) { NAT_PLACEHOLDER(); }

void NatLoopbackSm::handleVlanRouting( U32, Hul::RoutingState ) { NAT_PLACEHOLDER(); }

void NatLoopbackSm::handleLoopbackPortVlan() { NAT_PLACEHOLDER(); }

void NatLoopbackSm::handleLoopbackPortVlan( U16 ) { NAT_PLACEHOLDER(); }

void NatLoopbackSm::handleLoopbackConfigChange() { NAT_PLACEHOLDER(); }

void NatNextHopCallback::updateNextHopAction( U16, U16, U16 ) { NAT_PLACEHOLDER(); }

} // namespace VexL3Unicast
