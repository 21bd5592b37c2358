#include "GantTrace.h"
#include "vex/ip.pb.h"
#include "vex/next_hop.pb.h"
#include "VexIpsecHelper.h"
#include "VexL3Counters.h"
#include "VexL3SmReactors.h"
#include "VexMessage.h"

#include <algorithm>

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexL3Sm" );

namespace {

using Vex::etherTypeIpv4;
using Vex::etherTypeIpv6;
using Vex::GateId;

constexpr U32 gatesMax = 8192;
constexpr U32 controlPlanePort = 1;

// Places in the IPv4 chains of an interface.
namespace ingress {
constexpr U32 ipInput = 100, fib = 400, mfib6 = 500;
}
namespace egress {
constexpr U32 ipOutput = 200, nextHop = 300, tunnel = 300, ipsec = 400, nhResolve = 500;
}
// Places in the control-plane ingress chain of a tunnel.
namespace controlPlane {
constexpr U32 tunnel = 300, ipsec = 400, fib = 500;
}

Ipsec::Ike::EncapId encapIdOf( const Vex::L2Intf & l2Intf ) {
   Ipsec::Ike::EncapId encapId;
   encapId.reqidIs( l2Intf.ipsecEncapId() );
   if ( l2Intf.encapType() == Vex::EncapType::greIpsec_ ) encapId.typeIs( Ipsec::Ike::EncapIdType::IpsecGre() );
   if ( l2Intf.encapType() == Vex::EncapType::vtiIpsec_ ) encapId.typeIs( Ipsec::Ike::EncapIdType::IpsecVti() );
   return encapId;
}

const Kynet::NamespaceName & defaultNamespace() {
   static const auto name = Kynet::NamespaceName::defaultNamespace();
   return name;
}

} // namespace

// What came and went meanwhile is told apart by whether modules are there, and stand in the interface's chain.
void VexL3Sm::GantVexcsd::onRenotify() {
   for ( const auto & intfId : sm_->l3Modules()->ipInputModKeys() )
      if ( !sm_->isWired( intfId ) ) {
         sm_->removeL3Intf( intfId );
         // Its layer-2 interface may have gone, too.
         sm_->deleteNextHopModule( intfId );
      }
   for ( const auto & intfId : Gant::keysOf( notifier()->l3IntfIteratorConst() ) )
      if ( !sm_->l3Modules()->ipInputModHas( intfId ) ) onL3Intf( intfId );
}

bool VexL3Sm::isWired( Kynet::IntfId intfId ) const {
   const auto l3Intf = vexcsd()->l3Intf( intfId );
   if ( !l3Intf ) return false;
   const auto chain = l3Intf->ingressChains().find( etherTypeIpv4 );
   return chain != l3Intf->ingressChains().end() &&
          std::ranges::any_of( chain->second.links(), [ & ]( const auto & link ) {
             return link.module == l3Modules()->ipInputMod( intfId );
          } );
}

void VexL3Sm::removeL3Intf( Kynet::IntfId intfId ) {
   GANT_TRACE( 2, "VexL3Sm:: Delete", " intf: ", intfId );
   deleteIntfIdtoOgateMapping( intfId, this );
   deleteIpInputModule( intfId );
   deleteIpOutputModule( intfId );
   if ( isEthIntf( intfId ) ) deleteNextHopModule( intfId );
   if ( const auto & l2Intf = vexcsd()->l2Intf( intfId ) ) l2Intf->vrfIdIs( Hul::VrfId( 0 ) );
   if ( tunnels_.contains( intfId ) ) deleteTunnel( intfId );
}

bool VexL3Sm::isEthIntf( Kynet::IntfId intfId ) const {
   const auto & l2Intf = vexcsd()->l2Intf( intfId );
   if ( !l2Intf ) {
      GANT_TRACE( 1, "WARNING: No L2Intf for ", intfId );
      return false;
   }
   return l2Intf->encapType() == Vex::EncapType::ethernet_;
}

bool VexL3Sm::isTunnelIntf( Kynet::IntfId intfId ) const {
   const auto & l2Intf = vexcsd()->l2Intf( intfId );
   return l2Intf && l2Intf->isTunnelType();
}

