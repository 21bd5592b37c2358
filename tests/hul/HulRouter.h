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
#include "RouterFacts.h"
#include "StateIp6.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace HulTest {

using Test::addr;
using Test::prefix;
inline constexpr auto & intfId = Test::intf;
Kynet::Ip6Prefix prefix6( const char * text );
Kynet::EthAddr mac( U8 last ); // 02:00:00:00:00:last

inline Mirel::Via via( const char * intf, const char * hop, U16 weight = 1 ) {
   return Test::viaTo( hop, intf, weight );
}
Mirel::Via via( Mirel::RouteType::Value kind, const char * intf = nullptr );

// Everything that hosts write. Layers may come and go over it.
struct State : Test::RouterFacts {
   void tunnel( const char * name, const char * dst, const char * underlayVrf = "default" );
   void neighbor( const char * intf, const char * address, U8 lastOfMac ) {
      RouterFacts::neighbor( intf, address, mac( lastOfMac ).stringValue().c_str() );
   }

   Gant::Ptr< Ip::Status > ip = ipStatus;
   Gant::Ptr< Ip6::Status > ip6 = Gant::make< Ip6::Status >();
   Gant::Ptr< L3::Config > l3 = Gant::make< L3::Config >();
   Gant::Ptr< Bridging::Config > bridging = Gant::make< Bridging::Config >();
   Gant::Ptr< Routing::Fhrp::VirtualRouterMacStatus > fhrp = Gant::make< Routing::Fhrp::VirtualRouterMacStatus >();
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
