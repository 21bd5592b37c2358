#include "VexVrrpSm.h"

#include "GantTrace.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexVrrpSm" );

class VexVrrpSm::GantVirtualRouterMacStatus : public Routing::Fhrp::VirtualRouterMacStatus::Notifiee {
 public:
   explicit GantVirtualRouterMacStatus( VexVrrpSm * sm ) : Notifiee( sm, sm->virtualRouterMacStatus() ), sm_( sm ) {}
   void onVrrpVirtualMac( const Routing::Fhrp::VirtualRouterMac & key ) override { sm_->handleVrrpMac( key ); }
   // Also the MACs whose entry went meanwhile.
   void onRenotify() override {
      for ( const auto & [ intfId, l2Intf ] : sm_->vexcsd()->l2IntfIterator() )
         for ( const auto & mac : l2Intf->virtualMacAddrKeys() ) {
            const Routing::Fhrp::VirtualRouterMac key( intfId, mac );
            if ( !notifier()->vrrpVirtualMacHas( key ) ) sm_->handleVrrpMac( key );
         }
      sm_->handleVrrpMac();
   }

 private:
   VexVrrpSm * sm_;
};

VexVrrpSm::VexVrrpSm( const Gant::Ptr< Vex::VexCommonSmData > & vexcsd,
                      const Gant::Ptr< const Routing::Fhrp::VirtualRouterMacStatus > & virtualRouterMacStatus,
                      const Gant::Ptr< Routing::Fhrp::Hardware::Status > & fhrpHwStatus ) :
     vexcsd_( vexcsd ),
     virtualRouterMacStatus_( virtualRouterMacStatus ), fhrpHwStatus_( fhrpHwStatus ),
     gantVirtualRouterMacStatus_( std::make_unique< GantVirtualRouterMacStatus >( this ) ) {
   handleInitialized();
}

VexVrrpSm::~VexVrrpSm() = default;

void VexVrrpSm::handleInitialized() {
   GANT_TRACE( 1, "VexVrrpSm::handleInitialized" );
   if ( initialized() ) return;
   if ( fhrpHwStatus() ) {
      fhrpHwStatus()->anygwSupportedIs( true );
      fhrpHwStatus()->vrrpSupportedIs( true );
      fhrpHwStatus()->vrrpSupportedMaxNumIs( 128 );
      fhrpHwStatus()->useUniqueGroupIdsIs( false );
   }
   initializedIs( true );
   handleVrrpMac();
}

void VexVrrpSm::handleVrrpMac() {
   if ( !virtualRouterMacStatus() ) return;
   for ( const auto & key : virtualRouterMacStatus()->vrrpVirtualMacKeys() ) handleVrrpMac( key );
}

void VexVrrpSm::handleVrrpMac( const Routing::Fhrp::VirtualRouterMac & key ) {
   GANT_TRACE( 2, " VexVrrpSm::handleVrrpMac(", key );
   if ( !vexcsd()->l2IntfHas( key.intfId() ) ) {
      GANT_TRACE( 2, "intf: ", key.intfId().shortName(), " doesn't exist" );
      return;
   }
   const auto & l2Intf = vexcsd()->l2Intf( key.intfId() );
   if ( l2Intf->encapType() != Vex::EncapType::ethernet_ ) {
      GANT_TRACE( 2, "intf: ", key.intfId().shortName(), " is not of type ethernet" );
      return;
   }
   // An entry that is gone reads as false.
   if ( virtualRouterMacStatus()->vrrpVirtualMac( key ) )
      l2Intf->addVirtualMac( key.mac() );
   else
      l2Intf->removeVirtualMac( key.mac() );
}

Gant::Ptr< VexVrrpSm > VexVrrpSmIs(
     const Gant::Ptr< Vex::VexCommonSmData > & vexcsd,
     const Gant::Ptr< const Routing::Fhrp::VirtualRouterMacStatus > & virtualRouterMacStatus,
     const Gant::Ptr< Routing::Fhrp::Hardware::Status > & fhrpHwStatus ) {
   return Gant::make< VexVrrpSm >( vexcsd, virtualRouterMacStatus, fhrpHwStatus );
}

} // namespace VexL3Unicast
