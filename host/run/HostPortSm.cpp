#include "HostPortSm.h"

#include "VexCommonSmData.h"

#include <cassert>

namespace Host {

struct PortSm::GantPortDir : PortDir::Notifiee {
   explicit GantPortDir( PortSm * owner ) : Notifiee( owner, owner->portDir_ ), owner( owner ) {}
   void onPort( const Kynet::IntfId & intfId ) override { owner->review( intfId ); }
   PortSm * owner;
};

PortSm::PortSm( Gant::Ptr< const PortDir > portDir, Gant::Ptr< Vex::VexCommonSmData > vexcsd,
                Gant::Ptr< Vex::ModuleConfigStatusPair > pair ) :
     portDir_( std::move( portDir ) ),
     vexcsd_( std::move( vexcsd ) ), pair_( std::move( pair ) ), reactor_( std::make_unique< GantPortDir >( this ) ) {
   for ( const auto & intfId : portDir_->portKeys() ) review( intfId );
}

PortSm::~PortSm() = default;

void PortSm::review( Kynet::IntfId intfId ) {
   if ( !portDir_->portHas( intfId ) ) {
      const auto gone = vexcsd_->l2IntfDel( intfId );
      // Whoever kept it would destroy the modules of the next one by their names.
      assert( !gone || gone->references() == 1 );
      return;
   }
   const auto port = portDir_->port( intfId );
   auto l2Intf = vexcsd_->l2Intf( intfId );
   if ( !l2Intf )
      l2Intf = Gant::make< Vex::L2Intf >( intfId, port.encapType(), port.macAddr(), pair_, vexcsd_->trapModule() );
   // In place before the interface is seen: what is built on it reads them once.
   l2Intf->macAddrIs( port.macAddr() );
   l2Intf->enabledIs( port.enabled() );
   if ( l2Intf->isTunnelType() ) {
      const auto & tunnel = port.tunnel();
      l2Intf->srcIpIs( tunnel.srcAddr() );
      l2Intf->dstIpIs( tunnel.dstAddr() );
      l2Intf->tosIs( tunnel.tos() );
      l2Intf->ttlIs( tunnel.ttl() );
      l2Intf->greKeyIs( tunnel.key() );
      l2Intf->underlayVrfIdIs( port.underlayVrfId() );
      l2Intf->overlayVrfIdIs( port.overlayVrfId() );
      l2Intf->ipsecEncapIdIs( port.ipsecEncapId() );
   }
   vexcsd_->l2IntfIs( intfId, l2Intf );
}

} // namespace Host
