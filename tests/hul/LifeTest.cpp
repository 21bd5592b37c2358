// The machines as an agent makes them, and their end in any order.
#include "HulFilteredVrfLists.h"
#include "HulIntfStatusSm.h"
#include "HulIntfVlanIdSet.h"
#include "HulIpsecConnectionTableSm.h"
#include "HulMonitoredNexthopSm.h"
#include "HulNatSm.h"
#include "HulPrivateVlanLib.h"
#include "HulRouter.h"
#include "HulSeqStatus.h"
#include "HulTunnelSm.h"
#include "KytAttrLog.h"
#include "StateAcl.h"
#include "ZephNexthopGroup.h"

#include "GantActivity.h"

#include <algorithm>
#include <random>

namespace HulTest {
namespace {

class Life : public testing::TestWithParam< U32 > {
 protected:
   // What the rest of an agent makes around a started layer.
   std::vector< Gant::Ptr< Gant::PtrInterface > > others() {
      const auto natSm = Gant::make< Hul::NatSm >( Hul::NatSm::Args{ .vexcsd = layer.csd } );
      natSm->startIs( true );
      return { natSm,
               Gant::make< IntfVlanIdSet::ConfigSm >( IntfVlanIdSet::ConfigSm::Args{
                    .bridgingConfig = state.bridging,
                    .intfVlanIdSetTable = Gant::make< IntfVlanIdSet::Table >( "intfVlanIdSetTable" ) } ),
               Gant::make< PrivateVlanLib::LibSm >( PrivateVlanLib::LibSm::Args{ .bridgingConfig = state.bridging } ),
               Gant::make< Hul::IntfStatusSm >( Hul::IntfStatusSm::Args{ .hulL3Status = layer.l3Status } ),
               Gant::make< Hul::HulSeqStatusCreatorSm >( Hul::HulSeqStatusCreatorSm::Args{
                    .allVrfStatusLocal = state.vrfs, .vrfSeqStatusDir = layer.seqDir } ),
               Gant::make< Hul::RouteResolverSm >( Hul::RouteResolverSm::Args{
                    .hulRouteReactorConfig = layer.reactorConfig, .hulL3Status = layer.l3Status } ),
               Gant::make< Hul::MonitoredNexthopSm >( Hul::MonitoredNexthopSm::Args{ .hulL3Status = layer.l3Status } ),
               Gant::make< Hul::HulTunnelSm >( Hul::HulTunnelSm::Args{ .adjReviewEvent = layer.review } ),
               Gant::make< HulIpsec::HulConnectionTableSm >( HulIpsec::HulConnectionTableSm::Args{} ),
               Gant::make< Zeph::NexthopGroupSm >( Zeph::NexthopGroupSm::Args{ .ipStatus = state.ip } ),
               Gant::make< Zeph::NexthopGroupConfigMergeSm >( Zeph::NexthopGroupConfigMergeSm::Args{} ),
               Gant::make< Kyt::AttrLogSm >( Kyt::AttrLogSm::Args{
                    .socketOutSm = Gant::NboAttrLog::top()->socketOutSm( "router" ), .maxIterUntilBufferCheck = 10 } ),
               Gant::make< Acl::AclConfigAggregatorSm >( Acl::AclConfigAggregatorSm::Args{} ) };
   }
   void change( U32 n ) {
      const auto last = U8( n );
      state.neighbor( "Et1", "10.9.0.2", last );
      state.route( n % 2 == 0 ? "10.0.0.0/8" : "11.0.0.0/8", n % 3 );
      state.fec( n % 3, { via( n % 2 == 0 ? "Et1" : "Tunnel5", "10.9.0.2" ) } );
      state.up( "Et1", n % 4 != 0 );
      state.tunnel( "Tunnel5", n % 2 == 0 ? "10.1.1.1" : "11.1.1.1" );
      if ( n % 5 == 0 ) state.vrf( "default", 0, n % 2 == 0 );
      Gant::activityManager()->poll();
   }

   State state;
   Layer layer{ state };
};

TEST_P( Life, partsMayEndInAnyOrderWhileTheStateGoesOn ) {
   state.intf( "Tunnel5" );
   state.intf( "Et1" );
   layer.start();
   auto parts = others();
   layer.reactorConfig->addrIs( Hul::VrfAndIpAddr( Hul::VrfId( 0 ), addr( "10.1.1.1" ).v4Addr() ), true );
   U32 n = 0;
   while ( n < 20 ) change( n++ );
   for ( const bool active : { false, true } ) {
      for ( const auto & part : parts ) part->hasNotificationActiveIs( active );
      layer.root->hasNotificationActiveIs( active );
      change( n++ );
   }
   // The layer's own parts too, held as an agent holds them: each by one attribute.
   auto * const root = layer.root.get();
   parts.insert( parts.end(), { layer.root, layer.l2AdjHelper, layer.l3IntfSm, layer.l3Status, layer.table } );
   layer.root = nullptr;
   layer.l2AdjHelper = nullptr;
   layer.l3IntfSm = nullptr;
   layer.l3Status = nullptr;
   layer.table = nullptr;
   std::ranges::shuffle( parts, std::minstd_rand( GetParam() ) );
   while ( !parts.empty() ) {
      if ( parts.back().get() == root ) {
         // Work of the layer is under way, and is never done.
         state.fec( 1, { via( Mirel::RouteType::drop_ ) } );
         state.vrf( "red", 7 );
         parts.pop_back();
         layer.rec.over = true;
      } else {
         parts.pop_back();
      }
      change( n++ );
   }
   EXPECT_EQ( layer.rec.breaches(), 0u );
}

INSTANTIATE_TEST_SUITE_P( Orders, Life, testing::Range( 0u, 30u ) );

} // namespace
} // namespace HulTest
