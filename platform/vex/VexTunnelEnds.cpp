#include "VexTunnelEnds.h"

#include "vex/ip.pb.h"
#include "VexMessage.h"

namespace Vex {

namespace {

constexpr U32 gatesMost = 8192;

// Output gates of the trap.
constexpr U32 trapToTunnels = 1, trapToIpsec = 2;

} // namespace

TunnelIngressModule::TunnelIngressModule( Gant::Ptr< ModuleConfigStatusPair > pair ) :
     Module( "tunnelIngress", VexModule::TunnelIngress, gatesMost, gatesMost, 0, 1, nullptr, std::move( pair ) ) {}

void TunnelIngressModule::addTunnel( GateId gate, const L2Intf & tunnel ) {
   auto * const arg = newMessage< vex::pb::TunnelEndArg >( *this );
   arg->set_ogate( gate );
   arg->set_vrf( tunnel.underlayVrfId() );
   arg->set_local_ip( tunnel.srcIp() );
   arg->set_remote_ip( tunnel.dstIp() );
   arg->set_gre( tunnel.isGreTunnelType() );
   arg->set_gre_key( tunnel.greKey() );
   if ( tunnel.isIpsecTunnelType() ) arg->set_encap_id( tunnel.ipsecEncapId() );
   enqueueChange( *this, "addTunnel", arg );
}

void TunnelIngressModule::delTunnel( GateId gate ) {
   auto * const arg = newMessage< vex::pb::TunnelEndArg >( *this );
   arg->set_ogate( gate );
   enqueueChange( *this, "delTunnel", arg );
}

TunnelEnds::TunnelEnds( const ModuleGlobalCmdConfig & groups, Gant::Ptr< Module > trapModule ) :
     groups_( groups ), trapModule_( std::move( trapModule ) ) {}

TunnelEnds::~TunnelEnds() = default;

Module * TunnelEnds::moduleOf( VexModule::ModuleClass moduleClass ) const {
   for ( const auto & [ name, pair ] : groups_.moduleConfigStatusPairIterator() )
      for ( const auto & [ moduleName, module ] : pair->moduleConfig()->modules() )
         if ( module->moduleClass() == moduleClass ) return module;
   return nullptr;
}

void TunnelEnds::lead() {
   ingress_ = Gant::make< TunnelIngressModule >( trapModule_->modulePair() );
   ingress_->connectViaReservedGate( trapModule_, GateId( 0 ) );
   if ( auto * const ipsec = moduleOf( VexModule::IpsecTunnelIngress ) ) {
      ipsec->connectViaReservedGate( ingress_, GateId( 0 ) );
      trapModule_->outGateIs( GateId( trapToIpsec ), ipsec );
   }
   trapModule_->outGateIs( GateId( trapToTunnels ), ingress_.get() );
}

void TunnelEnds::endIs( const L3Intf & l3Intf ) {
   const auto & l2Intf = l3Intf.l2Intf();
   if ( !l2Intf || !l2Intf->isTunnelType() || gates_.contains( l3Intf.intfId() ) ) return;
   if ( l2Intf->isIpsecTunnelType() && l2Intf->ipsecEncapId() == 0 ) return;
   if ( !ingress_ ) lead();
   const auto gate = ingress_->getOutGate();
   if ( !gate ) return;
   gates_[ l3Intf.intfId() ] = gate;
   ingress_->outGateIs( gate, l2Intf->rxModule().get() );
   ingress_->addTunnel( gate, *l2Intf );
}

void TunnelEnds::endDel( Kynet::IntfId intfId ) {
   const auto at = gates_.find( intfId );
   if ( at == gates_.end() ) return;
   const auto gate = at->second;
   gates_.erase( at );
   ingress_->delTunnel( gate );
   ingress_->outGateIs( gate, nullptr );
   ingress_->releaseOutGate( gate );
   if ( !gates_.empty() ) return;
   trapModule_->outGateIs( GateId( trapToIpsec ), nullptr );
   ingress_ = nullptr;
}

} // namespace Vex
