#include "HulL3IntfConfigSm.h"

#include "GantTrace.h"
#include "StateInterface.h"

#include <algorithm>

namespace HulL3Intf {

static Gant::TraceHandle traceHandle( "HulL3IntfConfigSm" );

namespace {

bool ownsVlan( Kynet::IntfId intfId ) { return intfId.type() == Kynet::IntfType::vlan_; }

} // namespace

struct ConfigSm::GantBridgingConfig : Bridging::Config::Notifiee {
   explicit GantBridgingConfig( ConfigSm * owner ) : Notifiee( owner, owner->args_.bridgingConfig ), owner( owner ) {}
   void onVlanConfig( const Bridging::VlanId & vlanId ) override { owner->handleVlanConfig( vlanId ); }
   void onRenotify() override { owner->reviewAll(); }
   ConfigSm * owner;
};

struct ConfigSm::GantVlanIntfStatusDir : Interface::VlanIntfStatusDir::Notifiee {
   explicit GantVlanIntfStatusDir( ConfigSm * owner ) :
        Notifiee( owner, owner->args_.vlanIntfStatusDir ), owner( owner ) {}
   void onIntfStatus( const Kynet::IntfId & intfId ) override { owner->review( intfId ); }
   void onRenotify() override { owner->reviewAll(); }
   ConfigSm * owner;
};

struct ConfigSm::GantTable : Table::Notifiee {
   explicit GantTable( ConfigSm * owner ) : Notifiee( owner, owner->args_.hulL3IntfTable ), owner( owner ) {}
   void onRoutedIntf( const Kynet::IntfId & intfId ) override { owner->review( intfId ); }
   void onRenotify() override { owner->reviewAll(); }
   ConfigSm * owner;
};

ConfigSm::ConfigSm( Args args ) :
     args_( std::move( args ) ), bridgingReactor_( std::make_unique< GantBridgingConfig >( this ) ),
     vlanIntfReactor_( std::make_unique< GantVlanIntfStatusDir >( this ) ),
     tableReactor_( std::make_unique< GantTable >( this ) ) {
   reviewAll();
}

ConfigSm::~ConfigSm() = default;

bool ConfigSm::configured( U16 vlanId ) const {
   return args_.bridgingConfig && args_.bridgingConfig->vlanConfigHas( Bridging::VlanId( vlanId ) );
}

bool ConfigSm::wanted( Kynet::IntfId intfId ) const {
   return args_.hulL3IntfTable->routedIntfHas( intfId ) ||
          ( args_.vlanIntfStatusDir && args_.vlanIntfStatusDir->intfStatusHas( intfId ) );
}

void ConfigSm::reviewAll() {
   freeUpTo_ = highestVlan;
   for ( const auto & intfId : args_.hulL3IntfTable->intfL3IndexKeys() ) review( intfId );
   if ( args_.vlanIntfStatusDir )
      for ( const auto & intfId : args_.vlanIntfStatusDir->intfStatusKeys() ) review( intfId );
   for ( const auto & intfId : args_.hulL3IntfTable->routedIntfKeys() ) review( intfId );
   if ( args_.bridgingConfig )
      for ( const auto & vlanId : args_.bridgingConfig->vlanConfigKeys() ) handleVlanConfig( vlanId );
}

void ConfigSm::review( Kynet::IntfId intfId ) {
   const bool has = args_.hulL3IntfTable->intfL3IndexHas( intfId );
   if ( has == wanted( intfId ) ) return;
   if ( has ) {
      vlanIs( intfId, 0 );
      // One that found none before may be waiting for it.
      for ( const auto & other : std::exchange( waiting_, {} ) )
         if ( other != intfId ) review( other );
   } else if ( !ownsVlan( intfId ) ) {
      const auto vlanId = freeVlan();
      if ( vlanId == 0 ) waiting_.insert( intfId );
      vlanIs( intfId, vlanId );
   } else if ( intfId.first() >= 1 && intfId.first() <= highestVlan ) {
      vacate( intfId.first() );
      vlanIs( intfId, intfId.first() );
   }
}

void ConfigSm::handleVlanConfig( U16 vlanId ) {
   if ( configured( vlanId ) ) {
      vacate( vlanId );
      return;
   }
   freeUpTo_ = std::max( freeUpTo_, vlanId );
   for ( const auto & intfId : args_.hulL3IntfTable->routedIntfKeys() ) review( intfId );
}

U16 ConfigSm::freeVlan() {
   if ( !args_.internalVlansAllowed ) return 0;
   while ( freeUpTo_ != 0 && ( used_.contains( freeUpTo_ ) || configured( freeUpTo_ ) ) ) --freeUpTo_;
   return freeUpTo_;
}

void ConfigSm::vacate( U16 vlanId ) {
   const auto at = used_.find( vlanId );
   if ( at == used_.end() || ownsVlan( at->second ) ) return;
   const auto intfId = at->second;
   // Found while the old one still counts as used.
   const auto other = freeVlan();
   GANT_TRACE( 2, "ConfigSm::vacate ", intfId, " leaves vlan ", vlanId, " for ", other );
   if ( other == 0 ) waiting_.insert( intfId );
   vlanIs( intfId, other );
}

void ConfigSm::vlanIs( Kynet::IntfId intfId, U16 vlanId ) {
   const auto old = static_cast< U16 >( args_.hulL3IntfTable->intfL3Index( intfId ).value() );
   if ( vlanId == old ) return;
   if ( old != 0 ) {
      used_.erase( old );
      freeUpTo_ = std::max( freeUpTo_, old );
   }
   if ( vlanId == 0 ) {
      args_.hulL3IntfTable->intfL3IndexDel( intfId );
      return;
   }
   used_[ vlanId ] = intfId;
   args_.hulL3IntfTable->intfL3IndexIs( intfId, L3Id( vlanId ) );
}

} // namespace HulL3Intf
