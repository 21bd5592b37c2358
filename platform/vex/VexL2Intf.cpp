#include "VexL2Intf.h"

#include "GantAssert.h"

namespace Vex {

namespace {

Gant::Ptr< PortModule > port( bool wanted, VexModule::ModuleClass moduleClass, Kynet::IntfId intfId,
                              const Gant::Ptr< ModuleConfigStatusPair > & pair ) {
   return wanted ? Gant::make< PortModule >( moduleClass, intfId, pair ) : nullptr;
}

} // namespace

L2Intf::L2Intf( Kynet::IntfId intfId, EncapType encapType, const Kynet::EthAddr & macAddr,
                const Gant::Ptr< ModuleConfigStatusPair > & pair, const Gant::Ptr< Module > & trapModule ) :
     intfId_( intfId ),
     encapType_( encapType ), rxModule_( Gant::make< PortModule >( VexModule::PortRx, intfId, pair ) ),
     txModule_( port( !isTunnelType(), VexModule::PortTx, intfId, pair ) ),
     rxCpModule_( port( isTunnelType(), VexModule::PortRxCp, intfId, pair ) ),
     ingressClassify_( Gant::make< EtherClassifyModule >( intfId, macAddr, pair ) ), macAddr_( macAddr ) {
   ingressClassify_->connectViaReservedGate( trapModule, GateId( 0 ) );
   rxModule_->connectModule( ingressClassify_ );
}

L2Intf::~L2Intf() = default;

void L2Intf::vrfIdIs( Hul::VrfId vrfId ) { ingressClassify_->setVrf( vrfId ); }

void L2Intf::underlayVrfIdIs( Hul::VrfId vrfId ) {
   GANT_ON_LOOP();
   if ( underlayVrfId_ == vrfId ) return;
   underlayVrfId_ = vrfId;
   if ( rxCpModule_ ) rxCpModule_->setVrf( vrfId );
   notifiees_.tell( &Notifiee::onTunnel );
}

void L2Intf::macAddrIs( const Kynet::EthAddr & macAddr ) {
   GANT_ON_LOOP();
   if ( macAddr_ == macAddr ) return;
   macAddr_ = macAddr;
   ingressClassify_->setMacAddr( macAddr );
   notifiees_.tell( &Notifiee::onMacAddr );
}

void L2Intf::enabledIs( bool enabled ) {
   if ( std::exchange( enabled_, enabled ) == enabled ) return;
   static_cast< PortModule & >( *rxModule_ ).setEnabled( enabled );
}

void L2Intf::addVirtualMac( const Kynet::EthAddr & macAddr ) {
   if ( virtualMacAddrHas( macAddr ) ) return;
   ingressClassify_->addVirtualMac( macAddr );
   virtualMacAddrIs( macAddr, true );
}

void L2Intf::removeVirtualMac( const Kynet::EthAddr & macAddr ) {
   if ( !virtualMacAddrHas( macAddr ) ) return;
   ingressClassify_->removeVirtualMac( macAddr );
   virtualMacAddrIs( macAddr, false );
}

ModuleChain & L2Intf::chain( U32 portType ) {
   const auto [ at, added ] = ingressModuleChain_.try_emplace( portType );
   if ( added && portType == U32( L2PortType::controlPlane ) && rxCpModule_ )
      at->second.sourceIs( rxCpModule_, rxCpModule_->getOutGate() );
   return at->second;
}

void L2Intf::connectIngressModule( const Gant::Ptr< Module > & module, U32 portType, U32 priority ) {
   chain( portType ).place( module, priority );
}

void L2Intf::disconnectIngressModule( const Gant::Ptr< Module > & module, U32 portType, U32 ) {
   if ( module ) chain( portType ).remove( module.get() );
}

const ModuleChain & L2Intf::ingressModuleChain( U32 portType ) const {
   static const ModuleChain none;
   const auto at = ingressModuleChain_.find( portType );
   return at == ingressModuleChain_.end() ? none : at->second;
}

} // namespace Vex
