#include "BenchRouter.h"

#include "GantActivity.h"
#include "VexGrpcChannel.h"

#include <stdexcept>

namespace Bench {

namespace {

const char * const intfNames[ hopsPerAdjacency ] = { "Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4" };

Kynet::IpAddr hopAddress( U32 adjacency, U32 n, bool other ) {
   return Kynet::IpAddr( 0xac100000 + n * 0x10000 + ( other ? 0x8000 : 0 ) + adjacency + 2 );
}

Kynet::EthAddr hopMac( U32 adjacency, U32 n, bool other ) {
   return Kynet::EthAddr( Kynet::EthAddr::Bytes{ 2, 0, U8( n ), U8( other ), 0, U8( adjacency ) } );
}

} // namespace

RouterState::RouterState() {
   vrf( "default", 0 );
   for ( U32 n = 0; n < hopsPerAdjacency; ++n ) {
      intf( intfNames[ n ] );
      for ( U32 adjacency = 0; adjacency <= commonAdjacency; ++adjacency )
         for ( const bool other : { false, true } )
            arp->neighborIs( Arp::NeighborKey( Test::intf( intfNames[ n ] ), hopAddress( adjacency, n, other ) ),
                             hopMac( adjacency, n, other ) );
   }
}

Mirel::Vias viasOf( U32 adjacency, bool other ) {
   Mirel::Vias vias;
   for ( U32 n = 0; n < hopsPerAdjacency; ++n )
      vias.emplace_back( Mirel::RouteType::forward(), hopAddress( adjacency, n, other ), Test::intf( intfNames[ n ] ),
                         U16( 1 ) );
   return vias;
}

Hul::NextHopCollection nextHopsOf( U32 adjacency, bool other ) {
   Hul::NextHopCollection hops;
   for ( U32 n = 0; n < hopsPerAdjacency; ++n ) {
      const auto intf = Test::intf( intfNames[ n ] );
      hops.nextHopInc( Hul::NextHop( Hul::NextHopEntryType::forward(), intf, intf, {}, hopMac( adjacency, n, other ) ),
                       1, n );
   }
   return hops;
}

Router::Router( const RouterState & state, const Gant::Ptr< Vex::Channel > & theChannel ) : channel( theChannel ) {
   const auto global = Gant::make< Vex::ModuleGlobalCmdConfig >( channel );
   const auto pair = global->moduleConfigStatusPairIs( "engine" );
   const auto trap = Gant::make< Vex::TrapModule >( pair );
   vexcsd = Gant::make< Vex::VexCommonSmData >( global, trap, Gant::make< Vex::BessCounterInfo >( 1000 ) );
   for ( U32 n = 0; n < hopsPerAdjacency; ++n ) {
      const Kynet::EthAddr mac( Kynet::EthAddr::Bytes{ 2, 0, 0, 0, 1, U8( n ) } );
      const auto intf = Test::intf( intfNames[ n ] );
      vexcsd->l2IntfIs( intf, Gant::make< Vex::L2Intf >( intf, Vex::EncapType::ethernet_, mac, pair, trap ) );
   }
   agent = VexL3Unicast::agentSmFactory(
        1, state.em, state.bridgingConfig, nullptr, nullptr, nullptr, state.routingMounts, nullptr, state.vrfMounts,
        nullptr, nullptr, state.ipsecMounts, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
        state.seqStatusDir, nullptr, nullptr, nullptr, nullptr, vexcsd, nullptr, nullptr, nullptr );
   agent->initializedIs( true );
   agent->maybeStartProcessing();
}

Router::~Router() {
   agent = nullptr;
   vexcsd = nullptr;
}

namespace {

// Ends the loop's run whenever all is acknowledged, and when the session ends.
class AcknowledgedSm : public Gant::StateMachine {
 public:
   explicit AcknowledgedSm( const Gant::Ptr< const Vex::Channel > & channel ) : reactor_( this, channel ) {}

 private:
   class Reactor : public Vex::Channel::Notifiee {
    public:
      using Notifiee::Notifiee;
      void onAcknowledged() override {
         if ( notifier()->requestsAcknowledged() == notifier()->requestsQueued() ) Gant::activityManager()->stop();
      }
      void onLost() override { Gant::activityManager()->stop(); }
   };
   Reactor reactor_;
};

} // namespace

void runUntilSettled( Vex::Channel & channel, const std::function< bool() > & work ) {
   const auto sm = Gant::make< AcknowledgedSm >( Gant::Ptr< const Vex::Channel >( &channel ) );
   const bool remote = dynamic_cast< Vex::GrpcChannel * >( &channel ) != nullptr;
   auto & loop = *Gant::activityManager();
   bool more = bool( work );
   std::function< void() > turn = [ & ] {
      more = work();
      if ( more ) loop.post( turn );
   };
   if ( more ) loop.post( turn );
   for ( ;; ) {
      while ( loop.poll() != 0 ) continue;
      if ( channel.lost() ) throw std::runtime_error( "the session is lost: " + channel.lossReason() );
      if ( channel.requestsRefused() != 0 )
         throw std::runtime_error( "refused: " + channel.refusals().back().module + " " +
                                   channel.refusals().back().action + ": " + channel.refusals().back().text );
      if ( !more && ( !remote || channel.requestsAcknowledged() == channel.requestsQueued() ) ) return;
      loop.run();
   }
}

} // namespace Bench
