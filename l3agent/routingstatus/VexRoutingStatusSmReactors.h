// The reactors of RoutingStatusSm. For its sources only.
#pragma once

#include "VexRoutingStatusSm.h"

namespace VexL3Unicast {

class RoutingStatusSm::GantRoutingStatus : public RoutingStatus::Notifiee {
 public:
   explicit GantRoutingStatus( RoutingStatusSm * sm ) : Notifiee( sm, sm->routingStatus() ), sm_( sm ) {}
   void onRouterMac() override { sm_->handleRouterMac(); }
   void onVirtualRouterMac() override { sm_->handleVirtualRouterMac(); }
   void onVlanRoutingStatus( const Bridging::VlanId & vlanId ) override {
      sm_->followVlanRoutingStatus( vlanId );
      sm_->handleVlanRoutingStatus( vlanId );
   }
   void onRenotify() override { sm_->renotifyRoutingStatus(); }

 private:
   RoutingStatusSm * sm_;
};

class RoutingStatusSm::GantBridgingConfig : public Bridging::Config::Notifiee {
 public:
   explicit GantBridgingConfig( RoutingStatusSm * sm ) : Notifiee( sm, sm->bridgingConfig() ), sm_( sm ) {}
   void onBridgeMacAddr() override { sm_->handleBridgeMacAddr(); }
   void onVlanConfig( const Bridging::VlanId & vlanId ) override {
      sm_->followVlanConfig( vlanId );
      sm_->handleVlanConfig( vlanId );
   }
   void onRenotify() override { sm_->renotifyBridgingConfig(); }

 private:
   RoutingStatusSm * sm_;
};

class RoutingStatusSm::GantVerifyData : public Hul::VerifyData::Notifiee {
 public:
   explicit GantVerifyData( RoutingStatusSm * sm ) : Notifiee( sm, sm->verifyData() ), sm_( sm ) {}
   void onVerify() override { sm_->handleVerify(); }
   void onRenotify() override { onVerify(); }

 private:
   RoutingStatusSm * sm_;
};

// One VLAN's routing facts.
class RoutingStatusSm::GantVlanRoutingStatus : public Gant::StateMachine {
 public:
   GantVlanRoutingStatus( RoutingStatusSm * sm, const Gant::Ptr< const VlanRoutingStatus > & status ) :
        reactor_( this, sm, status ) {}
   const char * fwkType() const override { return "VexL3Unicast::RoutingStatusSm::GantVlanRoutingStatus"; }
   const Gant::Ptr< const VlanRoutingStatus > & notifier() const { return reactor_.notifier(); }

 private:
   struct Reactor : VlanRoutingStatus::Notifiee {
      Reactor( StateMachine * owner, RoutingStatusSm * sm, const Gant::Ptr< const VlanRoutingStatus > & status ) :
           Notifiee( owner, status ), sm( sm ) {}
      void onGenId() override { sm->handleVlanRoutingStatus( notifier()->vlanId() ); }
      void onRenotify() override { onGenId(); }
      RoutingStatusSm * sm;
   };
   Reactor reactor_;
};

// One VLAN's members.
class RoutingStatusSm::GantVlanConfig : public Gant::StateMachine {
 public:
   GantVlanConfig( RoutingStatusSm * sm, const Gant::Ptr< const Bridging::VlanConfig > & config ) :
        sm_( sm ), reactor_( this, config ) {}
   const char * fwkType() const override { return "VexL3Unicast::RoutingStatusSm::GantVlanConfig"; }
   const Gant::Ptr< const Bridging::VlanConfig > & notifier() const { return reactor_.notifier(); }
   // Only the CPU's port has an effect.
   void handleVlanMember( Kynet::IntfId intf );

 private:
   struct Reactor : Bridging::VlanConfig::Notifiee {
      Reactor( GantVlanConfig * owner, const Gant::Ptr< const Bridging::VlanConfig > & config ) :
           Notifiee( owner, config ), owner( owner ) {}
      void onIntf( const Kynet::IntfId & intf ) override { owner->handleVlanMember( intf ); }
      void onRenotify() override { owner->sm_->handleVlanConfig( notifier()->vlanId() ); }
      GantVlanConfig * owner;
   };
   RoutingStatusSm * sm_;
   Reactor reactor_;
};

} // namespace VexL3Unicast