void VexL3Sm::handleL3Intf( Kynet::IntfId intfId ) {
   const auto l3Intf = vexcsd()->l3Intf( intfId );
   const auto l2Intf = vexcsd()->l2Intf( intfId );
   if ( !l3Intf ) {
      removeL3Intf( intfId );
      return;
   }
   GANT_TRACE( 2, "VexL3Sm:: Create", " intf: ", intfId, " vrf: ", l3Intf->vrfId() );
   // From the far end to the near one: packets that come in find the whole way.
   if ( l2Intf ) l2Intf->vrfIdIs( l3Intf->vrfId() );
   if ( isEthIntf( intfId ) ) createNextHopModule( intfId );
   createIpOutputModule( intfId );
   if ( isEthIntf( intfId ) ) connectMfibModule( intfId );
   createIpInputModule( intfId );
   l3Intf->connectIngressModule( getFibModule(), etherTypeIpv4, ingress::fib );
   connectThisIntfToEgressSrcs( l3Intf, this );
}

void VexL3Sm::createNextHopModule( Kynet::IntfId intfId ) {
   const auto l3Intf = vexcsd()->l3Intf( intfId );
   const auto l2Intf = vexcsd()->l2Intf( intfId );
   auto * const arg = new vex::pb::NextHopInitArg;
   arg->set_max_nexthops( 16384 );
   arg->set_intf_id( intfId.value() );
   const auto module = l3Modules()->nextHopModIs( Vex::moduleName( "NextHop_", l3Intf->intfId() ), gatesMax, 2, arg,
                                                  configStatusPair(), this, intfId );
   if ( !module ) {
      GANT_TRACE( 0, "NextHopMod module NOT created", " for interface: ", intfId );
      return;
   }
   addNextHopCounters( module, vexcsd() );
   module->updateSMacSmIs( l2Intf, module.get() );
   module->setSrcMacAddr( l2Intf->macAddr() );
   module->connectViaReservedGate( vexcsd()->trapModule(), GateId( 0 ) );
   l3Intf->connectEgressModule( module, etherTypeIpv4, egress::nextHop );
   module->ackSmIs( Vex::AckSmIs( module, vexcsd()->cliSm() ) );
}

void VexL3Sm::createIpInputModule( Kynet::IntfId intfId ) {
   const auto l3Intf = vexcsd()->l3Intf( intfId );
   const auto l2Intf = vexcsd()->l2Intf( intfId );
   auto * const arg = new vex::pb::IpInputArg;
   arg->set_mss( l2Intf ? l2Intf->maxMssIngress() : 0 );
   arg->set_do_mss_checksum( true );
   const auto module = l3Modules()->ipInputModIs( Vex::moduleName( "IpInput_", intfId ), gatesMax, 2, arg,
                                                  configStatusPair(), intfId );
   if ( !module ) {
      GANT_TRACE( 0, "IpInputMod module NOT created for interface: ", intfId );
      return;
   }
   addIpInputCounters( module, vexcsd() );
   module->connectViaReservedGate( vexcsd()->trapModule(), GateId( 0 ) );
   l3Intf->connectIngressModule( module, etherTypeIpv4, ingress::ipInput );
}

void VexL3Sm::createIpOutputModule( Kynet::IntfId intfId ) {
   const auto l3Intf = vexcsd()->l3Intf( intfId );
   const auto l2Intf = vexcsd()->l2Intf( intfId );
   auto * const arg = new vex::pb::IpOutputArg;
   arg->set_ip_mtu( l3Intf->ipMtu() );
   arg->set_mss( l2Intf ? l2Intf->maxMssEgress() : 0 );
   arg->set_do_mss_checksum( true );
   const auto module = l3Modules()->ipOutputModIs( Vex::moduleName( "IpOutput_", intfId ), gatesMax, 2, arg,
                                                   configStatusPair(), intfId );
   if ( !module ) {
      GANT_TRACE( 0, "IpOutputMod module NOT created for interface: ", intfId );
      return;
   }
   addIpOutputCounters( module, vexcsd() );
   module->connectViaReservedGate( vexcsd()->trapModule(), GateId( 0 ) );
   l3Intf->connectEgressModule( module, etherTypeIpv4, egress::ipOutput );
}

