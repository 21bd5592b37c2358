#include "HulAclLists.h"

namespace Hul {

struct AclLists::GantConfig : Acl::ConfigBase::Notifiee {
   GantConfig( AclLists * lists, Gant::Ptr< const Acl::ConfigBase > config ) :
        Notifiee( lists->owner_, std::move( config ) ), lists( lists ) {}
   void onAclConfig( const Acl::ListKey & key ) override { lists->review( key ); }
   void onRenotify() override { lists->reviewAll(); }
   AclLists * lists;
};

struct AclLists::GantList : Acl::AclConfig::Notifiee {
   GantList( AclLists * lists, Gant::Ptr< const Acl::AclConfig > list ) :
        Notifiee( lists->owner_, std::move( list ) ), lists( lists ) {}
   void onVersion() override { lists->review( notifier()->key() ); }
   void onRenotify() override { onVersion(); }
   AclLists * lists;
};

AclLists::AclLists( Gant::StateMachine * owner, Gant::Ptr< const Acl::ConfigBase > config,
                    std::function< void( const Acl::ListKey & ) > changed ) :
     owner_( owner ),
     changed_( std::move( changed ) ), configReactor_( std::make_unique< GantConfig >( this, std::move( config ) ) ) {}

AclLists::~AclLists() = default;

void AclLists::reviewAll() {
   for ( const auto & key : Gant::keysOf( listReactors_ ) ) review( key );
   for ( const auto & key : configReactor_->notifier()->aclConfigKeys() )
      if ( !listReactors_.contains( key ) ) review( key );
}

void AclLists::review( const Acl::ListKey & list ) {
   // The key may be the reactor's own.
   const auto key = list;
   const auto & config = configReactor_->notifier()->aclConfig( key );
   auto & reactor = listReactors_[ key ];
   if ( !config )
      listReactors_.erase( key );
   else if ( !reactor || reactor->notifier() != config )
      reactor = std::make_unique< GantList >( this, config );
   changed_( key );
}

} // namespace Hul
