#include "VexIpsecGrpcSm.h"

#include "GantTrace.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexIpsecGrpcSm" );

class IpsecGrpcSm::GantConfigStatusPair : public Vex::ModuleConfigStatusPair::Notifiee {
 public:
   explicit GantConfigStatusPair( IpsecGrpcSm * sm ) : Notifiee( sm, sm->configStatusPair() ), sm_( sm ) {}
   void onModuleStatus() override {
      sm_->bindModuleStatus();
      sm_->handleGrpcError();
   }
   void onRenotify() override { onModuleStatus(); }

 private:
   IpsecGrpcSm * sm_;
};

class IpsecGrpcSm::GantModuleStatus : public Vex::ModuleStatus::Notifiee {
 public:
   explicit GantModuleStatus( IpsecGrpcSm * sm ) : Notifiee( sm, sm->configStatusPair()->moduleStatus() ), sm_( sm ) {}
   void onErrorQueue() override { sm_->handleGrpcError(); }
   void onRenotify() override { onErrorQueue(); }

 private:
   IpsecGrpcSm * sm_;
};

IpsecGrpcSm::IpsecGrpcSm( const Gant::Ptr< Vex::ModuleConfigStatusPair > & configStatusPair ) :
     configStatusPair_( configStatusPair ), gantConfigStatusPair_( std::make_unique< GantConfigStatusPair >( this ) ) {
   bindModuleStatus();
   handleInitialized();
}

IpsecGrpcSm::~IpsecGrpcSm() = default;

Gant::Ptr< IpsecGrpcSm > ipsecGrpcSmFactory( const Gant::Ptr< Vex::ModuleConfigStatusPair > & configStatusPair ) {
   return Gant::make< IpsecGrpcSm >( configStatusPair );
}

void IpsecGrpcSm::bindModuleStatus() { gantModuleStatus_ = std::make_unique< GantModuleStatus >( this ); }

void IpsecGrpcSm::handleInitialized() {
   handleGrpcError();
   initializedIs( true );
}

void IpsecGrpcSm::handleGrpcError() {
   while ( const auto event = configStatusPair()->moduleStatus()->errorQueueDeq() )
      GANT_TRACE( 0, "IpsecGrpcSm::handleGrpcError Ipsec GRPC msg error handling for cmdType: ", event->cmdType(),
                  " cmdAction: ", event->cmdAction(), " errorCode: ", event->errorCode(),
                  " errorMsg: ", event->errorMsg() );
}

} // namespace VexL3Unicast