void VexL3Sm::connectMfibModule( Kynet::IntfId intfId ) {
   const auto l3Intf = vexcsd()->l3Intf( intfId );
   const auto l2Intf = vexcsd()->l2Intf( intfId );
   const auto & vrfName = hulL3Status()->vrfName( l3Intf->vrfId() );
   if ( const auto module = mfa4()->getMfibModule( vrfName ) ) {
      const auto gate = module->getOutGate();
      module->intfIdToOutGateIs( intfId, gate );
      l3Intf->connectEgressSourceModule( module, etherTypeIpv4, gate );
   } else {
      GANT_TRACE( 1, intfId, ": No mfib module for ", vrfName );
   }
   if ( const auto module = mfa6()->getMfibModule( vrfName ) ) {
      l3Intf->connectIngressModule( module, etherTypeIpv6, ingress::mfib6 );
      module->connectModule( l2Intf->txModule() );
      module->intfIdToOutGateIs( intfId, module->findGateByName( l2Intf->txModule()->name(), false ) );
   } else {
      GANT_TRACE( 1, intfId, ": No mfib6 module for ", vrfName );
   }
}

void VexL3Sm::deleteNextHopModule( Kynet::IntfId intfId ) {
   vexcsd()->cliSm()->pModuleQueueDelAll();
   const auto module = l3Modules()->nextHopModDel( intfId );
   if ( !module ) return;
   module->updateSMacSmDel();
   module->disconnectModule( vexcsd()->trapModule() );
   module->ackSmIs( nullptr );
   freeModuleCounters( module, vexcsd() );
}

void VexL3Sm::deleteIpInputModule( Kynet::IntfId intfId ) {
   const auto module = l3Modules()->ipInputModDel( intfId );
   if ( !module ) return;
   module->disconnectModule( vexcsd()->trapModule() );
   freeModuleCounters( module, vexcsd() );
}

void VexL3Sm::deleteIpOutputModule( Kynet::IntfId intfId ) {
   const auto module = l3Modules()->ipOutputModDel( intfId );
   if ( !module ) return;
   module->disconnectModule( vexcsd()->trapModule() );
   freeModuleCounters( module, vexcsd() );
}

void connectThisIntfToEgressSrcs( const Gant::Ptr< Vex::L3Intf > & l3Intf, VexL3Sm * sm ) {
   const auto & fib = sm->getFibModule();
   const auto gate = fib->getOutGate();
   fib->intfIdToOutGateIs( l3Intf->intfId(), gate );
   l3Intf->connectEgressSourceModule( fib, etherTypeIpv4, gate );
   if ( !sm->isEthIntf( l3Intf->intfId() ) ) return;
   for ( const auto & [ tunnel, nhResolve ] : sm->l3Modules()->nhResolveIterator() ) {
      const auto tunnelGate = nhResolve->getOutGate();
      nhResolve->intfIdToOutGateIs( l3Intf->intfId(), tunnelGate );
      l3Intf->connectEgressSourceModule( nhResolve, etherTypeIpv4, tunnelGate );
   }
}

void deleteIntfIdtoOgateMapping( Kynet::IntfId intfId, VexL3Sm * sm ) {
   sm->getFibModule()->intfIdToOutGateDel( intfId );
   for ( const auto & [ tunnel, nhResolve ] : sm->l3Modules()->nhResolveIterator() )
      nhResolve->intfIdToOutGateDel( intfId );
}

void connectThisTunnelAsEgressSrcForAllEthIntf( const Gant::Ptr< NhResolve > & nhResolve ) {
   const auto * const sm = nhResolve->l3Sm();
   for ( const auto & [ intfId, l3Intf ] : sm->vexcsd()->l3IntfIteratorConst() ) {
      if ( !sm->isEthIntf( intfId ) ) continue;
      const auto gate = nhResolve->getOutGate();
      nhResolve->intfIdToOutGateIs( intfId, gate );
      l3Intf->connectEgressSourceModule( nhResolve, etherTypeIpv4, gate );
   }
}

void disconnectThisTunnelAsEgressSrcForAllEthIntf( const Gant::Ptr< NhResolve > & nhResolve ) {
   const auto * const sm = nhResolve->l3Sm();
   for ( const auto & [ intfId, l3Intf ] : sm->vexcsd()->l3IntfIteratorConst() )
      if ( sm->isEthIntf( intfId ) ) l3Intf->disconnectEgressSourceModule( nhResolve, etherTypeIpv4 );
}

