#include "GantNotify.h"

#include <algorithm>

namespace Gant {

void StateMachine::hasNotificationActiveIs( bool active ) {
   PtrInterface::hasNotificationActiveIs( active );
   if ( !active || zombie() ) return;
   // A renotified reactor may make and drop others.
   const auto reactors = reactors_;
   for ( auto * reactor : reactors ) {
      if ( std::ranges::find( reactors_, reactor ) == reactors_.end() ) continue;
      if ( std::exchange( reactor->missed_, false ) ) reactor->onRenotify();
   }
}

NotifieeBase::NotifieeBase( StateMachine * owner ) : owner_( owner ) { owner_->reactors_.push_back( this ); }

NotifieeBase::~NotifieeBase() { std::erase( owner_->reactors_, this ); }

bool NotifieeBase::listening() {
   if ( owner_->zombie() ) return false;
   if ( owner_->hasNotificationActive() ) return true;
   missed_ = true;
   return false;
}

void NotifieeList::remove( NotifieeBase * notifiee ) {
   const auto at = std::ranges::find( notifiees_, notifiee );
   if ( at == notifiees_.end() ) return;
   if ( walks_ == 0 ) {
      notifiees_.erase( at );
      return;
   }
   *at = nullptr;
   gaps_ = true;
}

void NotifieeList::close() {
   std::erase( notifiees_, nullptr );
   gaps_ = false;
}

} // namespace Gant
