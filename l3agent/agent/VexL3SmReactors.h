// The reactors of VexL3Sm. For its sources only.
#pragma once

#include "VexL3Sm.h"

namespace VexL3Unicast {

class VexL3Sm::GantVexcsd : public Vex::VexCommonSmData::Notifiee {
 public:
   GantVexcsd( VexL3Sm * sm, const Gant::Ptr< const Vex::VexCommonSmData > & vexcsd ) :
        Notifiee( sm, vexcsd ), sm_( sm ) {}
   void onL3Intf( const Kynet::IntfId & intfId ) override {
      sm_->handleL3Intf( intfId );
      if ( !sm_->zombie() ) sm_->handleL3TunnelIntf( intfId );
   }
   void onRenotify() override;

 private:
   VexL3Sm * sm_;
};

class VexL3Sm::GantBridgingConfig : public Bridging::Config::Notifiee {
 public:
   GantBridgingConfig( VexL3Sm * sm, const Gant::Ptr< const Bridging::Config > & bridgingConfig ) :
        Notifiee( sm, bridgingConfig ), sm_( sm ) {}
   void onBridgeMacAddr() override { sm_->handleRouterMacAddr(); }
   void onRenotify() override { onBridgeMacAddr(); }

 private:
   VexL3Sm * sm_;
};

class VexL3Sm::GantConfigStatusPair : public Vex::ModuleConfigStatusPair::Notifiee {
 public:
   GantConfigStatusPair( VexL3Sm * sm, const Gant::Ptr< const Vex::ModuleConfigStatusPair > & pair ) :
        Notifiee( sm, pair ), sm_( sm ) {}
   void onModuleStatus() override {
      sm_->bindModuleStatus();
      // Answers may wait in it already.
      sm_->handleResponse();
   }
   void onRenotify() override { onModuleStatus(); }

 private:
   VexL3Sm * sm_;
};

class VexL3Sm::GantModuleStatus : public Vex::ModuleStatus::Notifiee {
 public:
   GantModuleStatus( VexL3Sm * sm, const Gant::Ptr< const Vex::ModuleStatus > & moduleStatus ) :
        Notifiee( sm, moduleStatus ), sm_( sm ) {}
   void onResponseQueue() override { sm_->handleResponse(); }
   void onRenotify() override { onResponseQueue(); }

 private:
   VexL3Sm * sm_;
};

} // namespace VexL3Unicast