void VexL3Sm::handleL3TunnelIntf( Kynet::IntfId intfId ) {
   const auto l3Intf = vexcsd()->l3Intf( intfId );
   if ( l3Intf && isTunnelIntf( intfId ) ) createTunnel( l3Intf );
   if ( !l3Intf && tunnels_.contains( intfId ) ) deleteTunnel( intfId );
}

void VexL3Sm::createTunnel( const Gant::Ptr< Vex::L3Intf > & l3Intf ) {
   const auto intfId = l3Intf->intfId();
   const auto l2Intf = vexcsd()->l2Intf( intfId );
   GANT_TRACE( 2, "VexL3Sm:: TunnelIntf Create", " intf: ", intfId );
   tunnels_[ intfId ] = { l2Intf->encapType(), encapIdOf( *l2Intf ) };
   l2Intf->connectIngressModule( getFibModule(), controlPlanePort, controlPlane::fib );
   createNhResolve( l3Intf );
   if ( l2Intf->isGreTunnelType() ) {
      if ( const auto transit = createIp4GreTunMod( intfId, false ) )
         l3Intf->connectEgressModule( transit, etherTypeIpv4, egress::tunnel );
      if ( const auto own = createIp4GreTunMod( intfId, true ) )
         l2Intf->connectIngressModule( own, controlPlanePort, controlPlane::tunnel );
   } else if ( l2Intf->encapType() == Vex::EncapType::vtiIpsec_ ) {
      if ( const auto transit = createIp4IpsecTunMod( intfId, false ) )
         l3Intf->connectEgressModule( transit, etherTypeIpv4, egress::tunnel );
      if ( const auto own = createIp4IpsecTunMod( intfId, true ) )
         l2Intf->connectIngressModule( own, controlPlanePort, controlPlane::tunnel );
   }
   if ( l2Intf->isIpsecTunnelType() ) {
      GANT_TRACE( 2, "VexL3Sm:: IpsecTunnelIntf Create", " intf: ", intfId );
      const auto pair =
           ipsecHelper()->getOrCreateOutTunnelIpsecModulePair( defaultNamespace(), encapIdOf( *l2Intf ), intfId );
      l3Intf->connectEgressModule( pair->forwardOutTunnelModule(), etherTypeIpv4, egress::ipsec );
      l2Intf->connectIngressModule( pair->localOutTunnelModule(), controlPlanePort, controlPlane::ipsec );
   }
}

void VexL3Sm::createNhResolve( const Gant::Ptr< Vex::L3Intf > & l3Intf ) {
   const auto intfId = l3Intf->intfId();
   auto * const arg = new vex::pb::NhResolveArg;
   arg->set_max_entries( 0 );
   const auto nhResolve = l3Modules()->nhResolveIs( Vex::moduleName( "NhResolve_", intfId ), 1, gatesMax, arg,
                                                    configStatusPair(), this, intfId );
   if ( !nhResolve ) {
      GANT_TRACE( 0, "NhResolve module NOT created for interface: ", intfId );
      return;
   }
   GANT_TRACE( 2, "NhResolve module created for interface: ", intfId );
   l3Intf->connectEgressModule( nhResolve, etherTypeIpv4, egress::nhResolve );
   for ( U32 index = 1; index < NhResolve::entriesMax; ++index ) nhResolve->nhrEntryIndexAvailableIs( index, true );
   nhResolve->nhrEntryIs( NhrEntryKey( FecKey( -1 ), 0, Kynet::IntfId(), 0 ), 0 );
   connectThisTunnelAsEgressSrcForAllEthIntf( nhResolve );
}

