// Around the NAT helper: the machine that takes its requests for next hops, the one that watches what a loopback port
// would need, and the callback of moved next hops. The data plane translates nothing, so that their handlers leave a
// trace, and no request is answered.
#pragma once

#include "HulL3Status.h"
#include "HulNatSm.h"
#include "HulRouteReactor.h"
#include "VexCommonSmData.h"
#include "VexL3Export.h"
#include "VexNextHopManager.h"

#include <memory>

namespace VexL3Unicast {

class NatHelper;

//   watches   Hul::NextHopMapConfig::routeResolverRequest
//             Hul::L3Status::resolvedAddr
class NatRouteResolverSm : public Gant::StateMachine {
 public:
   // Any may be null.
   NatRouteResolverSm( const Gant::Ptr< const Hul::NextHopMapConfig > & nhMapConfig,
                       const Gant::Ptr< Hul::NextHopMapStatus > & nhMapStatus,
                       const Gant::Ptr< Hul::RouteReactorConfig > & routeConfig,
                       const Gant::Ptr< const Hul::L3Status > & l3Status );
   ~NatRouteResolverSm() override;
   const char * fwkType() const override { return "VexL3Unicast::NatRouteResolverSm"; }
   GANT_CONST( Gant::Ptr< const Hul::NextHopMapConfig >, nhMapConfig )
   GANT_CONST( Gant::Ptr< Hul::NextHopMapStatus >, nhMapStatus )
   GANT_CONST( Gant::Ptr< Hul::RouteReactorConfig >, routeConfig )
   GANT_CONST( Gant::Ptr< const Hul::L3Status >, l3Status )

   void handleNextHopRequest( Kynet::IpAddr addr );
   void handleNextHopUpdate( const Hul::VrfAndIpAddr & key );

 private:
   class GantNhMapConfig;
   class GantL3Status;
   std::unique_ptr< GantNhMapConfig > gantNhMapConfig_;
   std::unique_ptr< GantL3Status > gantL3Status_;
};

//   watches   Hul::L3Status::intfRoutingState
//             HulL3Intf::Table::intfL3Index
//             loopbackPortVlan
class NatLoopbackSm : public Gant::StateMachine {
 public:
   using L3Ids = Gant::HashMap< Kynet::IntfId, HulL3Intf::L3Id >;
   using PortVlans = Gant::HashMap< U16, U16 >;
   // Either may be null.
   NatLoopbackSm( const Gant::Ptr< Vex::VexCommonSmData > & vexcsd, const Gant::Ptr< const Hul::L3Status > & l3Status );
   ~NatLoopbackSm() override;
   const char * fwkType() const override { return "VexL3Unicast::NatLoopbackSm"; }
   GANT_CONST( Gant::Ptr< Vex::VexCommonSmData >, vexcsd )
   GANT_CONST( Gant::Ptr< const Hul::L3Status >, l3Status )
   GANT_CONST( Gant::Ptr< const HulL3Intf::Table >, hulL3IntfTable )
   GANT_MAP( L3Ids, intfL3Index )
   GANT_COLLECTION( PortVlans, loopbackPortVlan )
   U16 loopbackPortVlan( U16 port ) const { return Gant::valueOf( loopbackPortVlan_, port ); }
   U16 loopbackPortVlanIs( U16 port, U16 vlan );
   U16 loopbackPortVlanDel( U16 port );
   void loopbackPortVlanDelAll();
   GANT_ATTR( bool, initialized, false )

   void handleInitialized();
   void handleIntfRouting();
   void handleIntfRouting( Kynet::IntfId intfId );
   void handleL3Index();
   void handleL3Index( Kynet::IntfId intfId );
   void handleVlanRouting( U32 vlanId, Hul::RoutingState state );
   void handleLoopbackPortVlan();
   void handleLoopbackPortVlan( U16 port );
   void handleLoopbackConfigChange();

 private:
   class GantL3Status;
   class GantHulL3IntfTable;
   std::unique_ptr< GantL3Status > gantL3Status_;
   std::unique_ptr< GantHulL3IntfTable > gantHulL3IntfTable_;
};

class NatNextHopCallback : public NextHopCallback {
 public:
   // `natHelper` owns this.
   NatNextHopCallback( Gant::Name name, FeatureType fType, NatHelper * natHelper ) :
        NextHopCallback( std::move( name ), fType ), natHelper_( natHelper ) {}
   const char * fwkType() const override { return "VexL3Unicast::NatNextHopCallback"; }
   void updateNextHopAction( U16, U16, U16 ) override;
   GANT_CONST( NatHelper *, natHelper )
};

} // namespace VexL3Unicast
