#include "GantTrace.h"
#include "vex/next_hop.pb.h"
#include "VexAckSm.h"
#include "VexL3Modules.h"
#include "VexMessage.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexL3Modules" );

using Vex::enqueueAside;
using Vex::enqueueChange;
using Vex::newMessage;

NextHopMod::NextHopMod( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
                        Gant::Ptr< Vex::ModuleConfigStatusPair > pair, VexL3Sm * l3Sm, Kynet::IntfId intfId ) :
     Module( name, Vex::VexModule::NextHop, maxInGate, maxOutGate, 0, 1, initArgs, std::move( pair ) ),
     l3Sm_( l3Sm ), intfId_( intfId ) {}

NextHopMod::~NextHopMod() = default;

void NextHopMod::setSrcMacAddr( const Kynet::EthAddr & ethAddr ) {
   if ( !ethAddr ) return;
   auto * const arg = newMessage< vex::pb::EthernetConfigArg >( *this );
   arg->set_mac_addr( std::string( Vex::bytesOf( ethAddr ) ) );
   enqueueChange( *this, "setSrcMacAddr", arg );
}

void NextHopMod::writeNH( const NextHopKey & nhk, const VexNhEntry & nhEntry ) {
   auto * const arg = newMessage< vex::pb::NextHopWriteNHArg >( *this );
   auto & info = *arg->add_nexthopinfo();
   info.set_nh_index( nhk.nhLocalIndex() );
   info.set_pkt_cmd( static_cast< S32 >( nhEntry.pktCmd() ) );
   if ( !!nhk.ethAddr() ) info.set_mac_da( std::string( Vex::bytesOf( nhk.ethAddr() ) ) );
   GANT_TRACE( 6, name(), " writeNH ", nhk, " pktCmd ", nhEntry.pktCmd() );
   enqueueChange( *this, "writeNH", arg );
}

void NextHopMod::deleteNH( const NextHopKey & nhk ) {
   auto * const arg = newMessage< vex::pb::NextHopWriteNHArg >( *this );
   arg->add_nexthopinfo()->set_nh_index( nhk.nhLocalIndex() );
   GANT_TRACE( 6, name(), " deleteNH ", nhk );
   enqueueChange( *this, "deleteNH", arg );
}

void NextHopMod::show( int cliSocket, const Gant::String & intfName ) {
   cliSocketIs( cliSocket );
   auto * const arg = newMessage< vex::pb::NextHopShowArg >( *this );
   arg->set_cli_socket( static_cast< U32 >( cliSocket ) );
   arg->set_use_grpc( useGRPC() );
   arg->set_intfname( intfName );
   if ( !useGRPC() ) {
      const U64 suffix = intfId().value();
      ackSm()->doSetupSocketFileDescriptor( ackSocketBind( suffix ) );
      dupSocket( suffix );
   }
   enqueueAside( *this, "showNH", arg );
   ackSm()->activeMsgCountInc( 1 );
}

void NextHopMod::setCounterIds( Vex::CounterId misMatchRouterCounter, Vex::CounterId badNextHopCmdCounter,
                                Vex::CounterId badNextHopIndexCounter, Vex::CounterId prependFailCounter ) {
   auto * const arg = newMessage< vex::pb::NextHopCounterIdArg >( *this );
   arg->set_mismatch_router_mac_counter( misMatchRouterCounter );
   arg->set_bad_nexthop_cmd_counter( badNextHopCmdCounter );
   arg->set_invalid_nexthop_counter( badNextHopIndexCounter );
   arg->set_prepend_fail_counter( prependFailCounter );
   enqueueAside( *this, "setCounterIds", arg );
}

const Gant::Ptr< NextHopModUpdateSMacSm > & NextHopMod::updateSMacSmIs( const Gant::Ptr< const Vex::L2Intf > & l2Intf,
                                                                        NextHopMod * nhMod ) {
   if ( !updateSMacSm_ || updateSMacSm_->l2Intf() != l2Intf || updateSMacSm_->nhMod() != nhMod ) {
      updateSMacSm_ = Gant::make< NextHopModUpdateSMacSm >( l2Intf, nhMod );
      updateSMacSm_->hasNotificationActiveIs( true );
   }
   return updateSMacSm_;
}

void NextHopMod::updateSMacSmDel() {
   if ( updateSMacSm_ ) updateSMacSm_->gantDoZombieReactors( true );
   updateSMacSm_ = nullptr;
}

NextHopModUpdateSMacSm::NextHopModUpdateSMacSm( const Gant::Ptr< const Vex::L2Intf > & l2Intf, NextHopMod * nhMod ) :
     nhMod_( nhMod ), gantL2Intf_( this, l2Intf ) {}

void NextHopModUpdateSMacSm::updateSMac() { nhMod()->setSrcMacAddr( l2Intf()->macAddr() ); }

NhResolve::NhResolve( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
                      Gant::Ptr< Vex::ModuleConfigStatusPair > pair, VexL3Sm * l3Sm, Kynet::IntfId intfId ) :
     Module( name, Vex::VexModule::NhResolve, maxInGate, maxOutGate, 0, 1, initArgs, std::move( pair ) ),
     l3Sm_( l3Sm ), intfId_( intfId ) {}

U32 NhResolve::allocNhrIndex() {
   if ( nhrEntryIndexAvailables() == 0 ) {
      GANT_TRACE( 0, name(), ": No more nhr Indices available" );
      return 0;
   }
   const U32 index = nhrEntryIndexAvailableIterator().begin()->first;
   nhrEntryIndexAvailableDel( index );
   return index;
}

void NhResolve::addNhResolveEntry( const NhrEntryKey & key ) {
   auto * const arg = newMessage< vex::pb::NhResolveEntryInfoArg >( *this );
   arg->set_nhr_index( nhrEntry( key ) );
   arg->set_ogate( intfIdToOutGate( key.intf() ) );
   arg->set_nhm_index( key.nhLocalIndex() );
   enqueueChange( *this, "addNhResolveEntry", arg );
}

void NhResolve::deleteNhResolveEntry( const NhrEntryKey & key ) {
   auto * const arg = newMessage< vex::pb::NhResolveEntryInfoArg >( *this );
   arg->set_nhr_index( nhrEntry( key ) );
   enqueueChange( *this, "deleteNhResolveEntry", arg );
}

} // namespace VexL3Unicast