void VexL3Sm::deleteTunnel( Kynet::IntfId intfId ) {
   const auto [ encapType, encapId ] = tunnels_[ intfId ];
   tunnels_.erase( intfId );
   GANT_TRACE( 2, "VexL3Sm:: TunnelIntf Delete", " intf: ", intfId );
   const auto disconnect = [ l2Intf = vexcsd()->l2Intf( intfId ) ]( const Gant::Ptr< Vex::Module > & module,
                                                                    U32 place ) {
      if ( l2Intf ) l2Intf->disconnectIngressModule( module, controlPlanePort, place );
   };
   disconnect( getFibModule(), controlPlane::fib );
   if ( encapType == Vex::EncapType::gre_ || encapType == Vex::EncapType::greIpsec_ ) {
      disconnect( l3Modules()->ip4GreTunCp( intfId ), controlPlane::tunnel );
      l3Modules()->ip4GreTunCpDel( intfId );
      l3Modules()->ip4GreTunDel( intfId );
   }
   if ( encapType == Vex::EncapType::greIpsec_ || encapType == Vex::EncapType::vtiIpsec_ ) {
      disconnect( l3Modules()->ip4IpsecTunCp( intfId ), controlPlane::tunnel );
      l3Modules()->ip4IpsecTunCpDel( intfId );
      l3Modules()->ip4IpsecTunDel( intfId );

      GANT_TRACE( 2, "VexL3Sm:: IpsecTunnelIntf Delete", " intf: ", intfId );
      const auto pair = ipsecHelper()->getOrCreateOutTunnelIpsecModulePair( defaultNamespace(), encapId, intfId );
      disconnect( pair->localOutTunnelModule(), controlPlane::ipsec );
      ipsecHelper()->deleteOutTunnelIpsecModulePair( defaultNamespace(), encapId, intfId );
   }
   deleteNhResolve( intfId );
}

void VexL3Sm::deleteNhResolve( Kynet::IntfId intfId ) {
   const auto nhResolve = l3Modules()->nhResolve( intfId );
   if ( !nhResolve ) {
      GANT_TRACE( 1, "VexL3Sm:: NH resolve not found for: ", intfId );
      return;
   }
   disconnectThisTunnelAsEgressSrcForAllEthIntf( nhResolve );
   l3Modules()->nhResolveDel( intfId );
   GANT_TRACE( 2, "VexL3Sm:: NH resolve calling delete: ", intfId );
}

Gant::Ptr< Ip4GreTun > VexL3Sm::createIp4GreTunMod( Kynet::IntfId intfId, bool cpChain ) {
   const auto l2Intf = vexcsd()->l2Intf( intfId );
   constexpr U32 protocolGre = 47;
   auto * const arg = new vex::pb::Ip4GreTunArg;
   auto & encap = *arg->mutable_ip_encap_arg();
   encap.set_proto( protocolGre );
   encap.set_tun_src_ip( l2Intf->srcIp() );
   encap.set_tun_dst_ip( l2Intf->dstIp() );
   encap.set_tun_tos( l2Intf->tos() );
   encap.set_tun_ttl( l2Intf->ttl() );
   arg->set_gre_key( l2Intf->greKey() );
   arg->set_tun_id( Kynet::TunnelIntfId::port( intfId ) );
   arg->set_intf_id( intfId.value() );
   arg->set_cp_ingress( cpChain );
   if ( cpChain )
      return l3Modules()->ip4GreTunCpIs( Vex::moduleName( "Ip4GreTunCp_", intfId ), 1, 2, arg, configStatusPair(), this,
                                         intfId );
   return l3Modules()->ip4GreTunIs( Vex::moduleName( "Ip4GreTun_", intfId ), 1, 2, arg, configStatusPair(), this,
                                    intfId );
}

Gant::Ptr< Ip4IpsecTun > VexL3Sm::createIp4IpsecTunMod( Kynet::IntfId intfId, bool cpChain ) {
   auto * const arg = new vex::pb::Ip4IpsecTunArg;
   arg->set_tun_id( Kynet::TunnelIntfId::port( intfId ) );
   arg->set_intf_id( intfId.value() );
   arg->set_cp_ingress( cpChain );
   if ( cpChain )
      return l3Modules()->ip4IpsecTunCpIs( Vex::moduleName( "Ip4IpsecTunCp_", intfId ), 1, 2, arg, configStatusPair(),
                                           this, intfId );
   return l3Modules()->ip4IpsecTunIs( Vex::moduleName( "Ip4IpsecTun_", intfId ), 1, 2, arg, configStatusPair(), this,
                                      intfId );
}

} // namespace VexL3Unicast
