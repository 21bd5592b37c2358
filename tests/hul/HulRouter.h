// A router's state in a few words, with the layer over a recording data plane.
#pragma once

#include "HulAdjSm.h"
#include "HulCommonSmData.h"
#include "HulL2AdjHelper.h"
#include "HulL2AdjRequest.h"
#include "HulL3IntfConfigSm.h"
#include "HulRecorder.h"
#include "HulRouteReactor.h"
#include "HulVrfRootSm.h"
#include "MirelFib.h"
#include "StateArp.h"
#include "StateFhrp.h"
#include "StateInterface.h"
#include "StateIp.h"
#include "StateIp6.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace HulTest {

Kynet::IntfId intfId( const char * name );
Kynet::IpGenAddr addr( const char * text );
Kynet::Prefix prefix( const char * text );
Kynet::Ip6Prefix prefix6( const char * text );
Kynet::EthAddr mac( U8 last ); // 02:00:00:00:00:last

// A via to a hop; `hop` null: none.
Mirel::Via via( const char * intf, const char * hop, U16 weight = 1 );
Mirel::Via via( Mirel::RouteType::Value kind, const char * intf = nullptr );

// Everything that hosts write. Layers may come and go over it.
struct State {
   Gant::Ptr< Ip::AllVrfStatusLocal > vrfs = Gant::make< Ip::AllVrfStatusLocal >();
   Gant::Ptr< Ip::Status > ip = Gant::make< Ip::Status >();
   Gant::Ptr< Ip6::Status > ip6 = Gant::make< Ip6::Status >();
   Gant::Ptr< L3::Config > l3 = Gant::make< L3::Config >();
   Gant::Ptr< Bridging::Config > bridging = Gant::make< Bridging::Config >();
   Gant::Ptr< Routing::Fhrp::VirtualRouterMacStatus > fhrp = Gant::make< Routing::Fhrp::VirtualRouterMacStatus >();
   Gant::Ptr< Interface::TunnelIntfStatusDir > tunnels = Gant::make< Interface::TunnelIntfStatusDir >();
   Gant::Ptr< Interface::AllIntfStatusDir > intfs = Gant::make< Interface::AllIntfStatusDir >();
   Gant::Ptr< Arp::Table::Status > arp = Gant::make< Arp::Table::Status >();
   Gant::Ptr< Mirel::Fib::RouteStatus > fib = Gant::make< Mirel::Fib::RouteStatus >();
   Gant::Ptr< Mirel::Fib6::RouteStatus > fib6 = Gant::make< Mirel::Fib6::RouteStatus >();

   State() { intfs->tunnelIntfStatusDirIs( tunnels ); }

   void vrf( const char * name, U32 id, bool active = true ) {
      vrfs->vrfStatusIs( L3::VrfName( name ), Ip::VrfStatus( id, active ) );
   }
   void vrfDel( const char * name ) { vrfs->vrfStatusDel( L3::VrfName( name ) ); }
   // There, up and routed.
   void intf( const char * name, const char * vrf = "default", U32 mtu = 1500 );
   void intfDel( const char * name );
   void up( const char * name, bool up ) { intfs->intfStatusIs( intfId( name ), Interface::IntfStatus( true, up ) ); }
   void tunnel( const char * name, const char * dst, const char * underlayVrf = "default" );
   void neighbor( const char * intf, const char * address, U8 lastOfMac ) {
      arp->neighborIs( Arp::NeighborKey( intfId( intf ), addr( address ) ), mac( lastOfMac ) );
   }
   void neighborDel( const char * intf, const char * address ) {
      arp->neighborDel( Arp::NeighborKey( intfId( intf ), addr( address ) ) );
   }
   void fec( U64 fecId, const Mirel::Vias & vias ) { fib->fecIs( fecId, vias ); }
   bool route( const char * text, U64 fecId, U32 vrfId = 0,
               Mirel::RouteType::Value type = Mirel::RouteType::forward_ ) {
      return fib->routeIs( vrfId, prefix( text ), Mirel::Route( type, fecId, 0 ) );
   }
   bool routeDel( const char * text, U32 vrfId = 0 ) { return fib->routeDel( vrfId, prefix( text ) ); }
};

// The layer over a state.
struct Layer {
   explicit Layer( const State & state ) : state( state ) { l3Status->hulL3IntfTableIs( table ); }
   ~Layer();

   void start();
   // Runs the loop until nothing is left to do.
   void drain();
   Lines pending() const;
   // Of the family, as "vrf 0 10.0.0.0/8 refused".
   Lines unprogrammed() const;

   const State & state;
   Gant::Ptr< HulL3Intf::Table > table = Gant::make< HulL3Intf::Table >( "hulL3IntfTable", true );
   Gant::Ptr< Hul::L3Status > l3Status = Gant::make< Hul::L3Status >( "hulL3Status" );
   Recorder rec{ l3Status };
   Gant::Ptr< Hul::HulCommonSmData > csd = Gant::make< Hul::HulCommonSmData >();
   Gant::Ptr< Gant::Dir > seqDir = Gant::make< Gant::Dir >();
   Gant::Ptr< Hul::AdjReviewEvent > review = Gant::make< Hul::AdjReviewEvent >();
   Gant::Ptr< Hul::RouteReactorConfig > reactorConfig = Gant::make< Hul::RouteReactorConfig >();
   Gant::Ptr< Mirel::Fib::UnprogrammedRouteStatus > refused = Gant::make< Mirel::Fib::UnprogrammedRouteStatus >();
   Gant::Ptr< Mirel::Fib6::UnprogrammedRouteStatus > refused6 = Gant::make< Mirel::Fib6::UnprogrammedRouteStatus >();
   Gant::Ptr< HulL3Intf::ConfigSm > l3IntfSm;
   Gant::Ptr< Hul::L2AdjHelper > l2AdjHelper;
   Gant::Ptr< Hul::VrfRootSm > root;
};

// One state and one layer over it. `fill` says what is there before the layer.
class Router : public testing::Test {
 protected:
   State state;
   Layer layer{ state };
   Recorder & rec = layer.rec;

   void start() {
      layer.start();
      rec.take();
   }
   // A started layer with the default VRF and Ethernet1 and 2.
   void startUsual();
   // The calls since the last time, without the route batches' ends.
   Lines take();
   Lines drained() {
      layer.drain();
      return take();
   }
};

} // namespace HulTest
