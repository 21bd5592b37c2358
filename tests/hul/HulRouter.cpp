#include "HulRouter.h"

#include "GantActivity.h"

namespace HulTest {

Kynet::Ip6Prefix prefix6( const char * text ) { return Kynet::Ip6Prefix::fromString( text ).value(); }
Kynet::EthAddr mac( U8 last ) { return Kynet::EthAddr( Kynet::EthAddr::Bytes{ 2, 0, 0, 0, 0, last } ); }

Mirel::Via via( Mirel::RouteType::Value kind, const char * intf ) {
   return Mirel::Via( kind, {}, intf == nullptr ? Kynet::IntfId() : intfId( intf ), 1 );
}

void State::tunnel( const char * name, const char * dst, const char * underlayVrf ) {
   tunnels->intfStatusIs( intfId( name ),
                          Interface::TunnelIntfStatus( Interface::TunnelMode::gre(), {}, addr( dst ).v4Addr(),
                                                       L3::VrfName( underlayVrf ), 0, 0, 0 ) );
}

Layer::~Layer() {
   if ( root ) root->gantDoZombieReactors( true );
   rec.over = true;
}

void Layer::start() {
   l3IntfSm =
        Gant::make< HulL3Intf::ConfigSm >( HulL3Intf::ConfigSm::Args{ state.bridging, nullptr, nullptr, table, true } );
   l2AdjHelper =
        Gant::make< Hul::L2AdjHelper >( Hul::L2AdjHelper::Args{ .hulL3Status = l3Status, .adjHelper = rec.adjHelper } );
   Hul::PackedArgs::Args packed;
   packed.routeStatus = state.fib;
   packed.route6Status = state.fib6;
   packed.unprogrammedRouteStatus = refused;
   packed.unprogrammedRoute6Status = refused6;
   Hul::VrfRootSm::Args args;
   args.allVrfStatusLocal = state.vrfs;
   args.vrfHelper = rec.vrfHelper;
   args.vexcsd = csd;
   args.hulL3Status = l3Status;
   args.hulL3IntfTable = table;
   args.ipStatus = state.ip;
   args.ip6Status = state.ip6;
   args.bridgingConfig = state.bridging;
   args.virtualMacStatusIn = state.fhrp;
   args.allIntfStatusDir = state.intfs;
   args.packedArgs = Hul::packedArgsFactory( packed );
   args.l3Config = state.l3;
   args.routingStatusHelper = rec.routingStatusHelper;
   args.route4Helper = rec.route4Helper;
   args.route6Helper = rec.route6Helper;
   args.adjReviewEvent = review;
   args.hulL2AdjHelper = l2AdjHelper;
   args.hulRouteReactorConfig = reactorConfig;
   args.vrfSeqStatusDir = seqDir;
   args.arpMirel = state.arp;
   root = Gant::make< Hul::VrfRootSm >( args );
}

void Layer::drain() {
   while ( Gant::activityManager()->poll() != 0 ) continue;
   EXPECT_FALSE( root->busy() );
}

Lines Layer::pending() const {
   Lines out;
   for ( const auto & [ object, reason ] : root->pending() ) out.push_back( object + ": " + reason );
   return out;
}

Lines Layer::unprogrammed() const {
   Lines out;
   const auto add = [ & ]( const Mirel::UnprogrammedTable & table ) {
      for ( const auto & [ key, reason ] : table.routeIterator() )
         out.push_back( Gant::format( "vrf %u ", key.vrfId() ) + key.prefix().stringValue() + " " +
                        reason.stringValue() );
   };
   add( *refused );
   add( *refused6 );
   return out;
}

void Router::startUsual() {
   state.vrf( "default", 0 );
   state.intf( "Et1" );
   state.intf( "Et2" );
   layer.start();
   layer.drain();
   rec.take();
}

Lines Router::take() {
   auto lines = rec.take();
   std::erase( lines, "commitRouteBatch" );
   return lines;
}

} // namespace HulTest
