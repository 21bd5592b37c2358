#include "HulIntfVlanIdSet.h"

namespace IntfVlanIdSet {

struct ConfigSm::GantBridgingConfig : Bridging::Config::Notifiee {
   explicit GantBridgingConfig( ConfigSm * owner ) : Notifiee( owner, owner->args_.bridgingConfig ), owner( owner ) {}
   void onVlanConfig( const Bridging::VlanId & vlanId ) override { owner->review( vlanId ); }
   void onRenotify() override { owner->reviewAll(); }
   ConfigSm * owner;
};

struct ConfigSm::GantVlanConfig : Bridging::VlanConfig::Notifiee {
   GantVlanConfig( ConfigSm * owner, Gant::Ptr< const Bridging::VlanConfig > config ) :
        Notifiee( owner, std::move( config ) ), owner( owner ) {}
   void onIntf( const Kynet::IntfId & intfId ) override {
      owner->memberIs( intfId, notifier()->vlanId(), notifier()->intfHas( intfId ) );
   }
   void onRenotify() override { owner->review( notifier()->vlanId() ); }
   ConfigSm * owner;
};

ConfigSm::ConfigSm( Args args ) :
     args_( std::move( args ) ), reactor_( std::make_unique< GantBridgingConfig >( this ) ) {
   reviewAll();
}

ConfigSm::~ConfigSm() = default;

void ConfigSm::reviewAll() {
   if ( !args_.bridgingConfig ) return;
   for ( const auto & vlanId : Gant::keysOf( vlanReactors_ ) ) review( vlanId );
   for ( const auto & vlanId : args_.bridgingConfig->vlanConfigKeys() ) review( vlanId );
}

void ConfigSm::review( Bridging::VlanId vlanId ) {
   const auto config = args_.bridgingConfig->vlanConfig( vlanId );
   const auto member = [ & ]( Kynet::IntfId intfId ) { return config && config->intfHas( intfId ); };
   for ( const auto & intfId : args_.intfVlanIdSetTable->intfVlanIdsKeys() )
      if ( !member( intfId ) ) memberIs( intfId, vlanId, false );
   if ( !config ) {
      vlanReactors_.erase( vlanId );
      return;
   }
   for ( const auto & intfId : config->intfKeys() ) memberIs( intfId, vlanId, true );
   auto & reactor = vlanReactors_[ vlanId ];
   if ( !reactor || reactor->notifier() != config ) reactor = std::make_unique< GantVlanConfig >( this, config );
}

void ConfigSm::memberIs( Kynet::IntfId intfId, Bridging::VlanId vlanId, bool member ) {
   auto vlanIds = args_.intfVlanIdSetTable->intfVlanIds( intfId );
   if ( member )
      vlanIds.insert( vlanId );
   else
      vlanIds.erase( vlanId );
   if ( vlanIds.empty() )
      args_.intfVlanIdSetTable->intfVlanIdsDel( intfId );
   else
      args_.intfVlanIdSetTable->intfVlanIdsIs( intfId, vlanIds );
}

} // namespace IntfVlanIdSet
